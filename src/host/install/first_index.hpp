#pragma once

#include <string>

namespace host::install {

// Builds the code index of the repository `repo`, or brings it up to date, with a progress bar
// on a terminal. Returns the report's line; a failure is a warning on standard error (and ""),
// since the hooks and tools work without an index and nothing installed is undone for it.
std::string build_first_index(const std::string& repo);

// What --dry-run says of the index.
std::string first_index_dry_run_text();

// The report's line on an index that is not built now, or "" when there is nothing to say:
// with --no-index, for the user scope (each repository has its own), or after an uninstall,
// which leaves an index that is there.
std::string index_left_alone_line(const std::string& repo, bool user_scope, bool uninstall);

}  // namespace host::install
