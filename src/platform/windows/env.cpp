#include "platform/env.hpp"

#include <windows.h>

#include "platform/windows/wide.hpp"

namespace platform {

std::optional<std::string> get_env(const char* name) {
    const std::wstring wide_name = windows::widen(name);
    std::wstring value(256, L'\0');
    for (;;) {
        // 0 is returned both for a missing variable and for an empty one.
        SetLastError(ERROR_SUCCESS);
        const DWORD n = GetEnvironmentVariableW(wide_name.c_str(), value.data(),
                                                static_cast<DWORD>(value.size()));
        if (n == 0) {
            if (GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
            return std::string();
        }
        if (n < value.size()) {
            value.resize(n);
            return windows::narrow(value);
        }
        value.resize(n);  // n counts the terminating NUL when the buffer was too small
    }
}

}  // namespace platform
