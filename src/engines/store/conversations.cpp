#include <unordered_set>

#include "engines/store/store.hpp"
#include "engines/store/turn_facts.hpp"
#include "platform/random.hpp"

namespace store {

namespace {

constexpr std::int64_t kDayMs = 24LL * 3600 * 1000;
constexpr std::size_t kGoalPrompts = 50;
constexpr std::size_t kGoals = 5;
constexpr std::size_t kGoalChars = 500;
constexpr std::size_t kActivityLines = 10;
constexpr std::size_t kFiles = 20;

// A random (version 4) UUID, the form agents give their own session ids.
std::string generated_session_id() {
    const std::uint64_t hi = platform::random_u64();
    const std::uint64_t lo = platform::random_u64();
    unsigned char bytes[16];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<unsigned char>(hi >> (56 - 8 * i));
        bytes[8 + i] = static_cast<unsigned char>(lo >> (56 - 8 * i));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string id;
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) id += '-';
        id += kHex[bytes[i] >> 4];
        id += kHex[bytes[i] & 0xF];
    }
    return id;
}

// The most recent active session since `since`; with `idless`, only one that took turns without
// an id.
std::optional<std::string> most_recent_active(Database& db, std::int64_t since,
                                              bool idless = false) {
    Statement stmt = db.prepare(
        "SELECT id FROM sessions WHERE status IN ('active', 'compacted') AND last_activity >= ?1 "
        "AND idless_turns >= ?2 ORDER BY last_activity DESC, rowid DESC LIMIT 1");
    stmt.bind(1, since).bind(2, std::int64_t{idless});
    if (!stmt.step()) return std::nullopt;
    return std::string(stmt.text(0));
}

// The first `max_bytes` of `text`, never splitting a character.
std::string_view cut_bytes(std::string_view text, std::size_t max_bytes) {
    if (text.size() <= max_bytes) return text;
    std::size_t end = max_bytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

std::optional<std::string_view> kept(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    return cut_bytes(*text, kToolTextBytes);
}

}  // namespace

std::string Store::log_turn(const std::optional<std::string>& session_id, const Turn& turn) {
    Database& database = db();
    // From the whole input, before the history keeps only its first part.
    std::optional<ToolTurnFacts> facts;
    if (turn.type == TurnType::tool) {
        facts = describe_tool_turn(turn.tool_name, turn.tool_input, location_.root);
    }
    const std::int64_t now = now_ms();
    Transaction transaction(database, true);
    prune_if_due(now);

    std::string id;
    if (session_id) {
        id = *session_id;
    } else if (auto recent = most_recent_active(database, now - kDayMs)) {
        id = std::move(*recent);
    } else {
        id = generated_session_id();
    }
    // A finalized session that receives a turn is active again: agents keep their id across a
    // stop and a compaction.
    database
        .prepare(
            "INSERT INTO sessions(id, status, started_at, last_activity, turns, idless_turns) "
            "VALUES(?1, 'active', ?2, ?2, 1, ?3) ON CONFLICT(id) DO UPDATE SET status='active', "
            "ended_at=NULL, last_activity=max(last_activity, excluded.last_activity), "
            "turns=turns+1, idless_turns=idless_turns+excluded.idless_turns")
        .bind(1, id)
        .bind(2, now)
        .bind(3, std::int64_t{!session_id})
        .run();

    Statement insert = database.prepare(
        "INSERT INTO turns(session_id, at, type, prompt, tool_name, tool_input, tool_result, "
        "activity, file) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9) RETURNING id");
    insert.bind(1, id).bind(2, now);
    if (turn.type == TurnType::user) {
        insert.bind(3, "user").bind(4, turn.prompt);
    } else {
        insert.bind(3, "tool").bind(5, turn.tool_name);
        if (const auto input = kept(turn.tool_input)) insert.bind(6, *input);
        if (const auto result = kept(turn.tool_result)) insert.bind(7, *result);
        insert.bind(8, facts->activity).bind(9, facts->file);
    }
    if (!insert.step()) database.fail();
    const std::int64_t turn_id = insert.integer(0);
    insert.run();
    if (facts && facts->file) {
        database
            .prepare(
                "INSERT INTO session_files(session_id, file, last_turn) VALUES(?1, ?2, ?3) "
                "ON CONFLICT(session_id, file) DO UPDATE SET last_turn=excluded.last_turn")
            .bind(1, id)
            .bind(2, *facts->file)
            .bind(3, turn_id)
            .run();
    }
    transaction.commit();
    return id;
}

