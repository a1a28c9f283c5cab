#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace code_index {

// The languages the index parses, each with a grammar compiled into the program.
enum class Language : std::uint8_t { python, javascript, typescript, tsx, go, rust, java, c, cpp };
inline constexpr std::size_t kLanguageCount = 9;

// The language of a file by its name (its extension, or a few whole names); nullopt for a file the
// index does not parse. `path` may hold directories; only its last component counts.
std::optional<Language> language_of(std::string_view path);

// "python", "javascript", "typescript", "tsx", "go", "rust", "java", "c", "cpp": the names the
// index stores and the commands print.
std::string_view language_name(Language language);
std::optional<Language> language_named(std::string_view name);

}  // namespace code_index
