// What a tool turn says at a glance, and the store's time stamps.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "engines/store/turn_facts.hpp"
#include "support/time_text.hpp"

namespace {

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
        const auto facts = store::describe_tool_turn(row.tool, row.input, "/repo");
        EXPECT_EQ(facts.activity, row.activity);
        EXPECT_EQ(facts.file, row.file);
    }
}

TEST(TurnFacts, OneLine) {
    EXPECT_EQ(store::one_line("  Add\tpaging\n\nto  the list ", 100), "Add paging to the list");
    EXPECT_EQ(store::one_line("h\xc3\xa9llo world", 5), "h\xc3\xa9llo...");
    EXPECT_EQ(store::one_line("hello", 5), "hello");
}

TEST(TimeText, Iso8601) {
    EXPECT_EQ(support::iso8601_utc(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(support::iso8601_utc(951782400999), "2000-02-29T00:00:00Z");
    EXPECT_EQ(support::iso8601_utc(-1), "1969-12-31T23:59:59Z");
}

}  // namespace
