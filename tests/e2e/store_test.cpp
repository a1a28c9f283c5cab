// The embedded store behind the hooks: the build itself is first on PATH, so every child the
// hooks start is this program answering from memory/codebase-index/orvane.db.
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "store_fixture.hpp"

namespace e2e {
namespace {

constexpr const char* kQuickStart =
    "### Quick Start:\n- `understand(action=\"recall\")` for semantic search across cache\n"
    "- `explore(query=\"...\")` for multi-strategy code exploration\n"
    "- `remember(action='list')` to see stored project memories";

TEST_F(Store, OneSessionThroughTheHooks) {
    expect_clean(real_hook("session-start", R"({"source": "startup"})", {"--agent", "windsurf"}),
                 std::string("Project brief.\n\n") + kNothingCached + "\n");
    expect_clean(real_hook("log-conversation",
                           R"({"session_id": "demo-1", "prompt": "Add paging to the)"
                           R"( user list"})",
                           {"--type", "user"}),
                 "");
    expect_clean(
        real_hook("remind-store", tool_input("Read")),
        R"({"hookSpecificOutput": {"hookEventName": "PostToolUse", "additionalContext": "## )"
        R"(Remember to Cache: src/app/users.py\n\nAfter analyzing this file:\n- `understand()"
        R"(action='store', scope='file', target='src/app/users.py', purpose='...', )"
        R"(key_points=[...], gotchas=[...])` to cache insights\n- `remember(action='store', )"
        R"(key='...', value='...')` for key decisions\n- `understand(action=\"recall\")` to )"
        R"(find related cached understanding"}})"
        "\n");
    expect_clean(host({"query", "understand", "--action=store", "--target=src/app/users.py",
                       "--purpose=User queries", "--key-point=get_user reads one row"}),
                 "{\"stored\": true, \"target\": \"src/app/users.py\", \"scope\": \"file\"}\n");
    expect_clean(
        real_hook("check-cache", tool_input("Read")),
        R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Cached )"
        R"(understanding exists for `src/app/users.py` \u2014 consider `understand(action=\")"
        R"(recall\", target=\"src/app/users.py\")` before reading the full file (saves )"
        R"(tokens)."}})"
        "\n");

    write_file(repo_ / "src/app/users.py", "def get_user(page): ...\n");
    expect_clean(
        real_hook("refresh-cache", tool_input("Edit")),
        R"({"hookSpecificOutput": {"hookEventName": "PostToolUse", "additionalContext": "You )"
        R"(modified `src/app/users.py`, which has a model-authored cached understanding; your )"
        R"(edit may have made it outdated. If so, refresh it with `understand(action=\"store\", )"
        R"(scope=\"file\", target=\"src/app/users.py\", purpose=\"...\", key_points=[...], )"
        R"(gotchas=[...])` so future sessions stay accurate."}})"
        "\n");
    const HookRun recall =
        host({"query", "understand", "--action=recall", "--target=src/app/users.py"});
    // Everything but the time it was stored.
    EXPECT_EQ(
        recall.out.substr(0, recall.out.find("\"stored_at\"")),
        R"({"found": true, "fresh": false, "understanding": {"target": "src/app/users.py", )"
        R"("scope": "file", "importance": "medium", "purpose": "User queries", "key_points": )"
        R"(["get_user reads one row"], "gotchas": [], "auto_generated": false, )");

    for (const std::string& input :
         {tool_input("Read", R"(, "tool_result": "def get_user(): ...")"),
          tool_input("Edit", R"x(, "old_string": "()", "new_string": "(page)")x"),
          std::string(R"({"session_id": "demo-1", "tool_name": "Bash", "tool_input": )"
                      R"({"command": "make test"}})")}) {
        expect_clean(real_hook("log-conversation", input, {"--type", "tool"}), "");
    }
    expect_clean(real_hook("finalize", R"({"session_id": "demo-1", "reason": "compact"})"), "");

    expect_clean(real_hook("restore-compact", "{}", {"--agent", "windsurf"}),
                 "## Context Restored After Compaction\n\n\n"
                 "### Session Goals\n1. Add paging to the user list\n\n"
                 "### Recent Activity\n- Ran `make test`\n- Edited src/app/users.py\n"
                 "- Read src/app/users.py\n\n"
                 "### Files Worked On: src/app/users.py\n\n"
                 "## AI Cache Status\n\n**1 entries cached.** Use `understand(action=\"recall\", "
                 "target=\"...\")` before reading files.\n\n### Cached Entries:\n"
                 "- [medium] src/app/users.py (file) [STALE]\n\n" +
                     std::string(kQuickStart) + "\n");

    EXPECT_EQ(read_file(repo_ / "memory/codebase-index/.gitignore"), "*\n");
    EXPECT_FALSE(fs::exists(repo_ / "memory/codebase-index/index.db"));
}

