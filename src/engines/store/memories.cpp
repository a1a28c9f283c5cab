#include "engines/store/store.hpp"

namespace store {

void Store::remember(const std::string& key, const std::string& value) {
    Database& database = db();
    const std::int64_t now = now_ms();
    Transaction transaction(database, true);
    prune_if_due(now);
    database
        .prepare(
            "INSERT INTO memories(key, value, stored_at) VALUES(?1, ?2, ?3) "
            "ON CONFLICT(key) DO UPDATE SET value=excluded.value, stored_at=excluded.stored_at")
        .bind(1, key)
        .bind(2, value)
        .bind(3, now)
        .run();
    transaction.commit();
}

std::optional<Memory> Store::recall_memory(std::string_view key) {
    if (!db_) return std::nullopt;
    Statement row = db_->prepare("SELECT value, stored_at FROM memories WHERE key=?1");
    if (!row.bind(1, key).step()) return std::nullopt;
    return Memory{std::string(key), std::string(row.text(0)), row.integer(1)};
}

std::vector<Memory> Store::list_memories() {
    std::vector<Memory> memories;
    if (!db_) return memories;
    Statement rows =
        db_->prepare("SELECT key, value, stored_at FROM memories ORDER BY stored_at DESC, key");
    while (rows.step()) {
        memories.push_back({std::string(rows.text(0)), std::string(rows.text(1)), rows.integer(2)});
    }
    return memories;
}

bool Store::forget(std::string_view key) {
    Database& database = db();
    Transaction transaction(database, true);
    database.prepare("DELETE FROM memories WHERE key=?1").bind(1, key).run();
    const bool removed = database.changes() > 0;
    transaction.commit();
    return removed;
}

}  // namespace store
