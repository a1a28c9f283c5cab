// The store under faults of the machine: a full disk, runs killed midway, files left by others.
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <thread>

#include "store_fixture.hpp"

namespace e2e {
namespace {

std::set<std::string> names_in(const fs::path& dir) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) names.insert(entry.path().filename());
    return names;
}

const std::string kLogged = "{\"logged\": true, \"session_id\": \"s1\"}\n";
const Args kLogTurn = {"conversation", "log-turn", "--session-id=s1", "--type", "user",
                       "--prompt",     "x"};

// Whatever the free space when the first write creates the store, it works or fails as a full
// disk, leaving no temporary file and no half-written store; once space is freed, the next write
// works.
TEST_F(Store, AFullDiskWhileCreatingLeavesNothingBehind) {
    const fs::path dir = repo_ / "memory/codebase-index";
    fs::create_directories(dir);
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs takes root";
    if (windows_build()) GTEST_SKIP() << "Wine shows a mount point as a link, which is refused";
    if (::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=200k") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs: " << std::strerror(errno);
    }
    struct Unmount {
        fs::path dir;
        ~Unmount() { ::umount2(dir.c_str(), MNT_DETACH); }
    } unmount{dir};

    int full = 0;
    for (const int free_kib : {16, 48, 96, 112, 128}) {
        SCOPED_TRACE(free_kib);
        for (const auto& name : names_in(dir)) fs::remove(dir / name);
        write_file(dir / "filler", std::string((196 - free_kib) * 1024, 'x'));
        const HookRun r = host(kLogTurn);
        if (r.status != 0) {
            ++full;
            expect_error(r,
                         "orvane-tamblo conversation log-turn: error: "
                         "memory/codebase-index/orvane.db: database or disk is full\n",
                         1);
            for (const auto& name : names_in(dir)) {
                EXPECT_TRUE(name == ".gitignore" || name == "filler" ||
                            name.starts_with("orvane.db"))
                    << name;
                EXPECT_FALSE(name.starts_with("orvane.db.new-")) << name;
            }
        }
        fs::remove(dir / "filler");
        expect_clean(host(kLogTurn), kLogged);
        expect_clean(host({"conversation", "context", "s1", "--json"}),
                     R"({"goals": ["x"], "recent_activity": [], "files_involved": []})"
                     "\n");
    }
    EXPECT_GE(full, 3);
}

// A store left by other runs or programs: what a killed creation left is tidied away by the next
// write once it is old; anything else stays.
TEST_F(Store, LeftoversOfKilledCreationsAreRemoved) {
    expect_clean(host(kLogTurn), kLogged);
    const fs::path dir = repo_ / "memory/codebase-index";
    const std::vector<std::string> leftovers = {"orvane.db.new-0123456789abcdef",
                                                "orvane.db.new-0123456789abcdef-journal",
                                                ".gitignore.tmp-00000000000000ff"};
    const std::vector<std::string> kept = {"orvane.db.new-fedcba9876543210",  // young: written last
                                           "orvane.db.new-0123456789abcdefg", "notes.txt"};
    for (const auto& name : leftovers) write_file(dir / name, "old");
    for (const auto& name : kept) write_file(dir / name, "mine");
    for (const auto& entry : fs::directory_iterator(dir)) {
        if (entry.path().filename() != kept[0]) {
            fs::last_write_time(entry, fs::file_time_type::clock::now() - std::chrono::hours(1));
        }
    }
    write_file(root_ / "victim", "mine");
    fs::create_symlink(root_ / "victim", dir / "orvane.db.new-1111111111111111");

    expect_clean(host(kLogTurn), kLogged);
    for (const auto& name : leftovers) EXPECT_FALSE(fs::exists(dir / name)) << name;
    for (const auto& name : kept) EXPECT_EQ(read_file(dir / name), "mine") << name;
    EXPECT_EQ(read_file(dir / "orvane.db.new-1111111111111111"), "mine");  // the link, whole
}

// 32 turns at the same moment into a repository without a store, or with a zero-length orvane.db
// (a `touch`, another tool): the store they make is in WAL mode, where writers queue instead of
// failing, and every turn is in.
TEST_F(Store, ConcurrentFirstTurnsAllGetIn) {
    for (const bool zero_length : {false, true}) {
        SCOPED_TRACE(zero_length);
        fs::remove_all(repo_ / "memory");
        if (zero_length) {
            fs::create_directories(db().parent_path());
            write_file(db(), "");
        }
        for (const HookRun& r : run_together(
                 32, {"hooks", "log-conversation", "--type", "user"},
                 {.stdin_data = R"({"session_id": "s1", "prompt": "x"})", .real_host = true})) {
            expect_clean(r, "");
        }
        EXPECT_EQ(sql_rows("SELECT status, turns FROM sessions"), "active|32\n") << host_log();
        EXPECT_EQ(read_file(db()).substr(18, 2), "\x02\x02");  // the format versions of WAL
        EXPECT_FALSE(fs::exists(db().string() + "-journal"));
    }
}

// A writer holding the lock for 3.2 s (a long migration, a slow disk) while 128 turns arrive at
// once: each waits within the 5 s the hook gives it, and none is lost.
TEST_F(Store, ConcurrentWritersQueueBehindALongLock) {
    if (windows_build()) GTEST_SKIP() << "Wine starts 256 processes too slowly for the 5 s limit";
    expect_clean(host(kLogTurn), kLogged);
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(db().c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    std::thread holder([handle] {
        std::this_thread::sleep_for(std::chrono::milliseconds(3200));
        sqlite3_exec(handle, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close(handle);
    });
    const auto runs =
        run_together(128, {"hooks", "log-conversation", "--type", "user"},
                     {.stdin_data = R"({"session_id": "s1", "prompt": "y"})", .real_host = true});
    holder.join();
    for (const HookRun& r : runs) expect_clean(r, "");
    const HookRun list = host({"conversation", "list", "--json"});
    EXPECT_NE(list.out.find(R"("turns": 129})"), std::string::npos) << list.out << host_log();
}

}  // namespace
}  // namespace e2e
