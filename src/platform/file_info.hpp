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

// file_signature() of many files, cheaper when files of one directory come close together: each
// directory is looked up once for them all rather than once per file, which is most of the cost of
// a file-status call when the path is long. Links are followed as file_signature() follows them.
class SignatureReader {
  public:
    SignatureReader() = default;
    SignatureReader(const SignatureReader&) = delete;
    SignatureReader& operator=(const SignatureReader&) = delete;
    ~SignatureReader();

    std::optional<FileSignature> read(const std::string& path);

  private:
    struct Directory {
        std::string path;
        int fd = -1;  // -1 when it could not be opened
    };
    static constexpr std::size_t kDirectories = 8;  // the most recent ones, kept open
    Directory directories_[kDirectories];
    std::size_t next_ = 0;  // the slot the next new directory takes
};

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
