#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engines/store/database.hpp"
#include "engines/store/location.hpp"

namespace store {

// What an agent (or the indexer) knows about one target: a file, or a target of another scope.
struct Understanding {
    std::string target;
    std::string scope = "file";
    std::string importance = "medium";  // high, medium or low
    std::optional<std::string> purpose;
    std::vector<std::string> key_points;
    std::vector<std::string> gotchas;
    bool auto_generated = false;    // the indexer's thin entry rather than an agent's analysis
    std::int64_t stored_at_ms = 0;  // set by the store
};

struct RecalledUnderstanding {
    Understanding understanding;
    bool fresh = true;  // false when the file changed or vanished since it was stored
};

struct StatsEntry {
    std::string scope;
    std::string target;
    std::string importance;
    bool fresh = true;
};

struct UnderstandingStats {
    std::int64_t total = 0;           // every entry
    std::vector<StatsEntry> entries;  // stale first, then by importance and recency
};

struct UnderstandingPage {
    std::int64_t total = 0;           // every entry
    std::vector<StatsEntry> entries;  // the page, the most recently stored first
};

enum class TurnType { user, tool };

struct Turn {
    TurnType type = TurnType::user;
    std::string prompt;                      // user turns
    std::string tool_name;                   // tool turns
    std::optional<std::string> tool_input;   // JSON text, possibly cut and no longer valid
    std::optional<std::string> tool_result;  // likewise
};

// A compacted session is still active: the agent compacted its context and goes on in it, so
// the next session start restores it and a turn without an id attaches to it. A completed one
// is over until a turn with its id reopens it.
inline constexpr const char* kStatusActive = "active";
inline constexpr const char* kStatusCompleted = "completed";
inline constexpr const char* kStatusCompacted = "compacted";

struct SessionInfo {
    std::string id;
    std::string status;
    std::int64_t started_at_ms = 0;
    std::int64_t last_activity_ms = 0;
    std::int64_t turns = 0;
};

struct SessionContext {
    std::vector<std::string> goals;            // the first user prompts, one line each
    std::vector<std::string> recent_activity;  // one line per tool turn, newest first
    std::vector<std::string> files_involved;   // most recent first, each once
};

struct Memory {
    std::string key;
    std::string value;
    std::int64_t stored_at_ms = 0;
};

struct StoreCounts {
    std::int64_t understandings = 0;
    std::int64_t sessions = 0;
    std::int64_t turns = 0;
    std::int64_t memories = 0;
};

// What the history keeps of a tool turn's input and of its result (JSON text, possibly cut): its
// first bytes, whole characters only. Nothing reads more back, and a person reading a session sees
// what the call was about; its activity line and file are derived from the whole input first.
inline constexpr std::size_t kToolTextBytes = 1024;

// How long the history keeps a session after its last activity, and how often that is enforced.
inline constexpr std::int64_t kSessionRetentionMs = 30LL * 24 * 3600 * 1000;
inline constexpr std::int64_t kPruneIntervalMs = 24LL * 3600 * 1000;
inline constexpr std::int64_t kPruneTurnsPerWrite = 2000;

// The repository's store: memory/codebase-index/orvane.db under the working directory. Every
// method is one short transaction; every failure throws StoreError with a one-line description.
class Store {
  public:
    enum class Access { read, write };

    // A read of a repository without a database is an empty store and creates nothing; a write
    // creates what is missing. A database that is not ours, damaged, or from a newer release is
    // refused and left untouched.
    static Store open(Access access, const std::string& root = ".");

    bool exists() const { return db_.has_value(); }
    const StoreLocation& location() const { return location_; }
    // Whether this open store still is the repository's store as this release reads it: not
    // deleted or replaced since it was opened, nor migrated by another release. A store that was
    // missing never is (one may have been created since). For a process that keeps it open.
    bool unchanged();

    // Stores or replaces the understanding of (target, scope), with what tells later whether
    // the file changed.
    void store_understanding(const Understanding& understanding);
    // The most recently stored understanding of `target`, in `scope` when given.
    std::optional<RecalledUnderstanding> recall_understanding(
        std::string_view target, const std::optional<std::string>& scope = std::nullopt);
    // Understandings whose target, purpose, key points or gotchas match the words of `query`,
    // best match first, at most `limit`. The full-text index lives in this connection's memory:
    // built at the first search, brought up to date with the stores made since at each later
    // one, and with this store's own stores in their transaction.
    std::vector<RecalledUnderstanding> search_understandings(std::string_view query,
                                                             std::size_t limit);
    // At most `limit` entries; only stale ones unless `include_fresh`. Checks every file, and
    // hands every entry's target to `each_target` (on the calling thread) as it goes.
    UnderstandingStats understanding_stats(
        std::size_t limit, bool include_fresh,
        const std::function<void(std::string_view target)>& each_target = {});
    // The `limit` most important of the entries stored last (a few times `limit` of them), the
    // more recent first among equals: what is worth knowing first, at a cost that does not grow
    // with the store.
    std::vector<RecalledUnderstanding> notable_understandings(std::size_t limit);
    // `limit` entries from the `offset`th, the most recently stored first; only the page's files
    // are checked.
    UnderstandingPage understanding_page(std::size_t offset, std::size_t limit);

    // Appends the turn and returns the session it went to: `session_id` (started or reopened
    // as needed), else the most recent active session of the last day, else a new one.
    std::string log_turn(const std::optional<std::string>& session_id, const Turn& turn);
    // Ends the session and returns its id: `session_id`; for an id that matches no session, the
    // most recent active session that took turns without an id; without an id, the most recent
    // active session. nullopt when there is none to end.
    std::optional<std::string> finalize_session(const std::optional<std::string>& session_id,
                                                const std::string& status);
    // Sessions with activity within the last `days`, with `status` unless nullopt ("active"
    // takes the compacted ones too); most recent first.
    std::vector<SessionInfo> list_sessions(std::int64_t days,
                                           const std::optional<std::string>& status);
    // nullopt for an unknown session.
    std::optional<SessionContext> session_context(std::string_view session_id);

    void remember(const std::string& key, const std::string& value);
    std::optional<Memory> recall_memory(std::string_view key);
    std::vector<Memory> list_memories();
    bool forget(std::string_view key);

    StoreCounts counts();
    std::int64_t schema_version();

  private:
    Store() = default;
    Database& db();
    void prune_if_due(std::int64_t now_ms);
    // Indexes the entries stored since the search index was last brought up to date, inside the
    // caller's transaction; returns the id it is then up to, for after the commit.
    std::int64_t update_search_index();

    StoreLocation location_;
    std::optional<Database> db_;
    bool search_index_ = false;      // built in this connection
    std::int64_t search_up_to_ = 0;  // the last entry it holds
};

// Milliseconds since the Unix epoch, the store's clock.
std::int64_t now_ms();

}  // namespace store
