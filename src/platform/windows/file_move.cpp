#include "platform/fs.hpp"

#include <windows.h>

#include "platform/os_error.hpp"
#include "platform/windows/rename.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

void rename_over(const std::string& from, const std::string& to) {
    const DWORD error = windows::rename_replacing(windows::wide_path(from), windows::wide_path(to));
    if (error != 0) throw OsError("cannot replace " + to, static_cast<int>(error));
}

std::optional<std::string> read_plain_file(const std::string& path, std::size_t limit) {
    // FILE_FLAG_OPEN_REPARSE_POINT opens a link itself, which is then no plain file.
    const HANDLE file = CreateFileW(windows::wide_path(path).c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return std::nullopt;
        throw OsError("cannot open " + path, static_cast<int>(error));
    }
    struct Closer {
        HANDLE h;
        ~Closer() { CloseHandle(h); }
    } closer{file};
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(file, &info)) {
        throw OsError("cannot inspect " + path, static_cast<int>(GetLastError()));
    }
    if ((info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0 ||
        GetFileType(file) != FILE_TYPE_DISK) {
        return std::nullopt;
    }
    const unsigned long long size =
        (static_cast<unsigned long long>(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
    if (size > limit) return std::nullopt;
    std::string data;
    char buffer[65536];
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(file, buffer, sizeof buffer, &got, nullptr)) {
            throw OsError("cannot read " + path, static_cast<int>(GetLastError()));
        }
        if (got == 0) break;
        data.append(buffer, got);
        if (data.size() > limit) return std::nullopt;
    }
    return data;
}

}  // namespace platform
