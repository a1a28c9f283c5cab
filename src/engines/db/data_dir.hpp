#pragma once

#include <string>
#include <string_view>

namespace db {

// The repository's data directory, relative to its root, where both databases live.
inline constexpr const char* kDataDirectory = "memory/codebase-index";

// Where a database of the data directory is.
struct DatabaseLocation {
    std::string root;     // the repository: the canonical working directory
    std::string dir;      // canonical memory/codebase-index, when it exists
    std::string db_path;  // canonical path of the database file, when the directory exists
    bool exists = false;  // whether the database file is there
};

// How the file of a database may stand in the data directory.
enum class FileLinks {
    inside,  // a link that leads to a regular file inside the repository is followed
    never,   // a link is refused: the file is ours to replace (a derived database)
};

// Finds the database `file_name` under `root` without ever leaving the repository: memory and
// memory/codebase-index may be links only to places inside it, SQLite's companion files (-wal,
// -shm) must be missing or regular files, and no rollback journal may lie beside it (both
// databases run in WAL mode: a journal was left by another program, and SQLite would play it
// back into the database at the first write). With `create`, missing directories are made (never
// through a link) and a .gitignore holding "*" is put beside a database about to be created, so
// that nothing of the directory lands in the user's commits. `what` names the database in errors
// ("the store"). Throws DatabaseError.
DatabaseLocation locate_database(const std::string& root, std::string_view file_name,
                                 FileLinks links, std::string_view what, bool create);

// A name for a new database built beside `db_path` before it takes its place: one that
// remove_leftovers() knows, and no concurrent run picks too.
std::string new_database_path(const std::string& db_path);

// Removes from `dir` what runs killed while creating `file_name` left: the new database under
// its temporary name with its companions, and a half-placed .gitignore. Our names only, regular
// files only (a link there is neither removed nor followed), and only once no live run can still
// own them. Never fails.
void remove_leftovers(const std::string& dir, std::string_view file_name) noexcept;

}  // namespace db
