#include "platform/shell.hpp"

#include <algorithm>

#include "platform/common/sh_quote.hpp"

namespace platform {

std::string shell_quote(std::string_view word) {
    // Agents on Windows run hook commands through bash (Git Bash) or PowerShell: both take a
    // program's path with forward slashes, and to bash a backslash would be an escape.
    std::string slashed(word);
    std::replace(slashed.begin(), slashed.end(), '\\', '/');
    return sh_quote(slashed);
}

}  // namespace platform
