#include "platform/dir_list.hpp"

#include <windows.h>

#include <algorithm>

#include "platform/os_error.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

bool file_names_fold_case() {
    return true;
}

struct Directory::State {
    std::string path;
    std::wstring wide;  // the directory's path for the file API, ending in a separator
    HANDLE find = INVALID_HANDLE_VALUE;
    bool started = false, listed = false;
    WIN32_FIND_DATAW data{};
    std::string name;  // the current entry's, in UTF-8

    ~State() {
        if (find != INVALID_HANDLE_VALUE) FindClose(find);
    }
    std::wstring child(std::string_view name) const { return wide + windows::widen(name); }
};

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string joined(const std::string& directory, std::string_view name) {
    std::string out = directory;
    if (!out.empty() && out.back() != '\\' && out.back() != '/') out += '\\';
    return out.append(name);
}

void open_state(Directory::State& s, const std::string& path) {
    s.path = path;
    s.wide = windows::wide_path(path);
    if (!s.wide.empty() && s.wide.back() != L'\\' && s.wide.back() != L'/') s.wide += L'\\';
}

EntryKind kind_of(DWORD attributes) {
    // Every reparse point counts as a link: what it leads to is somewhere else.
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return EntryKind::symlink;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return EntryKind::directory;
    if (attributes & FILE_ATTRIBUTE_DEVICE) return EntryKind::other;
    return EntryKind::regular;
}

}  // namespace

Directory::Directory(const std::string& path) : state_(std::make_unique<State>()) {
    open_state(*state_, path);
    const DWORD attributes = GetFileAttributesW(state_->wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        throw OsError("cannot open directory " + path, static_cast<int>(GetLastError()));
    }
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        throw OsError("cannot open directory " + path, ERROR_DIRECTORY);
    }
}

Directory::Directory(const Directory& parent, std::string_view name)
    : state_(std::make_unique<State>()) {
    open_state(*state_, joined(parent.state_->path, name));
    const DWORD attributes = GetFileAttributesW(parent.state_->child(name).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        throw OsError("cannot open directory " + state_->path, static_cast<int>(GetLastError()));
    }
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
        throw OsError("will not follow " + state_->path, ERROR_CANT_ACCESS_FILE);
    }
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        throw OsError("cannot open directory " + state_->path, ERROR_DIRECTORY);
    }
}

Directory::~Directory() = default;

bool Directory::next(DirEntry& entry) {
    State& s = *state_;
    for (;;) {
        if (s.listed) return false;
        if (!s.started) {
            s.started = true;
            // The basic information (no short names) in large batches: the cheap way to list.
            s.find = FindFirstFileExW((s.wide + L"*").c_str(), FindExInfoBasic, &s.data,
                                      FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
            if (s.find == INVALID_HANDLE_VALUE) {
                const DWORD error = GetLastError();
                s.listed = true;
                if (error == ERROR_FILE_NOT_FOUND) return false;  // an empty drive root
                throw OsError("cannot list " + s.path, static_cast<int>(error));
            }
        } else if (!FindNextFileW(s.find, &s.data)) {
            const DWORD error = GetLastError();
            FindClose(s.find);
            s.find = INVALID_HANDLE_VALUE;
            s.listed = true;
            if (error == ERROR_NO_MORE_FILES) return false;
            throw OsError("cannot list " + s.path, static_cast<int>(error));
        }
        const wchar_t* name = s.data.cFileName;
        if (name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'))) {
            continue;
        }
        s.name = windows::narrow(name);
        entry.name = s.name;
        entry.kind = kind_of(s.data.dwFileAttributes);
        return true;
    }
}

std::optional<FileSignature> Directory::signature() {
    const State& s = *state_;
    if (s.find == INVALID_HANDLE_VALUE || kind_of(s.data.dwFileAttributes) != EntryKind::regular) {
        return std::nullopt;
    }
    const auto size = (static_cast<std::int64_t>(s.data.nFileSizeHigh) << 32) | s.data.nFileSizeLow;
    const auto ticks = (static_cast<std::int64_t>(s.data.ftLastWriteTime.dwHighDateTime) << 32) |
                       s.data.ftLastWriteTime.dwLowDateTime;
    constexpr std::int64_t kEpochTicks = 116444736000000000LL;  // 1601 to 1970 in 100 ns
    return FileSignature{size, (ticks - kEpochTicks) * 100};
}

bool Directory::contains(std::string_view name) const {
    // The attributes of a link itself: nothing is followed.
    return GetFileAttributesW(state_->child(name).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::optional<std::string> Directory::read_file(std::string_view name, std::size_t limit) const {
    const std::string path = joined(state_->path, name);
    const HANDLE file =
        CreateFileW(state_->child(name).c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                    FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
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
    if (GetFileType(file) != FILE_TYPE_DISK || !GetFileInformationByHandle(file, &info) ||
        kind_of(info.dwFileAttributes) != EntryKind::regular) {
        return std::nullopt;
    }
    std::string data;
    char buf[65536];
    while (data.size() < limit) {
        const DWORD want =
            static_cast<DWORD>(std::min<std::size_t>(sizeof buf, limit - data.size()));
        DWORD n = 0;
        if (!ReadFile(file, buf, want, &n, nullptr)) {
            throw OsError("cannot read " + path, static_cast<int>(GetLastError()));
        }
        if (n == 0) break;
        data.append(buf, n);
    }
    return data;
}

}  // namespace platform