// Stale entries first, then by importance, then the latest stored; a limit cuts that order.
TEST_F(Store, StatsListStaleThenImportanceThenRecency) {
    for (const auto& [name, importance] :
         {std::pair{"a.py", "low"}, std::pair{"b.py", "high"}, std::pair{"c.py", "medium"},
          std::pair{"d.py", "high"}}) {
        write_file(repo_ / name, "x");
        host({"query", "understand", "--action=store", std::string("--target=") + name,
              std::string("--importance=") + importance});
    }
    host({"query", "understand", "--action=store", "--target=pkg", "--scope=module"});
    fs::remove(repo_ / "c.py");  // a module is never stale
    const std::string head = R"({"total": 5, "by_scope": {)";
    const std::string c = R"({"target": "c.py", "importance": "medium", "fresh": false})";
    const std::string db = R"({"target": "d.py", "importance": "high", "fresh": true}, )"
                           R"({"target": "b.py", "importance": "high", "fresh": true})";
    const std::string pkg =
        R"("module": {"entries": [{"target": "pkg", "importance": "medium", "fresh": true}]})";
    const std::pair<std::string, std::string> rows[] = {
        {"--limit=10", head + R"("file": {"entries": [)" + c + ", " + db +
                           R"(, {"target": "a.py", )"
                           R"("importance": "low", "fresh": true}]}, )" +
                           pkg + "}}\n"},
        {"--limit=3", head + R"("file": {"entries": [)" + c + ", " + db + "]}}}\n"},
        {"--limit=4", head + R"("file": {"entries": [)" + c + ", " + db + "]}, " + pkg + "}}\n"},
        {"--limit=0", head + "}}\n"},
    };
    for (const auto& [limit, out] : rows) {
        SCOPED_TRACE(limit);
        expect_clean(host({"query", "understand", "--action=stats", limit, "--include-fresh"}),
                     out);
    }
    expect_clean(host({"query", "understand", "--action=stats"}),
                 head + R"("file": {"entries": [)" + c + "]}}}\n");
}

// Fresh while the content is the same, whatever the time stamp says; stale after any change, even
// one within the stored time stamp, and once the file is gone.
TEST_F(Store, FreshnessFollowsTheContent) {
    if (windows_build()) GTEST_SKIP() << "time stamps set from POSIX";
    const fs::path file = repo_ / "src/app/users.py";
    const auto write = [&](const std::string& content, int age_s) {
        write_file(file, content);
        fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::seconds(age_s));
    };
    const auto store = [&] {
        host({"query", "understand", "--action=store", "--target=src/app/users.py"});
    };
    const auto fresh = [&] {
        const HookRun r =
            host({"query", "understand", "--action=recall", "--target=src/app/users.py"});
        EXPECT_TRUE(r.out.starts_with(R"({"found": true, "fresh": )")) << r.out;
        return r.out.starts_with(R"({"found": true, "fresh": true)");
    };
    write("one", 86400);
    store();
    EXPECT_TRUE(fresh());
    write("one", 10);  // touched, same content
    EXPECT_TRUE(fresh());
    write("two", 10);  // same size, new content
    EXPECT_FALSE(fresh());

    write("one", 0);
    store();
    const auto stamp = fs::last_write_time(file);
    write_file(file, "two");
    fs::last_write_time(file, stamp);
    EXPECT_FALSE(fresh());
    fs::remove(file);
    EXPECT_FALSE(fresh());
}

TEST_F(Store, ReadsOfAMissingStoreAnswerEmptyAndCreateNothing) {
    expect_clean(host({"query", "understand", "--action=stats", "--limit=20", "--include-fresh"}),
                 "{\"total\": 0, \"by_scope\": {}}\n");
    expect_clean(host({"query", "understand", "--action=recall", "--target=src/app/users.py"}),
                 "{\"found\": false}\n");
    expect_clean(host({"conversation", "list", "--days=1", "--status=active", "--json"}),
                 "{\"sessions\": []}\n");
    expect_error(host({"conversation", "context", "s1", "--json"}),
                 "orvane-tamblo conversation context: error: no session with the id 's1'\n", 1);
    EXPECT_FALSE(fs::exists(repo_ / "memory"));
}

