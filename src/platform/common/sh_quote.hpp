#pragma once

#include <string>
#include <string_view>

namespace platform {

// `word` as one word for a POSIX shell: as it is when it holds only characters no shell treats
// specially, else in single quotes.
std::string sh_quote(std::string_view word);

}  // namespace platform
