#include "engines/index/language.hpp"

#include <array>
#include <utility>

namespace code_index {

namespace {

constexpr std::array<std::string_view, kLanguageCount> kNames = {
    "python", "javascript", "typescript", "tsx", "go", "rust", "java", "c", "cpp"};

// As other code tools map them: a header is C++ too, since the C++ grammar also reads C.
constexpr std::pair<std::string_view, Language> kExtensions[] = {
    {"py", Language::python},      {"pyi", Language::python},     {"pyw", Language::python},
    {"js", Language::javascript},  {"mjs", Language::javascript}, {"cjs", Language::javascript},
    {"jsx", Language::javascript}, {"ts", Language::typescript},  {"mts", Language::typescript},
    {"cts", Language::typescript}, {"tsx", Language::tsx},        {"go", Language::go},
    {"rs", Language::rust},        {"java", Language::java},      {"c", Language::c},
    {"h", Language::cpp},          {"cc", Language::cpp},         {"cpp", Language::cpp},
    {"cxx", Language::cpp},        {"c++", Language::cpp},        {"cp", Language::cpp},
    {"hh", Language::cpp},         {"hpp", Language::cpp},        {"hxx", Language::cpp},
    {"h++", Language::cpp},        {"inl", Language::cpp},        {"ipp", Language::cpp},
    {"tpp", Language::cpp},        {"C", Language::cpp},          {"H", Language::cpp},
};

}  // namespace

std::optional<Language> language_of(std::string_view path) {
    const std::size_t slash = path.find_last_of("/\\");
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    const std::size_t dot = name.rfind('.');
    // A leading dot names a hidden file, not an extension.
    if (dot == std::string_view::npos || dot == 0) return std::nullopt;
    const std::string_view extension = name.substr(dot + 1);
    for (const auto& [known, language] : kExtensions) {
        if (known == extension) return language;
    }
    // Upper-case spellings of the others (FOO.PY), but not .C and .H, which are C++ above.
    if (extension.size() > 4) return std::nullopt;
    char lower[4];
    for (std::size_t i = 0; i < extension.size(); ++i) {
        const char c = extension[i];
        lower[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    }
    const std::string_view folded(lower, extension.size());
    if (folded == extension) return std::nullopt;
    for (const auto& [known, language] : kExtensions) {
        if (known == folded) return language;
    }
    return std::nullopt;
}

std::string_view language_name(Language language) {
    return kNames[static_cast<std::size_t>(language)];
}

std::optional<Language> language_named(std::string_view name) {
    for (std::size_t i = 0; i < kNames.size(); ++i) {
        if (kNames[i] == name) return static_cast<Language>(i);
    }
    return std::nullopt;
}

}  // namespace code_index
