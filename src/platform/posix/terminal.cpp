#include "platform/terminal.hpp"

#include <unistd.h>

namespace platform {

bool stderr_is_terminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace platform
