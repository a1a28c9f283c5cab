#include "engines/index/writer.hpp"

#include <algorithm>
#include <vector>

#include "engines/index/kinds.hpp"
#include "engines/index/outline.hpp"
#include "engines/index/words.hpp"

namespace code_index {

namespace {

// The distinct names a file's references use, as LEB128 numbers in ascending order.
std::string pack_ids(std::vector<std::int64_t> ids) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    std::string out;
    for (std::int64_t id : ids) {
        auto v = static_cast<std::uint64_t>(id);
        do {
            unsigned char byte = v & 0x7F;
            v >>= 7;
            if (v != 0) byte |= 0x80;
            out += static_cast<char>(byte);
        } while (v != 0);
    }
    return out;
}

}  // namespace

std::vector<std::int64_t> unpack_ids(std::string_view bytes) {
    std::vector<std::int64_t> ids;
    std::uint64_t v = 0;
    int shift = 0;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (shift < 64) v |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
        shift += 7;
        if ((byte & 0x80) == 0) {
            ids.push_back(static_cast<std::int64_t>(v));
            v = 0;
            shift = 0;
        }
    }
    return ids;
}

namespace {

void read_known(Statement& rows, std::unordered_map<std::string, KnownFile>& files) {
    while (rows.step()) {
        KnownFile file{rows.integer(0),
                       rows.integer(2),
                       rows.integer(3),
                       static_cast<std::uint64_t>(rows.integer(4)),
                       static_cast<FileState>(rows.integer(5)),
                       std::nullopt};
        if (!rows.is_null(6) && rows.integer(6) >= 0 &&
            rows.integer(6) < static_cast<std::int64_t>(kLanguageCount)) {
            file.language = static_cast<Language>(rows.integer(6));
        }
        files.emplace(std::string(rows.text(1)), file);
    }
}

constexpr const char* kKnownColumns =
    "SELECT id, path, size, mtime, hash, state, language FROM files";

}  // namespace

std::unordered_map<std::string, KnownFile> known_files(Database& db) {
    std::unordered_map<std::string, KnownFile> files;
    Statement rows = db.prepare(kKnownColumns);
    read_known(rows, files);
    return files;
}

void known_files_under(Database& db, const std::string& path,
                       std::unordered_map<std::string, KnownFile>& into) {
    // '0' follows '/': the range holds exactly the paths below the directory.
    Statement rows =
        db.prepare(std::string(kKnownColumns) + " WHERE path=?1 OR (path>?2 AND path<?3)");
    rows.bind(1, path).bind(2, path + "/").bind(3, path + "0");
    read_known(rows, into);
}

IndexWriter::IndexWriter(Database& db)
    : db_(db),
      insert_file_(
          db.prepare("INSERT INTO files(path, language, size, mtime, hash, lines, state, names) "
                     "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8) RETURNING id")),
      update_stat_(db.prepare("UPDATE files SET size=?2, mtime=?3 WHERE id=?1")),
      select_file_(db.prepare("SELECT id FROM files WHERE path=?1")),
      delete_file_(db.prepare("DELETE FROM files WHERE id=?1 RETURNING state")),
      select_name_(db.prepare("SELECT id FROM names WHERE name=?1")),
      insert_name_(db.prepare("INSERT INTO names(name) VALUES(?1) RETURNING id")),
      insert_word_(db.prepare("INSERT OR IGNORE INTO name_words(word, name_id) VALUES(?1, ?2)")),
      insert_def_(db.prepare(
          "INSERT INTO defs(file_id, name_id, kind, line, end_line, parent, scope, signature) "
          "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8) RETURNING id")),
      insert_ref_(
          db.prepare("INSERT OR IGNORE INTO refs(name_id, file_id, line, col, kind, in_def) "
                     "VALUES(?1, ?2, ?3, ?4, ?5, ?6)")),
      select_names_(db.prepare("SELECT names FROM files WHERE id=?1")),
      delete_defs_(db.prepare("DELETE FROM defs WHERE file_id=?1")),
      delete_refs_(db.prepare("DELETE FROM refs WHERE name_id=?1 AND file_id=?2")) {}

void IndexWriter::indexed_files_changed() {
    if (digest_dropped_) return;
    drop_indexed_digest(db_);
    digest_dropped_ = true;
}

std::int64_t IndexWriter::name_id(const std::string& name) {
    if (const auto found = names_.find(name); found != names_.end()) return found->second;
    std::int64_t id = 0;
    select_name_.bind(1, name);
    if (select_name_.step()) {
        id = select_name_.integer(0);
    } else {
        insert_name_.bind(1, name);
        if (!insert_name_.step()) db_.fail();
        id = insert_name_.integer(0);
        insert_name_.reset();
        for (const std::string& word : name_words(name)) {
            insert_word_.bind(1, word).bind(2, id).run();
            insert_word_.reset();
        }
    }
    select_name_.reset();
    names_.emplace(name, id);
    return id;
}

