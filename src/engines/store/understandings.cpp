#include <algorithm>

#include "engines/store/freshness.hpp"
#include "engines/store/listing.hpp"
#include "engines/store/store.hpp"

namespace store {

namespace {

constexpr std::int64_t kKeyPoint = 0;
constexpr std::int64_t kGotcha = 1;

Listing listing_of(const Statement& row, int column) {
    auto listing = decode_listing(row.blob(column));
    if (!listing) throw StoreError(std::string(kStoreDisplayPath) + ": a damaged entry");
    return *listing;
}

// An entry competing for a place in the stats list.
struct Candidate {
    bool fresh;
    int rank;
    std::int64_t stored_at;
    std::int64_t id;
};

// Stale first, then more important, then more recent (then the later stored, for a stable order).
bool listed_before(const Candidate& a, const Candidate& b) {
    if (a.fresh != b.fresh) return !a.fresh;
    if (a.rank != b.rank) return a.rank < b.rank;
    if (a.stored_at != b.stored_at) return a.stored_at > b.stored_at;
    return a.id > b.id;
}

// Entries read for the stats, with the file checks of those that name a file.
struct Batch {
    std::vector<Candidate> entries;
    std::vector<FreshnessCheck> checks;
    std::vector<std::size_t> checked;  // the entry of each check
    std::string targets;               // the checks' targets, one after the other

