// The store under faults of the machine: a full disk, runs killed midway, files left by others.
#include <thread>

#include "store_fixture.hpp"

namespace e2e {
namespace {

const std::string kLogged = "{\"logged\": true, \"session_id\": \"s1\"}\n";
const Args kLogTurn = {"conversation", "log-turn", "--session-id=s1", "--type", "user",
                       "--prompt", "x"};

// A writer holding the lock for 3.5 s (a long migration, a slow disk) while 128 turns arrive at
// once: each waits within the 5 s the hook gives it, and none is lost.
TEST_F(Store, ConcurrentWritersQueueBehindALongLock) {
    if (windows_build()) GTEST_SKIP() << "Wine starts 256 processes too slowly for the 5 s limit";
    expect_clean(host(kLogTurn), kLogged);
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(db().c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    std::thread holder([handle] {
        std::this_thread::sleep_for(std::chrono::milliseconds(3500));
        sqlite3_exec(handle, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close(handle);
    });
    const auto runs = run_together(128, {"hooks", "log-conversation", "--type", "user"},
                                   {.stdin_data = R"({"session_id": "s1", "prompt": "y"})",
                                    .real_host = true});
    holder.join();
    for (const HookRun& r : runs) expect_clean(r, "");
    const HookRun list = host({"conversation", "list", "--json"});
    EXPECT_NE(list.out.find(R"("turns": 129})"), std::string::npos) << list.out << host_log();
}

}  // namespace
}  // namespace e2e
