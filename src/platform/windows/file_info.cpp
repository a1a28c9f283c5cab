#include "platform/file_info.hpp"

#include <windows.h>

#include <optional>

#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool is_missing(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
           error == ERROR_INVALID_NAME || error == ERROR_INVALID_DRIVE ||
           error == ERROR_BAD_NETPATH || error == ERROR_BAD_NET_NAME || error == ERROR_DIRECTORY;
}

// An open handle to what `path` names, links followed; closed on the way out.
struct Opened {
    HANDLE h;
    Opened(const std::string& path, DWORD access)
        : h(CreateFileW(windows::wide_path(path).c_str(), access, kShareAll, nullptr, OPEN_EXISTING,
                        FILE_FLAG_BACKUP_SEMANTICS, nullptr)) {}
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    ~Opened() {
        if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }
    // The file's information when it is a file on a disk, not a directory or a device.
    std::optional<BY_HANDLE_FILE_INFORMATION> regular_file() const {
        BY_HANDLE_FILE_INFORMATION info{};
        if (h == INVALID_HANDLE_VALUE || GetFileType(h) != FILE_TYPE_DISK ||
            !GetFileInformationByHandle(h, &info) ||
            (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
            return std::nullopt;
        }
        return info;
    }
};

}  // namespace

PathKind path_kind(const std::string& path) {
    const std::wstring wide = windows::wide_path(path);
    WIN32_FIND_DATAW entry{};
    HANDLE found = INVALID_HANDLE_VALUE;
    // A name the listing would take as a pattern is not listed.
    const bool listable = wide.find_first_of(L"*?") == std::wstring::npos;
    // Under Wine a listing can miss a file while other processes change its directory, which
    // the attributes of the same name then contradict: such a miss is looked at again.
    for (int attempt = 0; found == INVALID_HANDLE_VALUE; ++attempt) {
        if (listable) found = FindFirstFileW(wide.c_str(), &entry);
        if (found != INVALID_HANDLE_VALUE) break;
        const DWORD attributes = GetFileAttributesW(wide.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            const DWORD error = GetLastError();
            if (is_missing(error)) return PathKind::missing;
            throw OsError("cannot inspect " + path, static_cast<int>(error));
        }
        // A root ("C:\") is listed in no directory.
        if (attributes & FILE_ATTRIBUTE_DIRECTORY) return PathKind::directory;
        if (!listable || attempt == 9) return PathKind::other;
        Sleep(1);
    }
    FindClose(found);
    const DWORD attributes = entry.dwFileAttributes;
    // A link or junction; other reparse points (a cloud file's placeholder) are what they hold.
    // Wine shows a link to a directory without its tag.
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
        (entry.dwReserved0 == 0 || IsReparseTagNameSurrogate(entry.dwReserved0))) {
        return PathKind::symlink;
    }
    const Opened file(path, FILE_READ_ATTRIBUTES);
    if (file.h == INVALID_HANDLE_VALUE) return PathKind::other;  // listed, but leads nowhere
    // Wine shows a link to a file as the file itself: a link is what resolves elsewhere than
    // its own name in its resolved directory.
    const std::size_t cut = path.find_last_of("\\/");
    const std::string parent = cut == std::string::npos ? "." : path.substr(0, cut + 1);
    const std::string own = join_path(canonical_path(parent), windows::narrow(entry.cFileName));
    if (normal_case(canonical_path(path)) != normal_case(own)) return PathKind::symlink;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return PathKind::directory;
    // What no handle opens as a file on a disk (a FIFO under Wine, a socket) is something else.
    if ((attributes & FILE_ATTRIBUTE_DEVICE) || GetFileType(file.h) != FILE_TYPE_DISK) {
        return PathKind::other;
    }
    return PathKind::regular;
}

std::optional<FileSignature> file_signature(const std::string& path) {
    const Opened file(path, FILE_READ_ATTRIBUTES);
    const auto info = file.regular_file();
    if (!info) return std::nullopt;
    const auto size = (static_cast<std::int64_t>(info->nFileSizeHigh) << 32) | info->nFileSizeLow;
    const auto ticks = (static_cast<std::int64_t>(info->ftLastWriteTime.dwHighDateTime) << 32) |
                       info->ftLastWriteTime.dwLowDateTime;
    constexpr std::int64_t kEpochTicks = 116444736000000000LL;  // 1601 to 1970 in 100 ns
    return FileSignature{size, (ticks - kEpochTicks) * 100};
}

SignatureReader::~SignatureReader() = default;

// Windows opens a file by its whole path whatever we keep open.
std::optional<FileSignature> SignatureReader::read(const std::string& path) {
    return file_signature(path);
}

bool read_file_chunks(const std::string& path,
                      const std::function<void(std::string_view chunk)>& sink) {
    const Opened file(path, GENERIC_READ);
    if (!file.regular_file()) return false;
    char buf[65536];
    for (;;) {
        DWORD n = 0;
        if (!ReadFile(file.h, buf, sizeof buf, &n, nullptr)) return false;
        if (n == 0) return true;
        sink(std::string_view(buf, n));
    }
}

bool is_read_only(const std::string& path) {
    const Opened file(path, FILE_READ_ATTRIBUTES);
    BY_HANDLE_FILE_INFORMATION info{};
    return file.h != INVALID_HANDLE_VALUE && GetFileInformationByHandle(file.h, &info) &&
           (info.dwFileAttributes & FILE_ATTRIBUTE_READONLY);
}

bool same_file(const std::string& a, const std::string& b) {
    const Opened first(a, FILE_READ_ATTRIBUTES);
    const Opened second(b, FILE_READ_ATTRIBUTES);
    BY_HANDLE_FILE_INFORMATION x{}, y{};
    if (first.h == INVALID_HANDLE_VALUE || second.h == INVALID_HANDLE_VALUE ||
        !GetFileInformationByHandle(first.h, &x) || !GetFileInformationByHandle(second.h, &y)) {
        return false;
    }
    return x.dwVolumeSerialNumber == y.dwVolumeSerialNumber &&
           x.nFileIndexHigh == y.nFileIndexHigh && x.nFileIndexLow == y.nFileIndexLow;
}

std::string executable_path() {
    std::wstring buf(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = GetModuleFileNameW(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
        if (n == 0) {
            throw OsError("cannot find this program's executable",
                          static_cast<int>(GetLastError()));
        }
        if (n < buf.size()) {
            buf.resize(n);
            if (buf.starts_with(L"\\\\?\\") && buf.size() > 6 && buf[5] == L':') buf.erase(0, 4);
            return windows::narrow(buf);
        }
        buf.resize(buf.size() * 2);
    }
}

}  // namespace platform
