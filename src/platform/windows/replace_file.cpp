#include <windows.h>

#include <string>
#include <vector>

#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "platform/windows/rename.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

struct Handle {
    HANDLE h;
    explicit Handle(HANDLE handle) : h(handle) {}
    Handle(Handle&& other) noexcept : h(other.h) { other.h = INVALID_HANDLE_VALUE; }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { close(); }
    void close() {
        if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
        h = INVALID_HANDLE_VALUE;
    }
};

bool is_link(const std::wstring& path, HANDLE opened) {
    BY_HANDLE_FILE_INFORMATION info{};
    const bool by_handle = GetFileInformationByHandle(opened, &info) &&
                           (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return by_handle ||
           (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT));
}

// A name for the new file that no other writer uses at the same time: our pid, and a count past
// any file a killed run with the same pid left behind. CREATE_NEW never opens what is there,
// a link included.
Handle create_temporary(const std::wstring& target, const std::string& shown,
                        std::wstring& temporary) {
    for (int attempt = 0;; ++attempt) {
        temporary = target + L".tmp-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                    std::to_wstring(attempt);
        Handle file(CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (file.h != INVALID_HANDLE_VALUE) return file;
        const DWORD error = GetLastError();
        if ((error != ERROR_FILE_EXISTS && error != ERROR_ALREADY_EXISTS) || attempt == 99) {
            throw OsError("cannot create a file beside " + shown, static_cast<int>(error));
        }
    }
}

}  // namespace

void replace_file_no_follow(std::string_view relative_path, std::string_view data) {
    const std::string shown(relative_path);
    const PathParts path = split_path(relative_path);
    if (!path.root.empty() || path.parts.empty()) {
        throw OsError("cannot replace " + shown, ERROR_INVALID_NAME);
    }

    // Each directory on the way is opened without following it and held open, without leave to
    // rename or delete it, until the file is in place: nothing can swap a link in meanwhile.
    std::vector<Handle> held;
    std::wstring prefix;
    for (std::size_t i = 0; i + 1 < path.parts.size(); ++i) {
        if (path.parts[i] == "..") throw OsError("cannot replace " + shown, ERROR_INVALID_NAME);
        prefix += windows::widen(path.parts[i]);
        Handle dir(CreateFileW(prefix.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING,
                               FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (dir.h == INVALID_HANDLE_VALUE) {
            throw OsError("cannot open the directory of " + shown,
                          static_cast<int>(GetLastError()));
        }
        if (is_link(prefix, dir.h)) {
            throw OsError("cannot open the directory of " + shown, ERROR_CANT_ACCESS_FILE);
        }
        held.push_back(std::move(dir));
        prefix += L'\\';
    }
    const std::string& name = path.parts.back();
    if (name == "..") throw OsError("cannot replace " + shown, ERROR_INVALID_NAME);
    const std::wstring target = prefix + windows::widen(name);

    // What an in-place write would have refused stays refused.
    const DWORD old = GetFileAttributesW(target.c_str());
    if (old != INVALID_FILE_ATTRIBUTES && !(old & FILE_ATTRIBUTE_REPARSE_POINT) &&
        (old & FILE_ATTRIBUTE_READONLY)) {
        throw OsError("cannot write " + shown, ERROR_ACCESS_DENIED);
    }

    std::wstring temporary;
    Handle file = create_temporary(target, shown, temporary);
    try {
        std::string_view rest = data;
        while (!rest.empty()) {
            DWORD n = 0;
            const DWORD chunk =
                rest.size() > (1u << 30) ? (1u << 30) : static_cast<DWORD>(rest.size());
            if (!WriteFile(file.h, rest.data(), chunk, &n, nullptr)) {
                throw OsError("cannot write " + shown, static_cast<int>(GetLastError()));
            }
            rest.remove_prefix(n);
        }
        file.close();
        // Renaming over a link replaces the link, not its target.
        if (const DWORD error = windows::rename_replacing(temporary, target)) {
            throw OsError("cannot replace " + shown, static_cast<int>(error));
        }
    } catch (...) {
        file.close();
        DeleteFileW(temporary.c_str());
        throw;
    }
}

}  // namespace platform