std::optional<std::string> Store::finalize_session(const std::optional<std::string>& session_id,
                                                   const std::string& status) {
    Database& database = db();
    const std::int64_t now = now_ms();
    Transaction transaction(database, true);
    prune_if_due(now);
    std::optional<std::string> id = session_id;
    if (id) {
        Statement known = database.prepare("SELECT 1 FROM sessions WHERE id=?1");
        // An agent that logs its turns without an id (Cursor) ends its session with an id that
        // matches none: it ends the session those turns went to. Nothing is ever created.
        if (!known.bind(1, *id).step()) id = most_recent_active(database, 0, true);
    } else {
        id = most_recent_active(database, 0);
    }
    if (!id) return std::nullopt;
    Statement update = database.prepare("UPDATE sessions SET status=?1, ended_at=?2 WHERE id=?3");
    update.bind(1, status).bind(2, now).bind(3, *id).run();
    transaction.commit();
    return id;
}

std::vector<SessionInfo> Store::list_sessions(std::int64_t days,
                                              const std::optional<std::string>& status) {
    std::vector<SessionInfo> sessions;
    if (!db_) return sessions;
    Statement rows =
        db_->prepare(status ? "SELECT id, status, started_at, last_activity, turns FROM sessions "
                              "WHERE status IN (?2, ?3) AND last_activity >= ?1 "
                              "ORDER BY last_activity DESC, rowid DESC"
                            : "SELECT id, status, started_at, last_activity, turns FROM sessions "
                              "WHERE last_activity >= ?1 ORDER BY last_activity DESC, rowid DESC");
    rows.bind(1, now_ms() - days * kDayMs);
    if (status) {
        rows.bind(2, *status).bind(3, *status == kStatusActive ? kStatusCompacted : *status);
    }
    while (rows.step()) {
        sessions.push_back({std::string(rows.text(0)), std::string(rows.text(1)), rows.integer(2),
                            rows.integer(3), rows.integer(4)});
    }
    return sessions;
}

std::optional<SessionContext> Store::session_context(std::string_view session_id) {
    if (!db_) return std::nullopt;
    Transaction transaction(*db_, false);
    Statement known = db_->prepare("SELECT 1 FROM sessions WHERE id=?1");
    if (!known.bind(1, session_id).step()) return std::nullopt;

    // Each from an index, a bounded number of rows: the cost does not grow with the session.
    SessionContext context;
    Statement prompts = db_->prepare(
        "SELECT prompt FROM turns WHERE session_id=?1 AND type='user' ORDER BY id LIMIT ?2");
    prompts.bind(1, session_id).bind(2, static_cast<std::int64_t>(kGoalPrompts));
    std::unordered_set<std::string> seen;
    while (context.goals.size() < kGoals && prompts.step()) {
        std::string goal = one_line(prompts.text(0), kGoalChars);
        if (!goal.empty() && seen.insert(goal).second) context.goals.push_back(std::move(goal));
    }

    Statement activity = db_->prepare(
        "SELECT activity FROM turns WHERE session_id=?1 AND type='tool' "
        "ORDER BY id DESC LIMIT ?2");
    activity.bind(1, session_id).bind(2, static_cast<std::int64_t>(kActivityLines));
    while (activity.step()) context.recent_activity.emplace_back(activity.text(0));

    Statement files = db_->prepare(
        "SELECT file FROM session_files WHERE session_id=?1 ORDER BY last_turn DESC LIMIT ?2");
    files.bind(1, session_id).bind(2, static_cast<std::int64_t>(kFiles));
    while (files.step()) context.files_involved.emplace_back(files.text(0));
    return context;
}

}  // namespace store
