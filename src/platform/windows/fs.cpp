#include "platform/fs.hpp"

#include <windows.h>

#include <algorithm>

#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Closes the handle on every path out.
struct File {
    HANDLE h;
    explicit File(HANDLE handle) : h(handle) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }
};

bool is_missing(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
           error == ERROR_INVALID_NAME || error == ERROR_INVALID_DRIVE ||
           error == ERROR_BAD_NETPATH || error == ERROR_BAD_NET_NAME ||
           error == ERROR_CANT_RESOLVE_FILENAME || error == ERROR_DIRECTORY;
}

[[noreturn]] void fail(const std::string& what, const std::string& path) {
    throw OsError(what + " " + path, static_cast<int>(GetLastError()));
}

// The attributes of what `path` names, links followed; nullopt when nothing is there.
std::optional<DWORD> attributes(const std::string& path) {
    const File file(CreateFileW(windows::wide_path(path).c_str(), 0, kShareAll, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (file.h == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (is_missing(error)) return std::nullopt;
        // Something no file handle opens (a socket's reparse point, a FIFO under Wine) is there,
        // listed in its directory, but is no regular file.
        WIN32_FIND_DATAW entry{};
        const HANDLE found = path.find_first_of("*?") == std::string::npos
                                 ? FindFirstFileW(windows::wide_path(path).c_str(), &entry)
                                 : INVALID_HANDLE_VALUE;
        if (found != INVALID_HANDLE_VALUE) {
            FindClose(found);
            return FILE_ATTRIBUTE_DEVICE;
        }
        SetLastError(error);
        fail("cannot inspect", path);
    }
    if (GetFileType(file.h) != FILE_TYPE_DISK) return FILE_ATTRIBUTE_DEVICE;
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(file.h, &info)) fail("cannot inspect", path);
    return info.dwFileAttributes;
}

bool regular(DWORD attrs) {
    return (attrs & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) == 0;
}

}  // namespace

void append_file(const std::string& path, std::string_view data) {
    // Append-only access: every write lands at the end, so concurrent runs do not interleave lines.
    const File file(CreateFileW(windows::wide_path(path).c_str(), FILE_APPEND_DATA, kShareAll,
                                nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.h == INVALID_HANDLE_VALUE) fail("cannot open", path);
    // A pipe or a device named as a log would take or block what is written to it.
    if (GetFileType(file.h) != FILE_TYPE_DISK) {
        throw OsError("will not append to " + path, ERROR_INVALID_PARAMETER);
    }
    DWORD n = 0;
    if (!WriteFile(file.h, data.data(), static_cast<DWORD>(data.size()), &n, nullptr)) {
        fail("cannot write", path);
    }
    if (n != data.size()) throw OsError("short write to " + path, ERROR_WRITE_FAULT);
}

std::optional<std::string> read_regular_file(const std::string& path, std::size_t limit) {
    const auto attrs = attributes(path);
    if (!attrs || !regular(*attrs)) return std::nullopt;
    const File file(CreateFileW(windows::wide_path(path).c_str(), GENERIC_READ, kShareAll, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.h == INVALID_HANDLE_VALUE) fail("cannot open", path);
    if (GetFileType(file.h) != FILE_TYPE_DISK) return std::nullopt;  // replaced since
    std::string data;
    char buf[65536];
    while (data.size() < limit) {
        const DWORD want =
            static_cast<DWORD>(std::min<std::size_t>(sizeof buf, limit - data.size()));
        DWORD n = 0;
        if (!ReadFile(file.h, buf, want, &n, nullptr)) fail("cannot read", path);
        if (n == 0) break;
        data.append(buf, n);
    }
    return data;
}

bool is_regular_file(const std::string& path) {
    const auto attrs = attributes(path);
    return attrs && regular(*attrs);
}

bool path_exists(const std::string& path) {
    return attributes(path).has_value();
}

void create_directories(const std::string& path) {
    const std::size_t root = split_path(path).root.size();
    DWORD refused = ERROR_DIRECTORY;
    for (std::size_t pos = root + 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '\\' && path[pos] != '/') continue;
        const std::string prefix = path.substr(0, pos);
        if (!CreateDirectoryW(windows::wide_path(prefix).c_str(), nullptr)) {
            const DWORD error = GetLastError();
            // An existing directory one may not create in answers "access denied", not "exists".
            if (error == ERROR_ACCESS_DENIED) {
                refused = error;
            } else if (error != ERROR_ALREADY_EXISTS) {
                fail("cannot create directory", prefix);
            }
        }
    }
    const auto attrs = attributes(path);
    if (!attrs || !(*attrs & FILE_ATTRIBUTE_DIRECTORY)) {
        throw OsError("cannot create directory " + path, static_cast<int>(refused));
    }
}

std::string join_path(std::string_view dir, std::string_view name) {
    std::string out(dir);
    if (!out.empty() && out.back() != '\\' && out.back() != '/') out += '\\';
    out += name;
    return out;
}

}  // namespace platform
