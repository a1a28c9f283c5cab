#include "platform/fs.hpp"

#include <windows.h>

#include <cstdio>

#include "platform/os_error.hpp"
#include "platform/random.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

bool already_there(DWORD error) {
    return error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS;
}

// Writes `content` to a new file at `path`, never through a link. False when `path` exists.
bool write_new_file(const std::string& path, std::string_view content) {
    const std::wstring wide = windows::wide_path(path);
    const HANDLE file = CreateFileW(wide.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (already_there(error)) return false;
        throw OsError("cannot create " + path, static_cast<int>(error));
    }
    DWORD error = ERROR_SUCCESS;
    while (!content.empty() && error == ERROR_SUCCESS) {
        DWORD n = 0;
        const DWORD chunk =
            content.size() > (1u << 30) ? (1u << 30) : static_cast<DWORD>(content.size());
        if (WriteFile(file, content.data(), chunk, &n, nullptr)) {
            content.remove_prefix(n);
        } else {
            error = GetLastError();
        }
    }
    if (!CloseHandle(file) && error == ERROR_SUCCESS) error = GetLastError();
    if (error != ERROR_SUCCESS) {
        DeleteFileW(wide.c_str());
        throw OsError("cannot write " + path, static_cast<int>(error));
    }
    return true;
}

}  // namespace

bool make_directory(const std::string& path) {
    if (CreateDirectoryW(windows::wide_path(path).c_str(), nullptr)) return true;
    const DWORD error = GetLastError();
    if (already_there(error)) return false;
    throw OsError("cannot create directory " + path, static_cast<int>(error));
}

bool remove_empty_directory(const std::string& path) noexcept {
    const std::wstring wide = windows::wide_path(path);
    // RemoveDirectoryW would take a junction or a directory link away, not look inside it.
    const DWORD attributes = GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY) ||
        (attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
        return false;
    }
    return RemoveDirectoryW(wide.c_str()) != 0;
}

bool create_file_no_replace(const std::string& path, std::string_view content) {
    // Anything there counts, a link whose target is missing included.
    if (GetFileAttributesW(windows::wide_path(path).c_str()) != INVALID_FILE_ATTRIBUTES) {
        return false;
    }
    char suffix[24];
    const auto n = std::snprintf(suffix, sizeof suffix, ".tmp-%016llx",
                                 static_cast<unsigned long long>(random_u64()));
    const std::string temp = path + std::string(suffix, static_cast<std::size_t>(n));
    if (!write_new_file(temp, content)) throw OsError("cannot create " + temp, ERROR_FILE_EXISTS);
    try {
        const bool linked = place_no_replace(temp, path);
        remove_file(temp);
        return linked;
    } catch (...) {
        remove_file(temp);
        throw;
    }
}

bool place_no_replace(const std::string& existing, const std::string& new_path) {
    // A rename that may not replace: of several racing creators exactly one wins, with a whole
    // file. Not a hard link as on POSIX: deleting the temporary name afterwards would make the
    // file delete-pending for a moment, and a concurrent run opening the new name would fail.
    if (MoveFileExW(windows::wide_path(existing).c_str(), windows::wide_path(new_path).c_str(),
                    0)) {
        return true;
    }
    const DWORD error = GetLastError();
    if (already_there(error)) return false;
    throw OsError("cannot create " + new_path, static_cast<int>(error));
}

void remove_file(const std::string& path) noexcept {
    DeleteFileW(windows::wide_path(path).c_str());
}

}  // namespace platform
