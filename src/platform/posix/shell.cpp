#include "platform/shell.hpp"

namespace platform {

namespace {

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("/._-+:@%,=").find(c) != std::string_view::npos;
}

}  // namespace

std::string shell_quote(std::string_view word) {
    bool plain = !word.empty();
    for (char c : word) plain = plain && is_plain(c);
    if (plain) return std::string(word);
    std::string out = "'";
    for (char c : word) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    out += '\'';
    return out;
}

}  // namespace platform
