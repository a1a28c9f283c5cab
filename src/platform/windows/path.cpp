#include "platform/path.hpp"

#include <windows.h>

#include <optional>
#include <stdexcept>

#include "platform/os_error.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

template <class Char>
bool is_separator(Char c) {
    return c == '\\' || c == '/';
}

template <class Char>
bool is_letter(Char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// End of the component starting at `pos`, just past its separator when it has one.
template <class Char>
std::size_t past_component(std::basic_string_view<Char> path, std::size_t pos) {
    while (pos < path.size() && !is_separator(path[pos])) ++pos;
    return pos < path.size() ? pos + 1 : pos;
}

// Whether the path's root is a device ("\\.\pipe\", "\\?\Volume{...}\") rather than a drive or
// share.
template <class Char>
bool is_device(std::basic_string_view<Char> path) {
    if (path.size() < 4 || !is_separator(path[0]) || !is_separator(path[1]) ||
        (path[2] != '?' && path[2] != '.') || !is_separator(path[3])) {
        return false;
    }
    const auto rest = path.substr(4);
    const bool drive = rest.size() >= 2 && is_letter(rest[0]) && rest[1] == ':';
    const bool unc = rest.size() >= 4 && (rest[0] == 'U' || rest[0] == 'u') &&
                     (rest[1] == 'N' || rest[1] == 'n') && (rest[2] == 'C' || rest[2] == 'c') &&
                     is_separator(rest[3]);
    return !drive && !unc;
}

// The length of the root of `path`: "C:\", "C:" (relative to that drive's directory), "\"
// (relative to the current drive), "\\server\share\", "\\?\C:\", "\\?\UNC\server\share\" or a
// device such as "\\.\pipe\"; 0 for a relative path.
template <class Char>
std::size_t root_length(std::basic_string_view<Char> path) {
    const auto sep = [&](std::size_t i) { return i < path.size() && is_separator(path[i]); };
    const auto drive = [&](std::size_t i) {
        return i + 1 < path.size() && is_letter(path[i]) && path[i + 1] == ':';
    };
    if (sep(0) && sep(1)) {
        if (path.size() > 2 && (path[2] == '?' || path[2] == '.') && sep(3)) {
            const std::size_t pos = 4;
            if (drive(pos)) return sep(pos + 2) ? pos + 3 : pos + 2;
            if (is_device(path)) return past_component(path, pos);
            return past_component(path, past_component(path, pos + 4));  // after "UNC\"
        }
        return past_component(path, past_component(path, 2));
    }
    if (drive(0)) return sep(2) ? 3 : 2;
    return sep(0) ? 1 : 0;
}

bool is_missing(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_INVALID_DRIVE:
        case ERROR_NOT_READY:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_BAD_PATHNAME:
        case ERROR_DIRECTORY:
            return true;
        default:
            return false;
    }
}

// Whether `path` is itself a link or junction, seen without following it.
bool is_reparse_point(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

// The name of what `path` names as its directory lists it, when it is there and no link.
std::optional<std::wstring> listed_name(const std::wstring& path) {
    if (path.find_first_of(L"*?") != std::wstring::npos) return std::nullopt;  // a pattern
    WIN32_FIND_DATAW entry{};
    const HANDLE found = FindFirstFileW(path.c_str(), &entry);
    if (found == INVALID_HANDLE_VALUE) return std::nullopt;
    FindClose(found);
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) return std::nullopt;
    return std::wstring(entry.cFileName);
}

// "C:\x" for "\\?\C:\x", "\\server\share" for "\\?\UNC\server\share": the form people write.
std::wstring without_verbatim_prefix(std::wstring path) {
    if (path.starts_with(L"\\\\?\\UNC\\")) return L"\\" + path.substr(7);
    if (path.starts_with(L"\\\\?\\") && path.size() >= 6 && path[5] == L':') return path.substr(4);
    return path;
}

// The path of an open file as the system resolves it: links followed, names in their case on disk.
std::wstring final_path(HANDLE h, const std::wstring& shown) {
    std::wstring buf(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = GetFinalPathNameByHandleW(h, buf.data(), static_cast<DWORD>(buf.size()),
                                                  FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
        if (n == 0) {
            throw OsError("cannot resolve " + windows::narrow(shown),
                          static_cast<int>(GetLastError()));
        }
        if (n < buf.size()) {
            buf.resize(n);
            return without_verbatim_prefix(buf);
        }
        buf.resize(n);
    }
}

std::wstring full_path(const std::wstring& path) {
    std::wstring buf(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n =
            GetFullPathNameW(path.c_str(), static_cast<DWORD>(buf.size()), buf.data(), nullptr);
        if (n == 0) {
            throw OsError("cannot resolve " + windows::narrow(path),
                          static_cast<int>(GetLastError()));
        }
        if (n < buf.size()) {
            buf.resize(n);
            return buf;
        }
        buf.resize(n);
    }
}

}  // namespace

