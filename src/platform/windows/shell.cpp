#include "platform/shell.hpp"

#include <algorithm>

namespace platform {

namespace {

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("/._-+:@%,=").find(c) != std::string_view::npos;
}

}  // namespace

std::string shell_quote(std::string_view word) {
    // Agents on Windows run hook commands through bash (Git Bash) or PowerShell: both take a
    // program's path with forward slashes, and to bash a backslash would be an escape.
    std::string slashed(word);
    std::replace(slashed.begin(), slashed.end(), '\\', '/');
    if (!slashed.empty() && std::all_of(slashed.begin(), slashed.end(), is_plain)) return slashed;
    std::string out = "'";
    for (char c : slashed) {
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
