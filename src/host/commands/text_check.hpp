#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace host::commands {

// The offset of the first byte of `text` that is not UTF-8, or nullopt. A lone surrogate in its
// three-byte form counts as text: it is how the hooks pass on a JSON string that an agent cut
// inside a character, and the JSON answers write it back as its \u escape. Anything else (Latin-1
// bytes, say) would be stored and then never shown again, so it is refused on the way in.
std::optional<std::size_t> invalid_text_at(std::string_view text);

// "not UTF-8 text (byte N)" for invalid text, "" otherwise.
std::string text_error(std::string_view text);

}  // namespace host::commands
