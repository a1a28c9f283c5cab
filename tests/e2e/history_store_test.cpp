// The conversation history in the store: what a session's context shows, however long the session,
// what the history keeps of each turn, and which session an end without a known id closes.
#include "store_fixture.hpp"

namespace e2e {
namespace {

// A store as the first release left it: its schema, a session of 6,000 turns ("long") among the
// turns of another ("other"), with a prompt every 500 turns, and an understanding.
constexpr const char* kVersion1Store = R"sql(
PRAGMA journal_mode=WAL;
CREATE TABLE understandings(id INTEGER PRIMARY KEY, target TEXT NOT NULL, scope TEXT NOT NULL, importance TEXT NOT NULL, purpose TEXT, auto_generated INTEGER NOT NULL, stored_at INTEGER NOT NULL, listing BLOB NOT NULL, UNIQUE(target, scope));
CREATE TABLE understanding_notes(understanding_id INTEGER NOT NULL, kind INTEGER NOT NULL, position INTEGER NOT NULL, text TEXT NOT NULL, PRIMARY KEY(understanding_id, kind, position)) WITHOUT ROWID;
CREATE TABLE sessions(id TEXT PRIMARY KEY, status TEXT NOT NULL, started_at INTEGER NOT NULL, last_activity INTEGER NOT NULL, ended_at INTEGER, turns INTEGER NOT NULL);
CREATE INDEX sessions_by_status ON sessions(status, last_activity);
CREATE TABLE turns(id INTEGER PRIMARY KEY, session_id TEXT NOT NULL, at INTEGER NOT NULL, type TEXT NOT NULL, prompt TEXT, tool_name TEXT, tool_input TEXT, tool_result TEXT, activity TEXT, file TEXT);
CREATE INDEX turns_by_session ON turns(session_id, id);
CREATE TABLE memories(key TEXT PRIMARY KEY, value TEXT NOT NULL, stored_at INTEGER NOT NULL);
CREATE TABLE meta(key TEXT PRIMARY KEY, value INTEGER NOT NULL);
PRAGMA application_id=1332901460;
PRAGMA user_version=1;
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 6000)
INSERT INTO turns SELECT i, CASE WHEN i % 10 = 5 THEN 'other' ELSE 'long' END, i, 
    CASE WHEN i % 500 = 1 THEN 'user' ELSE 'tool' END,
    CASE WHEN i % 500 = 1 THEN 'goal ' || (i / 1000) END,
    CASE WHEN i % 500 = 1 THEN NULL WHEN i % 3 = 0 THEN 'Read' WHEN i % 3 = 1 THEN 'Edit' ELSE 'Bash' END,
    NULL, '"ok"',
    CASE WHEN i % 500 = 1 THEN NULL WHEN i % 3 = 0 THEN 'Read src/f' || (i % 37) || '.py'
         WHEN i % 3 = 1 THEN 'Edited src/f' || (i % 37) || '.py' ELSE 'Ran `make`' END,
    CASE WHEN i % 500 <> 1 AND i % 3 <> 2 THEN 'src/f' || (i % 37) || '.py' END
FROM n;
INSERT INTO sessions SELECT session_id, 'active', 0, CAST(strftime('%s', 'now') AS INTEGER) * 1000,
    NULL, count(*) FROM turns GROUP BY session_id;
INSERT INTO understandings VALUES(1, 'src/f1.py', 'file', 'high', NULL, 0, 0, x'00');
)sql";

// What the first release answered for the long session (the first five distinct prompts, the last
// ten tool turns, the twenty files touched last), and what this one must answer still.
constexpr const char* kLongContext =
    R"({"goals": ["goal 0", "goal 1", "goal 2", "goal 3", "goal 4"], "recent_activity": )"
    R"(["Read src/f6.py", "Ran `make`", "Edited src/f4.py", "Read src/f3.py", "Ran `make`", )"
    R"("Read src/f0.py", "Ran `make`", "Edited src/f35.py", "Read src/f34.py", "Ran `make`"], )"
    R"("files_involved": ["src/f6.py", "src/f4.py", "src/f3.py", "src/f0.py", "src/f35.py", )"
    R"("src/f34.py", "src/f32.py", "src/f31.py", "src/f29.py", "src/f26.py", "src/f25.py", )"
    R"("src/f23.py", "src/f22.py", "src/f20.py", "src/f19.py", "src/f17.py", "src/f16.py", )"
    R"("src/f14.py", "src/f13.py", "src/f11.py"]})"
    "\n";

