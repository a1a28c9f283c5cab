#pragma once

#include <string>
#include <string_view>

namespace platform {

// Replaces `path` with a file holding `data`, all at once: the data goes to a new temporary file
// beside it (created exclusively, never through a link), which is then renamed over `path`. A
// link standing at `path` is replaced, not followed. Throws OsError.
void replace_file(const std::string& path, std::string_view data);

// Removes the file (or link) at `path`; a missing one is fine. Throws OsError.
void delete_file(const std::string& path);

}  // namespace platform
