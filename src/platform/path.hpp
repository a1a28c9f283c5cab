#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform {

// A path taken apart lexically: its root ("/" here, a drive and separator on Windows, "" for a
// relative path) and its components, with empty and "." components dropped and ".." kept.
struct PathParts {
    std::string root;
    std::vector<std::string> parts;
};
PathParts split_path(std::string_view path);

// Whether `path` is `dir` or lies below it, compared whole component by component, so that /repo2
// is not inside /repo. Both should be canonical and in normal case form.
inline bool is_within(const PathParts& dir, const PathParts& path) {
    if (dir.root != path.root || dir.parts.size() > path.parts.size()) return false;
    for (std::size_t i = 0; i < dir.parts.size(); ++i) {
        if (dir.parts[i] != path.parts[i]) return false;
    }
    return true;
}

// The platform's normal case form for comparing paths (unchanged on POSIX systems).
std::string normal_case(std::string_view path);

// Whether the canonical `path` is `dir` or lies below it, in the platform's case form: /repo2 is
// not inside /repo, and on Windows C:\Repo\a is inside c:\repo and nothing on D: is.
inline bool is_inside(std::string_view dir, std::string_view path) {
    return is_within(split_path(normal_case(dir)), split_path(normal_case(path)));
}

// Whether `path` is absolute ("/..." here; a drive or UNC root on Windows). Cheap: no parts.
bool is_absolute_path(std::string_view path);

// The process's working directory as the system reports it. Throws OsError.
std::string current_directory();

// The absolute form of `path` (relative to the working directory) with ".", ".." and repeated
// separators resolved and symbolic links resolved in every part that exists; parts that do not
// exist stay as written. Windows takes "." and ".." away by its lexical rules before any link is
// resolved, and a link whose target is missing is an error there. Throws OsError for a link loop
// or a part that cannot be inspected, and std::invalid_argument for a path holding a NUL
// character.
std::string canonical_path(std::string_view path);

}  // namespace platform
