#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace code_index {

// The index stores kinds as small numbers. The numbers are part of the file format: a kind keeps
// its number for as long as the schema version stays, and new kinds are added at the end.

// What a definition is. Every kind a query file can yield is here; the extractor maps anything
// else to `other`.
enum class DefinitionKind : std::uint8_t {
    other,
    function,
    method,
    class_,
    interface,
    struct_,
    enum_,
    union_,
    type,
    trait,
    module,
    namespace_,
    constant,
    variable,
    field,
    macro,
    impl,
};

enum class ReferenceKind : std::uint8_t { other, call, type, import, inherit };

std::string_view kind_name(DefinitionKind kind);
std::string_view kind_name(ReferenceKind kind);
DefinitionKind definition_kind(std::string_view name);  // `other` for an unknown name
ReferenceKind reference_kind(std::string_view name);    // likewise
// nullopt for a name that is no kind: for checking what a user asks for.
std::optional<DefinitionKind> known_definition_kind(std::string_view name);

// Whether a definition of this kind is something a person looks for by name (a function or a
// type) rather than a detail (a variable, a field): it ranks first among equal matches.
bool is_primary(DefinitionKind kind);

}  // namespace code_index
