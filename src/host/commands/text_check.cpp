#include "host/commands/text_check.hpp"

#include <cstdint>
#include <cstring>

#include "support/utf8.hpp"

namespace host::commands {

std::optional<std::size_t> invalid_text_at(std::string_view text) {
    std::size_t pos = 0;
    while (pos < text.size()) {
        // Tool results are mostly ASCII and up to 30,000 characters: skip it eight bytes at a time.
        std::uint64_t word;
        if (pos + 8 <= text.size() &&
            (std::memcpy(&word, text.data() + pos, 8), (word & 0x8080808080808080ULL) == 0)) {
            pos += 8;
            continue;
        }
        const std::size_t length = support::utf8_sequence_length(text, pos, true);
        if (length == 0) return pos;
        pos += length;
    }
    return std::nullopt;
}

std::string text_error(std::string_view text) {
    const auto at = invalid_text_at(text);
    return at ? "not UTF-8 text (byte " + std::to_string(*at + 1) + ")" : "";
}

}  // namespace host::commands