    void clear() {
        entries.clear();
        checks.clear();
        checked.clear();
        targets.clear();
    }
};

// Fills `batch` with the next rows; false once the rows are all read.
bool read_batch(Statement& rows, Batch& batch,
                const std::function<void(std::string_view)>& each_target) {
    constexpr std::size_t kBatch = 512;
    std::vector<std::size_t> lengths;
    bool more = true;
    while (batch.entries.size() < kBatch && (more = rows.step())) {
        const Listing listing = listing_of(rows, 1);
        batch.entries.push_back({true, listing.rank, listing.stored_at_ms, rows.integer(0)});
        if (each_target) each_target(listing.target);
        if (listing.file) {
            batch.checks.push_back({{}, *listing.file, listing.stored_at_ms, true});
            batch.checked.push_back(batch.entries.size() - 1);
            lengths.push_back(listing.target.size());
            batch.targets += listing.target;
        }
    }
    // Only now that `targets` has stopped growing can it be pointed into.
    std::size_t offset = 0;
    for (std::size_t i = 0; i < batch.checks.size(); ++i) {
        batch.checks[i].target = std::string_view(batch.targets).substr(offset, lengths[i]);
        offset += lengths[i];
    }
    return more;
}

}  // namespace

void Store::store_understanding(const Understanding& u) {
    Database& database = db();
    // Read the file before taking the write lock, which other runs may be waiting for.
    const auto file = capture_file(location_.root, u.target);
    const std::int64_t now = now_ms();
    Transaction transaction(database, true);
    prune_if_due(now);
    // A store replaces the entry under a new id, past every other, taken before the old entry
    // goes: the ids follow the order of the stores, which the list shows and the search index
    // catches up by. Writers take turns, so no two get the same.
    Statement next = database.prepare("SELECT coalesce(max(id), 0) + 1 FROM understandings");
    if (!next.step()) database.fail();
    const std::int64_t id = next.integer(0);
    Statement old = database.prepare("SELECT id FROM understandings WHERE target=?1 AND scope=?2");
    if (old.bind(1, u.target).bind(2, u.scope).step()) {
        for (const char* sql : {"DELETE FROM understanding_notes WHERE understanding_id=?1",
                                "DELETE FROM understandings WHERE id=?1"}) {
            database.prepare(sql).bind(1, old.integer(0)).run();
        }
    } else {
        database.exec("UPDATE meta SET value=value+1 WHERE key='understandings'");
    }
    Statement insert = database.prepare(
        "INSERT INTO understandings(id, target, scope, importance, purpose, auto_generated, "
        "stored_at, listing) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
    insert.bind(1, id).bind(2, u.target).bind(3, u.scope).bind(4, u.importance);
    insert.bind(5, u.purpose).bind(6, std::int64_t{u.auto_generated}).bind(7, now);
    insert.bind_blob(8, encode_listing({importance_rank(u.importance), now, file, u.target}));
    insert.run();

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
    const std::int64_t indexed = search_index_ ? update_search_index() : search_up_to_;
    transaction.commit();
    search_up_to_ = indexed;
}

std::optional<RecalledUnderstanding> Store::recall_understanding(
    std::string_view target, const std::optional<std::string>& scope) {
    if (!db_) return std::nullopt;
    // The hooks ask this at every file read, and preparing statements is much of what it costs:
    // plain ones, and no ORDER BY where a few rows can be compared here (SQLite's sorter is
    // costly to plan). A target has an entry per scope, rarely more than one; the most recently
    // stored one wins (ids follow the stores).
    Transaction transaction(*db_, false);
    Statement rows = db_->prepare(
        "SELECT id, scope, importance, purpose, auto_generated, stored_at, listing "
        "FROM understandings WHERE target = ?1");
    rows.bind(1, target);
    std::optional<RecalledUnderstanding> result;
    std::optional<FileRecord> file;
    std::int64_t id = 0;
    while (rows.step()) {
        if (scope && rows.text(1) != *scope) continue;
        if (result && rows.integer(0) < id) continue;
        id = rows.integer(0);
        result.emplace();
        Understanding& u = result->understanding;
        u.target = target;
        u.scope = rows.text(1);
        u.importance = rows.text(2);
        u.purpose = rows.optional_text(3);
        u.auto_generated = rows.integer(4) != 0;
        u.stored_at_ms = rows.integer(5);
        file = listing_of(rows, 6).file;
    }
    if (!result) return result;
    Understanding& u = result->understanding;
    Statement notes = db_->prepare(
        "SELECT kind, text FROM understanding_notes WHERE understanding_id = ?1 "
        "ORDER BY kind, position");
    notes.bind(1, id);
    while (notes.step()) {
        (notes.integer(0) == kGotcha ? u.gotchas : u.key_points).emplace_back(notes.text(1));
    }
    if (file) result->fresh = still_fresh(location_.root, target, *file, u.stored_at_ms);
    return result;
}

UnderstandingPage Store::understanding_page(std::size_t offset, std::size_t limit) {
    UnderstandingPage page;
    if (!db_) return page;
    Transaction transaction(*db_, false);
    // Kept by the stores; counted only should it be missing.
    Statement count = db_->prepare(
        "SELECT coalesce((SELECT value FROM meta WHERE key='understandings'), "
        "(SELECT count(*) FROM understandings))");
    if (count.step()) page.total = count.integer(0);
    Statement rows = db_->prepare(
        "SELECT scope, importance, listing FROM understandings ORDER BY id DESC "
        "LIMIT ?1 OFFSET ?2");
    rows.bind(1, static_cast<std::int64_t>(limit)).bind(2, static_cast<std::int64_t>(offset));
    while (rows.step()) {
        const Listing listing = listing_of(rows, 2);
        const bool fresh = !listing.file || still_fresh(location_.root, listing.target,
                                                        *listing.file, listing.stored_at_ms);
        page.entries.push_back({std::string(rows.text(0)), std::string(listing.target),
                                std::string(rows.text(1)), fresh});
    }
    return page;
}

UnderstandingStats Store::understanding_stats(
    std::size_t limit, bool include_fresh,
    const std::function<void(std::string_view target)>& each_target) {
    UnderstandingStats stats;
    if (!db_) return stats;
    Transaction transaction(*db_, false);
    Statement rows = db_->prepare("SELECT id, listing FROM understandings");
    // The `limit` best so far, as a heap with the worst on top.
    std::vector<Candidate> best;
    best.reserve(limit + 1);
    auto consider = [&](const Candidate& c) {
        if ((c.fresh && !include_fresh) || limit == 0) return;
        if (best.size() == limit && !listed_before(c, best.front())) return;
        best.push_back(c);
        std::push_heap(best.begin(), best.end(), listed_before);
        if (best.size() > limit) {
            std::pop_heap(best.begin(), best.end(), listed_before);
            best.pop_back();
        }
    };

    // Entries come in batches whose file checks, most of the cost of a large store, run side by
    // side, and while one batch is checked the next is read; a batch at a time keeps the memory
    // small whatever the size of the store.
    Batch batches[2];
    FreshnessChecker checker(location_.root);  // after the batches: it goes first, helpers and all
    bool more = read_batch(rows, batches[0], each_target);
    for (std::size_t current = 0; !batches[current].entries.empty(); current ^= 1) {
        Batch& batch = batches[current];
        Batch& next = batches[current ^ 1];
        checker.check(batch.checks, [&] {
            next.clear();
            if (more) more = read_batch(rows, next, each_target);
        });
        for (std::size_t i = 0; i < batch.checks.size(); ++i) {
            batch.entries[batch.checked[i]].fresh = batch.checks[i].fresh;
        }
        stats.total += static_cast<std::int64_t>(batch.entries.size());
        for (const Candidate& c : batch.entries) consider(c);
    }

    std::sort_heap(best.begin(), best.end(), listed_before);
    Statement entry =
        db_->prepare("SELECT scope, target, importance FROM understandings WHERE id=?1");
    for (const Candidate& c : best) {
        if (!entry.bind(1, c.id).step()) db_->fail();
        stats.entries.push_back({std::string(entry.text(0)), std::string(entry.text(1)),
                                 std::string(entry.text(2)), c.fresh});
        entry.reset();
    }
    return stats;
}

std::vector<RecalledUnderstanding> Store::notable_understandings(std::size_t limit) {
    std::vector<RecalledUnderstanding> notable;
    if (!db_ || limit == 0) return notable;
    constexpr std::size_t kLatestPerPlace = 5;
    struct Latest {
        std::string target, scope;
        int rank;
    };
    std::vector<Latest> latest;
    {
        Transaction transaction(*db_, false);
        Statement rows = db_->prepare(
            "SELECT target, scope, importance FROM understandings ORDER BY id DESC LIMIT ?1");
        rows.bind(1, static_cast<std::int64_t>(limit * kLatestPerPlace));
        while (rows.step()) {
            latest.push_back({std::string(rows.text(0)), std::string(rows.text(1)),
                              importance_rank(rows.text(2))});
        }
    }
    std::stable_sort(latest.begin(), latest.end(),
                     [](const Latest& a, const Latest& b) { return a.rank < b.rank; });
    for (const Latest& entry : latest) {
        if (notable.size() == limit) break;
        if (auto recalled = recall_understanding(entry.target, entry.scope)) {
            notable.push_back(std::move(*recalled));
        }
    }
    return notable;
}

}  // namespace store