TEST_F(Store, ALongSessionsContextIsTheSameAfterTheUpgrade) {
    fs::create_directories(db().parent_path());
    sql(kVersion1Store);
    const Args context = {"conversation", "context", "long", "--json"};
    expect_clean(host(context), kLongContext);
    EXPECT_EQ(sql_rows("PRAGMA user_version"), "2\n");
    EXPECT_EQ(sql_rows("SELECT key, value FROM meta"), "understandings|1\n");

    // A file touched long ago becomes the latest; the others keep their order. Of the call, the
    // history keeps the first KiB of input and of result, whole characters only, and the activity
    // line comes from the whole input.
    const std::string input =
        R"({"content": ")" + std::string(3000, 'c') + R"(", "file_path": "src/f20.py"})";
    std::string result = "\"";
    for (int i = 0; i < 5000; ++i) result += "\xc3\xa9";  // é, two bytes
    host({"conversation", "log-turn", "--session-id=long", "--type", "tool", "--tool-name", "Write",
          "--tool-input", input, "--tool-result", result});
    expect_clean(
        host(context),
        R"({"goals": ["goal 0", "goal 1", "goal 2", "goal 3", "goal 4"], "recent_activity": )"
        R"(["Wrote src/f20.py", "Read src/f6.py", "Ran `make`", "Edited src/f4.py", )"
        R"("Read src/f3.py", "Ran `make`", "Read src/f0.py", "Ran `make`", "Edited src/f35.py", )"
        R"("Read src/f34.py"], "files_involved": ["src/f20.py", "src/f6.py", "src/f4.py", )"
        R"("src/f3.py", "src/f0.py", "src/f35.py", "src/f34.py", "src/f32.py", "src/f31.py", )"
        R"("src/f29.py", "src/f26.py", "src/f25.py", "src/f23.py", "src/f22.py", "src/f19.py", )"
        R"("src/f17.py", "src/f16.py", "src/f14.py", "src/f13.py", "src/f11.py"]})"
        "\n");
    EXPECT_EQ(
        sql_rows("SELECT length(CAST(tool_input AS BLOB)), length(CAST(tool_result AS BLOB)), "
                 "substr(tool_input, 1020) FROM turns WHERE id > 6000"),
        "1024|1023|ccccc\n");
}

// Cursor's prompt and tool hooks carry no session id, so its turns go to the most recent active
// session; its session end carries an id of its own, which matches none. That end closes the
// session the id-less turns went to, not a more recent one that came with ids, and creates nothing.
TEST_F(Store, ASessionEndWithAnUnknownIdEndsTheIdlessSession) {
    const auto turn = [&](const std::string& type, const std::string& input) {
        expect_clean(real_hook("log-conversation", input, {"--type", type}), "");
    };
    turn("user", R"({"prompt": "Fix the login"})");
    turn("tool", R"({"tool_name": "Read", "tool_input": {"file_path": "src/app/users.py"}})");
    const std::string cursor_id =
        sql_rows("SELECT id FROM sessions").substr(0, 36);  // the generated one
    turn("user", R"({"session_id": "claude-1", "prompt": "Add paging"})");
    for (const char* end :
         {R"({"session_id": "cursor-7f3a"})", R"({"session_id": "cursor-8b2c"})"}) {
        expect_clean(real_hook("finalize", end), "");
    }
    EXPECT_EQ(sql_rows("SELECT id, status, turns FROM sessions ORDER BY rowid"),
              cursor_id + "|completed|2\nclaude-1|active|1\n");
}

}  // namespace
}  // namespace e2e
