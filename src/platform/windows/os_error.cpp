#include "platform/os_error.hpp"

#include <windows.h>

#include "platform/windows/wide.hpp"

namespace platform {

namespace {

// The system's own text for a Windows error code, without its final period and line break.
std::string describe(int code) {
    wchar_t* buffer = nullptr;
    const DWORD n = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    std::wstring text = n == 0 ? L"" : std::wstring(buffer, n);
    LocalFree(buffer);
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ' ||
                             text.back() == L'.')) {
        text.pop_back();
    }
    if (text.empty()) return "error " + std::to_string(code);
    return windows::narrow(text);
}

}  // namespace

OsError::OsError(const std::string& what, int code)
    : std::runtime_error(what + ": " + describe(code)), code_(code) {}

bool is_disk_full(int code) {
    return code == ERROR_DISK_FULL || code == ERROR_HANDLE_DISK_FULL;
}

bool OsError::leads_nowhere() const {
    return code_ == ERROR_FILE_NOT_FOUND || code_ == ERROR_PATH_NOT_FOUND ||
           code_ == ERROR_CANT_RESOLVE_FILENAME;
}

}  // namespace platform
