#include "platform/terminal.hpp"

#include <windows.h>

namespace platform {

bool stderr_is_terminal() {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

}  // namespace platform
