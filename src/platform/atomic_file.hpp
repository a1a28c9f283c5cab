#pragma once

#include <string>
#include <string_view>

namespace platform {

// Replaces `path` with a file holding `data`, all at once and synced to the disk: the data goes to
// a new temporary file beside it (created exclusively, never through a link), which is then
// renamed over `path`. A link standing at `path` is replaced, not followed; links in its
// directories are followed (the user's own configuration may live behind a dotfile manager's):
// for files the repository names, use replace_file_no_follow().
//
// The new file is never more open than the one it stands for: from its first byte it has the
// permissions (and, where the platform has them, the owner) of the regular file at `like`, which
// defaults to `path` itself; without one it gets a new file's defaults. A file at `path` that
// could not be written in place (marked read-only, or not ours to write) is refused, as an
// in-place write would be. Throws OsError.
void replace_file_synced(const std::string& path, std::string_view data,
                         const std::string& like = {});

// Removes the temporary files that replace_file_synced() runs left beside `path` when they were
// killed before the rename. Those of a process that still runs are left alone. Throws OsError.
void remove_stale_temporaries(const std::string& path);

// Removes the file (or link) at `path`; a missing one is fine. Throws OsError.
void delete_file(const std::string& path);

}  // namespace platform
