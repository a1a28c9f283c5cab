#include "engines/index/outline.hpp"

#include "engines/index/classify.hpp"
#include "engines/index/kinds.hpp"
#include "engines/index/language.hpp"

namespace code_index {

std::optional<Outline> file_outline(Database& db, const std::string& path) {
    Transaction read(db, false);
    Statement file =
        db.prepare("SELECT id, language, lines, size, mtime FROM files WHERE path=?1 AND state=?2");
    file.bind(1, path).bind(2, static_cast<std::int64_t>(FileState::indexed));
    if (!file.step()) return std::nullopt;
    Outline outline;
    outline.path = path;
    const std::int64_t language = file.integer(1);
    if (language >= 0 && language < static_cast<std::int64_t>(kLanguageCount)) {
        outline.language = language_name(static_cast<Language>(language));
    }
    outline.lines = file.integer(2);
    outline.size = file.integer(3);
    outline.mtime_ns = file.integer(4);
    Statement defs = db.prepare(
        "SELECT n.name, d.kind, d.line, d.end_line FROM defs AS d JOIN names AS n ON n.id = "
        "d.name_id WHERE d.file_id=?1 AND d.parent IS NULL ORDER BY d.line");
    defs.bind(1, file.integer(0));
    while (defs.step()) {
        if (outline.top_level.size() == kOutlineEntries) {
            ++outline.more;
            continue;
        }
        outline.top_level.push_back(
            {std::string(defs.text(0)),
             std::string(kind_name(static_cast<DefinitionKind>(defs.integer(1)))), defs.integer(2),
             defs.integer(3)});
    }
    return outline;
}

std::int64_t indexed_file_count(Database& db) {
    Statement count = db.prepare("SELECT count(*) FROM files WHERE state=?1");
    count.bind(1, static_cast<std::int64_t>(FileState::indexed));
    return count.step() ? count.integer(0) : 0;
}

std::vector<std::string> indexed_files(Database& db, std::size_t offset, std::size_t limit) {
    std::vector<std::string> paths;
    Statement rows =
        db.prepare("SELECT path FROM files WHERE state=?1 ORDER BY path LIMIT ?2 OFFSET ?3");
    rows.bind(1, static_cast<std::int64_t>(FileState::indexed));
    rows.bind(2, static_cast<std::int64_t>(limit)).bind(3, static_cast<std::int64_t>(offset));
    while (rows.step()) paths.emplace_back(rows.text(0));
    return paths;
}

void record_keeper(Database& db, const KeeperState& state) {
    Transaction write(db, true);
    Statement put = db.prepare(
        "INSERT INTO meta(key, value) VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE SET "
        "value=excluded.value");
    put.bind(1, "keeper_pid").bind(2, state.pid).run();
    put.reset();
    put.bind(1, "keeper_watching").bind(2, state.watching).run();
    put.reset();
    put.bind(1, "keeper_since").bind(2, state.since_ms).run();
    write.commit();
}

std::optional<KeeperState> read_keeper(Database& db) {
    Statement rows = db.prepare(
        "SELECT key, value FROM meta WHERE key IN ('keeper_pid', 'keeper_watching', "
        "'keeper_since')");
    KeeperState state;
    bool any = false;
    while (rows.step()) {
        any = true;
        const std::string_view key = rows.text(0);
        if (key == "keeper_pid") state.pid = rows.integer(1);
        if (key == "keeper_watching") state.watching = rows.text(1);
        if (key == "keeper_since") state.since_ms = rows.integer(1);
    }
    if (!any) return std::nullopt;
    return state;
}

std::int64_t refreshed_at(Database& db) {
    Statement row = db.prepare("SELECT value FROM meta WHERE key='refreshed_at'");
    return row.step() ? row.integer(0) : 0;
}

}  // namespace code_index