void IndexWriter::remove_symbols(std::int64_t file_id) {
    select_names_.bind(1, file_id);
    std::vector<std::int64_t> ids;
    if (select_names_.step()) ids = unpack_ids(select_names_.blob(0));
    select_names_.reset();
    for (std::int64_t id : ids) {
        delete_refs_.bind(1, id).bind(2, file_id).run();
        delete_refs_.reset();
    }
    delete_defs_.bind(1, file_id).run();
    delete_defs_.reset();
}

bool IndexWriter::erase_file(std::int64_t id) {
    remove_symbols(id);
    delete_file_.bind(1, id);
    // The row is gone at the first step, which returns its state.
    const bool indexed =
        delete_file_.step() && delete_file_.integer(0) == static_cast<int>(FileState::indexed);
    delete_file_.reset();
    return indexed;
}

bool IndexWriter::erase_file(const std::string& path) {
    select_file_.bind(1, path);
    const std::optional<std::int64_t> id =
        select_file_.step() ? std::optional(select_file_.integer(0)) : std::nullopt;
    select_file_.reset();
    return id && erase_file(*id);
}

void IndexWriter::remove_file(std::int64_t id) {
    if (erase_file(id)) indexed_files_changed();
}

void IndexWriter::remove_file(const std::string& path) {
    if (erase_file(path)) indexed_files_changed();
}

void IndexWriter::touch_file(std::int64_t id, std::int64_t size, std::int64_t mtime_ns) {
    update_stat_.bind(1, id).bind(2, size).bind(3, mtime_ns).run();
    update_stat_.reset();
}

void IndexWriter::put_file(const FileRow& row, const Extraction* extraction) {
    if (erase_file(row.path) != (row.state == FileState::indexed)) indexed_files_changed();
    std::vector<std::int64_t> ref_names;
    if (extraction != nullptr) {
        ref_names.reserve(extraction->references.size());
        for (const Reference& ref : extraction->references) ref_names.push_back(name_id(ref.name));
    }
    insert_file_.bind(1, row.path).bind(3, row.size);
    if (row.language) {
        insert_file_.bind(2, static_cast<std::int64_t>(*row.language));
    } else {
        insert_file_.bind_null(2);
    }
    insert_file_.bind(4, row.mtime_ns).bind(5, static_cast<std::int64_t>(row.hash));
    insert_file_.bind(6, static_cast<std::int64_t>(row.lines));
    insert_file_.bind(7, static_cast<std::int64_t>(row.state));
    insert_file_.bind_blob(8, pack_ids(ref_names));
    if (!insert_file_.step()) db_.fail();
    const std::int64_t file_id = insert_file_.integer(0);
    insert_file_.reset();
    if (extraction == nullptr) return;

    std::vector<std::int64_t> def_ids;
    def_ids.reserve(extraction->definitions.size());
    for (const Definition& def : extraction->definitions) {
        insert_def_.bind(1, file_id).bind(2, name_id(def.name));
        insert_def_.bind(3, static_cast<std::int64_t>(definition_kind(def.kind)));
        insert_def_.bind(4, static_cast<std::int64_t>(def.line));
        insert_def_.bind(5, static_cast<std::int64_t>(def.end_line));
        if (def.parent >= 0 && static_cast<std::size_t>(def.parent) < def_ids.size()) {
            insert_def_.bind(6, def_ids[static_cast<std::size_t>(def.parent)]);
        } else {
            insert_def_.bind_null(6);
        }
        insert_def_.bind(7, def.scope).bind(8, def.signature);
        if (!insert_def_.step()) db_.fail();
        def_ids.push_back(insert_def_.integer(0));
        insert_def_.reset();
    }
    for (std::size_t i = 0; i < extraction->references.size(); ++i) {
        const Reference& ref = extraction->references[i];
        insert_ref_.bind(1, ref_names[i]).bind(2, file_id);
        insert_ref_.bind(3, static_cast<std::int64_t>(ref.line));
        insert_ref_.bind(4, static_cast<std::int64_t>(ref.column));
        insert_ref_.bind(5, static_cast<std::int64_t>(reference_kind(ref.kind)));
        if (ref.in >= 0 && static_cast<std::size_t>(ref.in) < def_ids.size()) {
            insert_ref_.bind(6, def_ids[static_cast<std::size_t>(ref.in)]);
        } else {
            insert_ref_.bind_null(6);
        }
        insert_ref_.run();
        insert_ref_.reset();
    }
}

}  // namespace code_index
