#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engines/index/classify.hpp"
#include "engines/index/database.hpp"
#include "engines/index/extract.hpp"

namespace code_index {

// What the index records of a file besides its symbols.
struct FileRow {
    std::string path;
    std::optional<Language> language;
    std::int64_t size = 0;
    std::int64_t mtime_ns = 0;  // -1: too recent to trust, compare the content next time
    std::uint64_t hash = 0;
    std::uint32_t lines = 0;
    FileState state = FileState::indexed;
};

// A file as the index knows it.
struct KnownFile {
    std::int64_t id = 0;
    std::int64_t size = 0;
    std::int64_t mtime_ns = 0;
    std::uint64_t hash = 0;
    FileState state = FileState::indexed;
    std::optional<Language> language;
};

// Every file the index knows, by path.
std::unordered_map<std::string, KnownFile> known_files(Database& db);
// Adds those at `path` or below it, when it is a directory.
void known_files_under(Database& db, const std::string& path,
                       std::unordered_map<std::string, KnownFile>& into);

// The ids of the names a file's references use, as the files table's `names` holds them.
std::vector<std::int64_t> unpack_ids(std::string_view bytes);

// Writes files and their symbols into an index; the caller holds the transaction.
class IndexWriter {
  public:
    explicit IndexWriter(Database& db);

    // Records the file (replacing what was there for its path) with the symbols of `extraction`,
    // when it was parsed.
    void put_file(const FileRow& row, const Extraction* extraction);
    // Only the file's size and time: its content is what the index holds.
    void touch_file(std::int64_t id, std::int64_t size, std::int64_t mtime_ns);
    void remove_file(std::int64_t id);
    void remove_file(const std::string& path);

  private:
    std::int64_t name_id(const std::string& name);
    void remove_symbols(std::int64_t file_id);
    // Removes the file; returns whether it was an indexed one.
    bool erase_file(std::int64_t id);
    bool erase_file(const std::string& path);
    // Which files are indexed changed: the digest of their paths no longer holds.
    void indexed_files_changed();

    Database& db_;
    bool digest_dropped_ = false;
    Statement insert_file_, update_stat_, select_file_, delete_file_;
    Statement select_name_, insert_name_, insert_word_;
    Statement insert_def_, insert_ref_, select_names_, delete_defs_, delete_refs_;
    std::unordered_map<std::string, std::int64_t> names_;
};

}  // namespace code_index
