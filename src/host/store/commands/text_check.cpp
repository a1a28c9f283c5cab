#include "host/store/commands/text_check.hpp"

#include "support/utf8.hpp"

namespace host::store::commands {

std::optional<std::size_t> invalid_text_at(std::string_view text) {
    for (std::size_t pos = 0; pos < text.size();) {
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

}  // namespace host::store::commands
