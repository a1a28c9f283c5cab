// The store's own rules: what a tool turn says at a glance, how entries are listed, and when a file
// counts as changed.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "host/store/store.hpp"
#include "host/store/turn_facts.hpp"
#include "support/time_text.hpp"

namespace {

namespace fs = std::filesystem;
using host::store::Store;

TEST(TurnFacts, ActivityLineAndFile) {
    struct Row {
        std::string tool;
        std::optional<std::string> input;
        std::string activity;
        std::optional<std::string> file;
    };
    std::string cut = R"({"file_path": "/repo/big.txt", "content": ")";
    cut.resize(30000, 'a');
    const std::vector<Row> rows = {
        {"Read", R"({"file_path": "/repo/src/a.py"})", "Read src/a.py", "src/a.py"},
        {"MultiEdit", R"({"file_path": "/repo/src/a.py", "edits": []})", "Edited src/a.py",
         "src/a.py"},
        {"Write", R"({"file_path": "/repo/./src//b.py", "content": "x"})", "Wrote src/b.py",
         "src/b.py"},
        {"read_file", R"({"target_file": "src/c.py"})", "Read src/c.py", "src/c.py"},
        {"Read", R"("{\"filePath\": \"/repo/d.py\"}")", "Read d.py", "d.py"},
        {"Read", R"({"file_path": "/etc/hosts"})", "Read /etc/hosts", "/etc/hosts"},
        // Cut at the hooks' limit of 30,000 characters: the path before the cut is still found.
        {"Write", cut, "Wrote big.txt", "big.txt"},
        {"Bash", R"({"command": "make test\nmake lint"})", "Ran `make test ...`", std::nullopt},
        {"run_terminal_cmd", R"({"command": "  ls   -la  "})", "Ran `ls -la`", std::nullopt},
        {"Grep", R"({"pattern": "getUser", "path": "/repo/src"})", "Searched for getUser", "src"},
        {"WebFetch", R"({"url": "https://example.org"})", "Used WebFetch", std::nullopt},
        {"Task", std::nullopt, "Used Task", std::nullopt},
        {"Read", "not json", "Used Read", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.tool + " " + row.input.value_or("(none)"));
        const auto facts = host::store::describe_tool_turn(row.tool, row.input, "/repo");
        EXPECT_EQ(facts.activity, row.activity);
        EXPECT_EQ(facts.file, row.file);
    }
}

TEST(TurnFacts, OneLine) {
    EXPECT_EQ(host::store::one_line("  Add\tpaging\n\nto  the list ", 100),
              "Add paging to the list");
    EXPECT_EQ(host::store::one_line("h\xc3\xa9llo world", 5), "h\xc3\xa9llo...");
    EXPECT_EQ(host::store::one_line("hello", 5), "hello");
}

TEST(TimeText, Iso8601) {
    EXPECT_EQ(support::iso8601_utc(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(support::iso8601_utc(951782400999), "2000-02-29T00:00:00Z");
    EXPECT_EQ(support::iso8601_utc(-1), "1969-12-31T23:59:59Z");
}

class StoreApi : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-store-XXXXXX";
        root_ = ::mkdtemp(pattern);
    }
    void TearDown() override { fs::remove_all(root_); }

    void write(const std::string& name, const std::string& content, int age_s = 86400) {
        std::ofstream(root_ / name, std::ios::binary) << content;
        fs::last_write_time(root_ / name,
                            fs::file_time_type::clock::now() - std::chrono::seconds(age_s));
    }
    void store(const std::string& target, const std::string& importance,
               const std::string& scope = "file") {
        host::store::Understanding u;
        u.target = target;
        u.importance = importance;
        u.scope = scope;
        open(Store::Access::write).store_understanding(u);
    }
    Store open(Store::Access access) { return Store::open(access, root_.string()); }
    std::vector<std::string> listed(std::size_t limit, bool include_fresh) {
        std::vector<std::string> out;
        for (const auto& e :
             open(Store::Access::read).understanding_stats(limit, include_fresh).entries) {
            out.push_back(e.target + (e.fresh ? "" : " stale"));
        }
        return out;
    }

    fs::path root_;
};

TEST_F(StoreApi, StatsListStaleThenImportanceThenRecency) {
    for (const char* name : {"a.py", "b.py", "c.py", "d.py"}) write(name, "x");
    store("a.py", "low");
    store("b.py", "high");
    store("c.py", "medium");
    store("d.py", "high");
    store("pkg", "medium", "module");  // not a file: never stale
    fs::remove(root_ / "c.py");

    EXPECT_EQ(listed(10, true),
              (std::vector<std::string>{"c.py stale", "d.py", "b.py", "pkg", "a.py"}));
    EXPECT_EQ(listed(2, true), (std::vector<std::string>{"c.py stale", "d.py"}));
    EXPECT_EQ(listed(10, false), std::vector<std::string>{"c.py stale"});
    EXPECT_EQ(listed(0, true), std::vector<std::string>{});
    EXPECT_EQ(open(Store::Access::read).understanding_stats(0, false).total, 5);
}

TEST_F(StoreApi, FreshnessFollowsTheContent) {
    auto fresh = [&] { return open(Store::Access::read).recall_understanding("f.py")->fresh; };
    write("f.py", "one");
    store("f.py", "high");
    EXPECT_TRUE(fresh());

    write("f.py", "one", 10);  // touched, same content
    EXPECT_TRUE(fresh());
    write("f.py", "two", 10);  // same size, new content
    EXPECT_FALSE(fresh());

    // Stored right after a write: an edit within the same time stamp is still seen.
    write("f.py", "one", 0);
    store("f.py", "high");
    const auto stamp = fs::last_write_time(root_ / "f.py");
    std::ofstream(root_ / "f.py", std::ios::binary) << "two";
    fs::last_write_time(root_ / "f.py", stamp);
    EXPECT_FALSE(fresh());

    fs::remove(root_ / "f.py");
    EXPECT_FALSE(fresh());
}

}  // namespace
