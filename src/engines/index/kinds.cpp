#include "engines/index/kinds.hpp"

#include <array>

namespace code_index {

namespace {

constexpr std::array<std::string_view, 17> kDefinitionNames = {
    "other", "function", "method",    "class",    "interface", "struct", "enum",  "union", "type",
    "trait", "module",   "namespace", "constant", "variable",  "field",  "macro", "impl"};
constexpr std::array<std::string_view, 5> kReferenceNames = {"other", "call", "type", "import",
                                                             "inherit"};

}  // namespace

std::string_view kind_name(DefinitionKind kind) {
    const auto i = static_cast<std::size_t>(kind);
    return i < kDefinitionNames.size() ? kDefinitionNames[i] : "other";
}

std::string_view kind_name(ReferenceKind kind) {
    const auto i = static_cast<std::size_t>(kind);
    return i < kReferenceNames.size() ? kReferenceNames[i] : "other";
}

std::optional<DefinitionKind> known_definition_kind(std::string_view name) {
    for (std::size_t i = 0; i < kDefinitionNames.size(); ++i) {
        if (kDefinitionNames[i] == name) return static_cast<DefinitionKind>(i);
    }
    return std::nullopt;
}

DefinitionKind definition_kind(std::string_view name) {
    return known_definition_kind(name).value_or(DefinitionKind::other);
}

ReferenceKind reference_kind(std::string_view name) {
    for (std::size_t i = 0; i < kReferenceNames.size(); ++i) {
        if (kReferenceNames[i] == name) return static_cast<ReferenceKind>(i);
    }
    return ReferenceKind::other;
}

bool is_primary(DefinitionKind kind) {
    switch (kind) {
        case DefinitionKind::variable:
        case DefinitionKind::field:
        case DefinitionKind::constant:
        case DefinitionKind::other:
        case DefinitionKind::impl:
            return false;
        default:
            return true;
    }
}

}  // namespace code_index
