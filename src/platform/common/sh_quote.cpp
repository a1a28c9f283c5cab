#include "platform/common/sh_quote.hpp"

#include <algorithm>

namespace platform {

namespace {

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("/._-+:@%,=").find(c) != std::string_view::npos;
}

}  // namespace

std::string sh_quote(std::string_view word) {
    if (!word.empty() && std::all_of(word.begin(), word.end(), is_plain)) return std::string(word);
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
