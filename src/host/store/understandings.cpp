#include <algorithm>

#include "host/store/freshness.hpp"
#include "host/store/store.hpp"

namespace host::store {

namespace {

constexpr std::int64_t kKeyPoint = 0;
constexpr std::int64_t kGotcha = 1;

std::optional<FileRecord> record_of(const Statement& row, int first_column) {
    if (row.is_null(first_column)) return std::nullopt;
    return FileRecord{row.integer(first_column), row.integer(first_column + 1),
                      static_cast<std::uint64_t>(row.integer(first_column + 2))};
}

int importance_rank(std::string_view importance) {
    if (importance == "high") return 0;
    if (importance == "medium") return 1;
    if (importance == "low") return 2;
    return 3;
}

// An entry competing for a place in the stats list. Only the winners' texts are copied out.
struct Candidate {
    bool fresh;
    int rank;
    std::int64_t stored_at;
    std::int64_t id;
    StatsEntry entry;
};

// Stale first, then more important, then more recent (then the later stored, for a stable order).
bool listed_before(const Candidate& a, const Candidate& b) {
    if (a.fresh != b.fresh) return !a.fresh;
    if (a.rank != b.rank) return a.rank < b.rank;
    if (a.stored_at != b.stored_at) return a.stored_at > b.stored_at;
    return a.id > b.id;
}

}  // namespace

void Store::store_understanding(const Understanding& u) {
    Database& database = db();
    // Read the file before taking the write lock, which other runs may be waiting for.
    const auto file = capture_file(location_.root, u.target);
    const std::int64_t now = now_ms();
    Transaction transaction(database, true);
    prune_if_due(now);
    Statement upsert = database.prepare(
        "INSERT INTO understandings(target, scope, importance, purpose, auto_generated, "
        "stored_at, file_size, file_mtime_ns, file_hash) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, "
        "?9) "
        "ON CONFLICT(target, scope) DO UPDATE SET importance=excluded.importance, "
        "purpose=excluded.purpose, auto_generated=excluded.auto_generated, "
        "stored_at=excluded.stored_at, file_size=excluded.file_size, "
        "file_mtime_ns=excluded.file_mtime_ns, file_hash=excluded.file_hash RETURNING id");
    upsert.bind(1, u.target).bind(2, u.scope).bind(3, u.importance).bind(4, u.purpose);
    upsert.bind(5, std::int64_t{u.auto_generated}).bind(6, now);
    if (file) {
        upsert.bind(7, file->size).bind(8, file->mtime_ns);
        upsert.bind(9, static_cast<std::int64_t>(file->hash));
    }
    if (!upsert.step()) database.fail();
    const std::int64_t id = upsert.integer(0);
    upsert.run();

    database.prepare("DELETE FROM understanding_notes WHERE understanding_id=?1").bind(1, id).run();
    Statement note = database.prepare(
        "INSERT INTO understanding_notes(understanding_id, kind, position, text) "
        "VALUES(?1, ?2, ?3, ?4)");
    for (const auto& [kind, texts] : {std::pair{kKeyPoint, &u.key_points}, {kGotcha, &u.gotchas}}) {
        for (std::size_t i = 0; i < texts->size(); ++i) {
            note.bind(1, id).bind(2, kind).bind(3, static_cast<std::int64_t>(i));
            note.bind(4, (*texts)[i]);
            note.run();
            note.reset();
        }
    }
    transaction.commit();
}

std::optional<RecalledUnderstanding> Store::recall_understanding(
    std::string_view target, const std::optional<std::string>& scope) {
    if (!db_) return std::nullopt;
    Transaction transaction(*db_, false);
    Statement row = db_->prepare(
        "SELECT id, scope, importance, purpose, auto_generated, stored_at, file_size, "
        "file_mtime_ns, file_hash FROM understandings WHERE target=?1 AND (?2 IS NULL OR scope=?2) "
        "ORDER BY stored_at DESC, id DESC LIMIT 1");
    row.bind(1, target).bind(2, scope);
    if (!row.step()) return std::nullopt;

    RecalledUnderstanding result;
    Understanding& u = result.understanding;
    u.target = target;
    u.scope = row.text(1);
    u.importance = row.text(2);
    u.purpose = row.optional_text(3);
    u.auto_generated = row.integer(4) != 0;
    u.stored_at_ms = row.integer(5);
    if (const auto file = record_of(row, 6)) {
        result.fresh = still_fresh(location_.root, u.target, *file, u.stored_at_ms);
    }

    Statement notes = db_->prepare(
        "SELECT kind, text FROM understanding_notes WHERE understanding_id=?1 "
        "ORDER BY kind, position");
    notes.bind(1, row.integer(0));
    while (notes.step()) {
        (notes.integer(0) == kGotcha ? u.gotchas : u.key_points).emplace_back(notes.text(1));
    }
    return result;
}

UnderstandingStats Store::understanding_stats(std::size_t limit, bool include_fresh) {
    UnderstandingStats stats;
    if (!db_) return stats;
    Statement rows = db_->prepare(
        "SELECT id, scope, target, importance, stored_at, file_size, file_mtime_ns, file_hash "
        "FROM understandings");
    // The `limit` best so far as a heap with the worst on top, so that each row costs a
    // comparison and only a row that makes the list is copied.
    std::vector<Candidate> best;
    best.reserve(limit + 1);
    std::string target;
    while (rows.step()) {
        ++stats.total;
        target = rows.text(2);
        Candidate c{true, importance_rank(rows.text(3)), rows.integer(4), rows.integer(0), {}};
        if (const auto file = record_of(rows, 5)) {
            c.fresh = still_fresh(location_.root, target, *file, c.stored_at);
        }
        if ((c.fresh && !include_fresh) || limit == 0) continue;
        if (best.size() == limit && !listed_before(c, best.front())) continue;
        c.entry = {std::string(rows.text(1)), target, std::string(rows.text(3)), c.fresh};
        best.push_back(std::move(c));
        std::push_heap(best.begin(), best.end(), listed_before);
        if (best.size() > limit) {
            std::pop_heap(best.begin(), best.end(), listed_before);
            best.pop_back();
        }
    }
    std::sort_heap(best.begin(), best.end(), listed_before);
    for (auto& c : best) stats.entries.push_back(std::move(c.entry));
    return stats;
}

}  // namespace host::store