// A corrupt, foreign, newer or read-only database, or one a writer left mid-transaction: clear
// errors from the commands, a warning in the host log for what is lost, the hooks carry on as with
// the service down, and nothing is rewritten.
TEST_F(Store, CorruptAndReadOnlyDatabasesAreLeftAlone) {
    const auto make_db = [&](const std::string& statement) {
        fs::create_directories(db().parent_path());
        sql(statement);
    };
    const std::string file = "memory/codebase-index/orvane.db: ";
    struct Case {
        std::string name;
        std::function<void()> arrange;
        std::string error;  // after "<command>: error: "
        bool readable;
    };
    const std::vector<Case> cases = {
        {"corrupt",
         [&] {
             make_db("");
             write_file(db(), std::string(4096, 'x'));
         },
         file + "file is not a database", false},
        {"read-only",
         [&] {
             host({"query", "understand", "--action=store", "--target=src/app/users.py"});
             fs::permissions(
                 db(), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
         },
         file + "the file is read-only", true},
        // Another program's database, or one a newer version wrote.
        {"foreign table", [&] { make_db("CREATE TABLE t(a)"); },
         file + "holds an unexpected schema object 't'; it is left as it is", false},
        {"foreign application", [&] { make_db("PRAGMA application_id=1"); },
         file + "is not an orvane-tamblo store; it is left as it is", false},
        {"newer schema",
         [&] { make_db("PRAGMA application_id=1332901460; PRAGMA user_version=9"); },
         file + "was written by a newer orvane-tamblo (schema version 9); it is left as it is",
         false},
        // A clone of a store whose writer died in the middle of a rollback-journal transaction:
        // SQLite would play the journal back into the file.
        {"hot journal",
         [&] {
             host({"query", "understand", "--action=store", "--target=src/app/users.py"});
             if (::fork() == 0) {
                 sqlite3* handle = nullptr;
                 sqlite3_open(db().c_str(), &handle);
                 sqlite3_exec(handle,
                              "PRAGMA journal_mode=DELETE; BEGIN; DELETE FROM understandings",
                              nullptr, nullptr, nullptr);
                 _exit(0);
             }
             ::wait(nullptr);
             ASSERT_TRUE(fs::exists(db().string() + "-journal"));
         },
         "refusing the store: memory/codebase-index/orvane.db-journal is a rollback journal left "
         "by another program; it and the database are left as they are",
         false},
    };
    const std::vector<std::pair<std::string, Args>> writes = {
        {"conversation log-turn", {"conversation", "log-turn", "--type", "user", "--prompt", "x"}},
        {"conversation finalize", {"conversation", "finalize", "--status=completed"}},
        {"query understand", {"query", "understand", "--action=store", "--target=a"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(repo_ / "memory");
        c.arrange();
        const std::string before = read_file(db());
        const std::string journal = read_file(db().string() + "-journal");
        for (const auto& [command, args] : writes) {
            expect_error(host(args), "orvane-tamblo " + command + ": error: " + c.error + "\n", 1);
        }
        const HookRun recall =
            host({"query", "understand", "--action=recall", "--target=src/app/users.py"});
        if (c.readable) {
            EXPECT_EQ(recall.out.substr(0, 30), R"({"found": true, "fresh": true,)");
        } else {
            expect_error(recall, "orvane-tamblo query understand: error: " + c.error + "\n", 1);
        }
        // The hook ignores its child's failure, as it must; the child says it in the host log.
        fs::remove(logs_ / "orvane-tamblo.log");
        expect_clean(real_hook("log-conversation", R"({"session_id": "s1", "prompt": "hi"})",
                               {"--type", "user"}),
                     "");
        EXPECT_EQ(host_log().substr(std::min<std::size_t>(host_log().size(), 20)),
                  "WARNING orvane_tamblo.store: orvane-tamblo conversation log-turn failed, the "
                  "turn is lost: " +
                      c.error + "\n");
        expect_clean(real_hook("finalize", R"({"session_id": "s1"})"), "");
        const HookRun start = real_hook("session-start", "{}", {"--agent", "windsurf"});
        EXPECT_EQ(start.status, 0);
        EXPECT_EQ(start.out.ends_with(std::string(kWarning) + "\n"), !c.readable) << start.out;
        EXPECT_EQ(real_hook("check-cache", tool_input("Read")).out.empty(), !c.readable);
        EXPECT_EQ(read_file(db()), before);
        EXPECT_EQ(read_file(db().string() + "-journal"), journal);
    }
}

TEST_F(Store, LinksLeadingOutsideTheRepositoryAreRefused) {
    const fs::path outside = root_ / "outside";
    // Each link, relative to the repository, points to `outside`.
    for (const std::string link :
         {"memory", "memory/codebase-index", "memory/codebase-index/orvane.db"}) {
        SCOPED_TRACE(link);
        fs::remove_all(repo_ / "memory");
        fs::remove_all(outside);
        fs::create_directories(outside);
        fs::create_directories((repo_ / link).parent_path());
        fs::create_symlink(outside, repo_ / link);
        const std::string error = "refusing the store: " + link +
                                  " is a symbolic link that leads outside the repository\n";
        expect_error(host({"conversation", "log-turn", "--type", "user", "--prompt", "x"}),
                     "orvane-tamblo conversation log-turn: error: " + error, 1);
        expect_error(host({"query", "understand", "--action=stats"}),
                     "orvane-tamblo query understand: error: " + error, 1);
        expect_clean(real_hook("log-conversation", R"({"prompt": "hi"})", {"--type", "user"}), "");
        EXPECT_TRUE(fs::is_empty(outside));
    }

    // SQLite's companion files are never opened through a link either.
    fs::remove_all(repo_ / "memory");
    fs::create_directories(repo_ / "memory/codebase-index");
    write_file(outside / "victim", "mine");
    fs::create_symlink(outside / "victim", repo_ / "memory/codebase-index/orvane.db-wal");
    expect_error(host({"conversation", "log-turn", "--type", "user", "--prompt", "x"}),
                 "orvane-tamblo conversation log-turn: error: refusing the store: "
                 "memory/codebase-index/orvane.db-wal is not a regular file\n",
                 1);
    EXPECT_EQ(read_file(outside / "victim"), "mine");

    // A link that stays inside is only another way to the same place.
    fs::remove_all(repo_ / "memory");
    fs::create_directories(repo_ / ".cache/memory");
    fs::create_directory_symlink(".cache/memory", repo_ / "memory");
    expect_clean(
        host({"conversation", "log-turn", "--session-id=s1", "--type", "user", "--prompt", "x"}),
        "{\"logged\": true, \"session_id\": \"s1\"}\n");
    EXPECT_TRUE(fs::is_regular_file(repo_ / ".cache/memory/codebase-index/orvane.db"));
}

TEST_F(Store, OldSessionsArePrunedAtMostOnceADay) {
    for (const char* id : {"old", "new"}) {
        host({"conversation", "log-turn", std::string("--session-id=") + id, "--type", "user",
              "--prompt", "x"});
    }
    const std::string month_ago = "(CAST(strftime('%s', 'now') AS INTEGER) - 31 * 86400) * 1000";
    const std::string hour_ago = "(CAST(strftime('%s', 'now') AS INTEGER) - 3600) * 1000";
    const std::string two_days_ago = "(CAST(strftime('%s', 'now') AS INTEGER) - 2 * 86400) * 1000";
    auto listed = [&] {
        return host({"conversation", "list", "--days=365", "--json"}).out.find(R"("id": "old")") !=
               std::string::npos;
    };

    auto write = [&] {
        host({"conversation", "log-turn", "--session-id=new", "--type", "user", "--prompt", "y"});
    };

    // Pruned within the last day: the old session stays until the next day's write.
    sql("UPDATE sessions SET last_activity=" + month_ago + " WHERE id='old'; UPDATE meta SET " +
        "value=" + hour_ago);
    write();
    EXPECT_TRUE(listed());

    // A long session goes a bounded share per write (2,000 turns), so no write takes long.
    sql("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2500) "
        "INSERT INTO turns(session_id, at, type, prompt) SELECT 'old', 0, 'user', 'x' FROM n; "
        "UPDATE meta SET value=" +
        two_days_ago);
    write();
    EXPECT_TRUE(listed());
    write();
    EXPECT_FALSE(listed());
    expect_error(host({"conversation", "context", "old", "--json"}),
                 "orvane-tamblo conversation context: error: no session with the id 'old'\n", 1);
    const HookRun list = host({"conversation", "list", "--json"});
    EXPECT_NE(list.out.find(R"("turns": 4})"), std::string::npos) << list.out;
}

TEST_F(Store, BadInputIsOneLineAndChangesNothing) {
    host({"conversation", "log-turn", "--session-id=s1", "--type", "user", "--prompt", "x"});
    const std::string before = read_file(db());
    // The error after "orvane-tamblo <command>: error: "; status 2 when it ends in a pointer to
    // the command's help, else 1.
    const std::vector<std::pair<Args, std::string>> cases = {
        {{"query", "understand", "--action=frob"}, "--action: frob not in {store,recall,stats}"},
        {{"query", "understand", "--action=store"}, "--action=store needs a non-empty --target"},
        {{"query", "understand", "--action=stats", "--limit=ten"},
         "--limit: 'ten' is not a whole number from 0 to 999999999"},
        {{"query", "understand", "--action=recall", "--target=a", "--limit=3"},
         "--limit does not apply to --action=recall"},
        {{"conversation", "finalize", "--session-id=s1", "--status=done"},
         "--status: done not in {completed,compacted}"},
        {{"conversation", "finalize", "--session-id=nobody", "--status=completed"},
         "no session with the id 'nobody'\n"},
        {{"conversation", "list", "--status=open", "--json"},
         "--status: open not in {active,completed,compacted,all}"},
        {{"conversation", "log-turn", "--session-id=s1", "--type", "user"},
         "--type user needs --prompt"},
        {{"conversation", "context", "--json"}, "a session ID is required"},
    };
    for (const auto& [args, error] : cases) {
        SCOPED_TRACE(args.back());
        const std::string command = "orvane-tamblo " + args[0] + " " + args[1];
        const bool usage = !error.ends_with("\n");
        expect_error(
            host(args),
            command + ": error: " + error + (usage ? " (see '" + command + " --help')\n" : ""),
            usage ? 2 : 1);
    }
    EXPECT_EQ(read_file(db()), before);
}

// An agent that cuts a string inside a character sends a lone surrogate: it is kept and comes back
// as its escape. Text that is not UTF-8 at all is refused before it can spoil a session.
TEST_F(Store, CutCharactersComeBackAsTheirEscapes) {
    expect_clean(real_hook("log-conversation", R"({"session_id": "w1", "prompt": "cut \ud83d"})",
                           {"--type", "user"}),
                 "");
    expect_clean(real_hook("log-conversation",
                           R"({"session_id": "w1", "tool_name": "Read", "tool_input": )"
                           R"({"file_path": "a\udc00.py"}})",
                           {"--type", "tool"}),
                 "");
    // Windows hands a program its arguments as UTF-16: bytes that are not UTF-8 cannot reach it.
    if (!windows_build()) {
        expect_error(
            host({"conversation", "log-turn", "--session-id=w1", "--type", "user", "--prompt",
                  "caf\xe9"}),
            "orvane-tamblo conversation log-turn: error: --prompt: not UTF-8 text (byte 4) "
            "(see 'orvane-tamblo conversation log-turn --help')\n",
            2);
    }
    expect_clean(host({"conversation", "context", "w1", "--json"}),
                 R"({"goals": ["cut \ud83d"], "recent_activity": ["Read a\udc00.py"], )"
                 R"("files_involved": ["a\udc00.py"]})"
                 "\n");
}

TEST_F(Store, ServeDiagnosesTheStoreAndThePath) {
    host({"query", "understand", "--action=store", "--target=src/app/users.py"});
    const std::string program = native(binary());
    const std::string service =
        "service   embedded in orvane-tamblo: the hooks run it from PATH, nothing to start\n"
        "store     " +
        native(repo_ / "memory/codebase-index/orvane.db") +
        "\n"
        "database  opens and answers (schema version 2)\n"
        "contents  1 understanding, 0 sessions with 0 turns, 0 memories\n"
        "index     none yet; build it with `orvane-tamblo index`\n";
    expect_clean(host({"serve"}),
                 service + "hooks     the hooks run " + program + ", this program\n");

    // With the test's stand-in first on PATH, the hooks would not reach this store.
    const HookRun r = run({"serve"});
    const std::string host_name = windows_build() ? "orvane-tamblo.exe" : "orvane-tamblo";
    EXPECT_EQ(r.out, service + "hooks     PROBLEM: the hooks run " +
                         native(fs::path(fake_host_dir()) / host_name) +
                         ", another program than this one (" + program + ")\n");
    EXPECT_EQ(r.status, 1);
}

}  // namespace
}  // namespace e2e
