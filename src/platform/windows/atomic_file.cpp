#include "platform/atomic_file.hpp"

#include <windows.h>

#include <string>

#include "platform/os_error.hpp"
#include "platform/windows/rename.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

void replace_file(const std::string& path, std::string_view data) {
    const std::wstring target = windows::wide_path(path);
    std::wstring temp;
    HANDLE file = INVALID_HANDLE_VALUE;
    // A new name beside the target; CREATE_NEW never opens what is there, a link included.
    for (int attempt = 0; file == INVALID_HANDLE_VALUE; ++attempt) {
        temp = target + L".tmp." + std::to_wstring(GetCurrentProcessId()) + L"." +
               std::to_wstring(GetTickCount64()) + L"." + std::to_wstring(attempt);
        file = CreateFileW(temp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        const DWORD error = GetLastError();
        if (file == INVALID_HANDLE_VALUE &&
            ((error != ERROR_FILE_EXISTS && error != ERROR_ALREADY_EXISTS) || attempt == 100)) {
            throw OsError("cannot create " + windows::narrow(temp), static_cast<int>(error));
        }
    }
    DWORD error = ERROR_SUCCESS;
    while (!data.empty() && error == ERROR_SUCCESS) {
        DWORD n = 0;
        const DWORD chunk = data.size() > (1u << 30) ? (1u << 30) : static_cast<DWORD>(data.size());
        if (WriteFile(file, data.data(), chunk, &n, nullptr)) {
            data.remove_prefix(n);
        } else {
            error = GetLastError();
        }
    }
    if (error == ERROR_SUCCESS && !FlushFileBuffers(file)) error = GetLastError();
    if (!CloseHandle(file) && error == ERROR_SUCCESS) error = GetLastError();
    if (error != ERROR_SUCCESS) {
        DeleteFileW(temp.c_str());
        throw OsError("cannot write " + windows::narrow(temp), static_cast<int>(error));
    }
    if (const DWORD failed = windows::rename_replacing(temp, target)) {
        DeleteFileW(temp.c_str());
        throw OsError("cannot replace " + path, static_cast<int>(failed));
    }
}

void delete_file(const std::string& path) {
    if (DeleteFileW(windows::wide_path(path).c_str())) return;
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
        throw OsError("cannot remove " + path, static_cast<int>(error));
    }
}

}  // namespace platform