PathParts split_path(std::string_view path) {
    PathParts result;
    const std::size_t root = root_length(path);
    result.root = std::string(path.substr(0, root));
    std::size_t pos = root;
    while (pos < path.size()) {
        std::size_t end = pos;
        while (end < path.size() && !is_separator(path[end])) ++end;
        const std::string_view part = path.substr(pos, end - pos);
        if (!part.empty() && part != ".") result.parts.emplace_back(part);
        pos = end + 1;
    }
    return result;
}

bool is_absolute_path(std::string_view path) {
    const std::size_t root = root_length(path);
    // "\x" and "C:x" depend on the current drive or that drive's directory.
    return root > 1 && (is_separator(path[root - 1]) || is_separator(path[0]));
}

std::string current_directory() {
    std::wstring buf(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = GetCurrentDirectoryW(static_cast<DWORD>(buf.size()), buf.data());
        if (n == 0) {
            throw OsError("cannot get the working directory", static_cast<int>(GetLastError()));
        }
        if (n < buf.size()) {
            buf.resize(n);
            return windows::narrow(buf);
        }
        buf.resize(n);
    }
}

std::string canonical_path(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) {
        throw std::invalid_argument("embedded null byte in path");
    }
    // The system's lexical rules first: the current drive and each drive's own directory, "."
    // and ".." taken away, separators unified, trailing dots and blanks of a name dropped.
    std::wstring head = full_path(windows::widen(path));
    // Opening a device could talk to it (a pipe's server sees a client); it is no file anyway.
    if (is_device(std::wstring_view(head))) return windows::narrow(head);
    const std::size_t root = root_length(std::wstring_view(head));
    // The longest part that exists is resolved by the system; the parts after it stay as written.
    std::wstring tail;
    for (;;) {
        while (head.size() > root && (head.back() == L'\\' || head.back() == L'/')) head.pop_back();
        const std::wstring api_path = windows::wide_path(windows::narrow(head));
        const HANDLE h =
            CreateFileW(api_path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        if (h != INVALID_HANDLE_VALUE) {
            std::wstring resolved;
            try {
                resolved = final_path(h, head);
            } catch (...) {
                CloseHandle(h);
                throw;
            }
            CloseHandle(h);
            head = std::move(resolved);
            break;
        }
        const DWORD error = GetLastError();
        std::wstring name;  // the last part as written, or as listed when it is there
        if (!is_missing(error)) {
            // Listed in its directory but not to be opened (a FIFO under Wine, a socket): no
            // link to follow, so the parent is resolved and the name taken as listed.
            const auto listed = listed_name(api_path);
            if (!listed) {
                throw OsError("cannot inspect " + windows::narrow(head), static_cast<int>(error));
            }
            name = *listed;
        }
        // A link whose target is missing could lead anywhere: refuse rather than guess.
        if (is_reparse_point(api_path)) {
            throw OsError("cannot resolve " + windows::narrow(head), ERROR_CANT_RESOLVE_FILENAME);
        }
        if (head.size() <= root) break;  // a drive or share that is not there
        std::size_t cut = head.size();
        while (cut > root && head[cut - 1] != L'\\' && head[cut - 1] != L'/') --cut;
        if (name.empty()) name = head.substr(cut);
        tail = tail.empty() ? name : name + L"\\" + tail;
        head.resize(cut);
    }
    if (!tail.empty()) {
        if (head.back() != L'\\') head += L'\\';
        head += tail;
    }
    return windows::narrow(head);
}

std::string normal_case(std::string_view path) {
    std::wstring wide = windows::widen(path);
    if (!wide.empty()) {
        // Lower case by the invariant rules, as the file system's comparisons ignore the locale.
        std::wstring lower(wide.size(), L'\0');
        const int n = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, wide.data(),
                                    static_cast<int>(wide.size()), lower.data(),
                                    static_cast<int>(lower.size()), nullptr, nullptr, 0);
        if (n > 0) wide.assign(lower.data(), static_cast<std::size_t>(n));
    }
    for (auto& c : wide) {
        if (c == L'/') c = L'\\';
    }
    return windows::narrow(wide);
}

}  // namespace platform
