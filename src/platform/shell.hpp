#pragma once

#include <string>
#include <string_view>

namespace platform {

// `word` as one word of a command line for the shell that agents run hook commands with,
// quoted only when it needs to be.
std::string shell_quote(std::string_view word);

}  // namespace platform
