// The fixture of the tests against the embedded store: the build itself is first on PATH, so
// every child the hooks start is this program answering from memory/codebase-index/orvane.db.
#pragma once

#include <sqlite3.h>

#include "harness.hpp"

namespace e2e {

using Args = std::vector<std::string>;

class Store : public HookTest {
  protected:
    void SetUp() override {
        HookTest::SetUp();
        fs::create_directories(repo_ / "src/app");
        fs::create_directories(repo_ / ".orvane-tamblo");
        write_file(repo_ / ".orvane-tamblo/brief.md", "Project brief.");
        write_file(repo_ / "src/app/users.py", "def get_user(): ...\n");
    }

    HookRun host(const Args& args) { return run(args, {.real_host = true}); }

    HookRun real_hook(const std::string& name, const std::string& input, Args extra = {}) {
        extra.insert(extra.begin(), {"hooks", name});
        return run(extra, {.stdin_data = input, .real_host = true});
    }

    // A hook input naming the file in Claude Code's form.
    std::string tool_input(const std::string& tool, const std::string& extra = "") const {
        return R"({"session_id": "demo-1", "tool_name": ")" + tool +
               R"(", "tool_input": {"file_path": ")" + (repo_ / "src/app/users.py").string() +
               "\"" + extra + "}}";
    }

    fs::path db() const { return repo_ / "memory/codebase-index/orvane.db"; }

    // Runs SQL on the store directly, as an older run or a long wait would have left it.
    void sql(const std::string& statement) const {
        sqlite3* handle = nullptr;
        ASSERT_EQ(sqlite3_open(db().c_str(), &handle), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(handle, statement.c_str(), nullptr, nullptr, &error), SQLITE_OK)
            << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(handle);
    }

    // The rows a query gives, columns joined by "|", each row ending in a line feed.
    std::string sql_rows(const std::string& query) const {
        sqlite3* handle = nullptr;
        sqlite3_stmt* stmt = nullptr;
        std::string rows;
        if (sqlite3_open(db().c_str(), &handle) == SQLITE_OK &&
            sqlite3_prepare_v2(handle, query.c_str(), -1, &stmt, nullptr) == SQLITE_OK) {
            while (sqlite3_step(stmt) == SQLITE_ROW) {
                for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
                    const auto* text = sqlite3_column_text(stmt, i);
                    rows += (i ? "|" : "") + std::string(text ? (const char*)text : "NULL");
                }
                rows += "\n";
            }
        }
        sqlite3_finalize(stmt);
        sqlite3_close(handle);
        return rows;
    }
};

}  // namespace e2e
