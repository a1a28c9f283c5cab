#include "platform/shell.hpp"

#include "platform/common/sh_quote.hpp"

namespace platform {

std::string shell_quote(std::string_view word) {
    return sh_quote(word);
}

}  // namespace platform
