#include "platform/atomic_file.hpp"

#include <windows.h>

#include <string>

#include "platform/common/temporary_name.hpp"
#include "platform/os_error.hpp"
#include "platform/windows/rename.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

bool regular_file_at(const std::wstring& path, DWORD& attributes) {
    attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES &&
           (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

// The access rules of the file at `path`, for a new file to have from its creation; empty when
// they cannot be read, and the new file then takes its folder's.
std::string access_rules(const std::wstring& path) {
    constexpr SECURITY_INFORMATION kWhat = DACL_SECURITY_INFORMATION;
    DWORD size = 0;
    GetFileSecurityW(path.c_str(), kWhat, nullptr, 0, &size);
    std::string descriptor(size, '\0');
    if (size == 0 || !GetFileSecurityW(path.c_str(), kWhat, descriptor.data(), size, &size)) {
        return {};
    }
    return descriptor;
}

bool process_is_gone(DWORD pid) {
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
    if (process == nullptr) return GetLastError() == ERROR_INVALID_PARAMETER;
    const bool ended = WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
    CloseHandle(process);
    return ended;
}

}  // namespace

void replace_file_synced(const std::string& path, std::string_view data, const std::string& like) {
    const std::wstring target = windows::wide_path(path);
    DWORD old = 0;
    const bool replacing = regular_file_at(target, old);
    // A file marked read-only is one the user means to keep as it is.
    if (replacing && (old & FILE_ATTRIBUTE_READONLY)) {
        throw OsError("cannot write " + path, ERROR_ACCESS_DENIED);
    }
    const std::wstring source = like.empty() ? target : windows::wide_path(like);
    DWORD source_attributes = 0;
    std::string rules;
    if (regular_file_at(source, source_attributes)) rules = access_rules(source);
    SECURITY_ATTRIBUTES security{sizeof security, rules.empty() ? nullptr : rules.data(), FALSE};

    std::wstring temp;
    HANDLE file = INVALID_HANDLE_VALUE;
    // A new name beside the target; CREATE_NEW never opens what is there, a link included.
    for (int attempt = 0; file == INVALID_HANDLE_VALUE; ++attempt) {
        temp = windows::wide_path(temporary_name::make(
            path, GetCurrentProcessId(), static_cast<unsigned long>(GetTickCount64()), attempt));
        file = CreateFileW(temp.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW,
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

void remove_stale_temporaries(const std::string& path) {
    const std::wstring target = windows::wide_path(path);
    const std::size_t slash = target.find_last_of(L"\\/");
    const std::wstring dir = slash == std::wstring::npos ? L"" : target.substr(0, slash + 1);
    const std::string prefix =
        windows::narrow(target.substr(dir.size())) + std::string(temporary_name::kInfix);
    WIN32_FIND_DATAW entry{};
    const HANDLE found = FindFirstFileW(
        (target + windows::widen(std::string(temporary_name::kInfix)) + L"*").c_str(), &entry);
    if (found == INVALID_HANDLE_VALUE) return;
    do {
        const std::string name = windows::narrow(entry.cFileName);
        if (!name.starts_with(prefix) ||
            (entry.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT))) {
            continue;
        }
        const long pid = temporary_name::pid_of(std::string_view(name).substr(prefix.size()));
        // Only a run that is gone cannot be writing it any more.
        if (pid > 0 && static_cast<DWORD>(pid) != GetCurrentProcessId() &&
            process_is_gone(static_cast<DWORD>(pid))) {
            DeleteFileW((dir + entry.cFileName).c_str());
        }
    } while (FindNextFileW(found, &entry));
    FindClose(found);
}

void delete_file(const std::string& path) {
    if (DeleteFileW(windows::wide_path(path).c_str())) return;
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
        throw OsError("cannot remove " + path, static_cast<int>(error));
    }
}

}  // namespace platform
