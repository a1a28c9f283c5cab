#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file_info.hpp"

namespace platform {

// What a directory entry is, as listed: never what a link leads to. A Windows reparse point (a
// link, a junction, anything that resolves elsewhere) counts as a link.
enum class EntryKind : std::uint8_t { regular, directory, symlink, other };

struct DirEntry {
    std::string_view name;  // valid until the next call of next()
    EntryKind kind = EntryKind::other;
};

// Whether file names on this platform compare without regard to case (Windows), as git's
// core.ignoreCase defaults there.
bool file_names_fold_case();

// One directory, opened for listing its entries and for looking at them without following any
// link. Opening costs one system call; the listing itself starts with the first next().
class Directory {
  public:
    // The directory at `path`; a link standing there is followed, since the caller named it.
    // Throws OsError.
    explicit Directory(const std::string& path);
    // The entry `name` of `parent`, which must be a directory itself and not a link to one.
    // Throws OsError.
    Directory(const Directory& parent, std::string_view name);
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    // The next entry, "." and ".." left out; false at the end. Throws OsError when the listing
    // fails before its end.
    bool next(DirEntry& entry);

    // The size and modification time of the entry next() returned last, when it is still a
    // regular file.
    std::optional<FileSignature> signature();

    // Whether anything (a link included) is named `name` here.
    bool contains(std::string_view name) const;

    // At most `limit` bytes of the regular file `name` here; nullopt when there is none, or a
    // link or anything else stands there. Throws OsError when it is there but cannot be read.
    std::optional<std::string> read_file(std::string_view name, std::size_t limit) const;

    struct State;

  private:
    std::unique_ptr<State> state_;
};

}  // namespace platform
