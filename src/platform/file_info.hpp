#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// What a path names, without following a final symbolic link.
enum class PathKind { missing, regular, directory, symlink, other };

// Missing also covers a path through something that is not a directory. Throws OsError for any
// other failure (a permission denied on the way, for example).
PathKind path_kind(const std::string& path);

// The cheap part of a file's identity: what changes when its content is rewritten.
struct FileSignature {
    std::int64_t size = 0;
    std::int64_t mtime_ns = 0;  // modification time, nanoseconds since the Unix epoch
    friend bool operator==(const FileSignature&, const FileSignature&) = default;
};

// The signature of the regular file at `path` (links followed); nullopt when there is none, for
// whatever reason: missing, not a regular file, not inspectable.
std::optional<FileSignature> file_signature(const std::string& path);

// Feeds the content of the regular file at `path` to `sink` in chunks. Returns false, having fed
// nothing or only part, when `path` is not a regular file that can be read to its end; never
// blocks on a FIFO or a device.
bool read_file_chunks(const std::string& path,
                      const std::function<void(std::string_view chunk)>& sink);

// Whether the file's permissions let nobody write it (links followed): the user marked it
// read-only. False when it is missing.
bool is_read_only(const std::string& path);

// Whether the two paths name the same file (links followed); false when either is missing.
bool same_file(const std::string& a, const std::string& b);

// The absolute path of the running program's executable. Throws OsError.
std::string executable_path();

}  // namespace platform
