// suggest-tamblo: which patterns get the symbol-search nudge, the message, and the state file that
// keeps nudges at least ten minutes apart, replaced whole and never written through a link.
#include <chrono>
#include <cstdio>
#include <optional>
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

// Claude Code's response for the pattern getUser, written out whole; for other patterns the
// pattern as JSON shows it takes getUser's two places.
const std::string kGetUserNudge =
    "{\"hookSpecificOutput\": {\"hookEventName\": \"PreToolUse\", \"additionalContext\": "
    "\"`getUser` looks like symbol discovery \\u2014 orvane-tamblo has this repo indexed: "
    "`search(action=\\\"symbols\\\", query=\\\"getUser\\\")` finds definitions, "
    "`symbol(action=\\\"callers\\\"/\\\"references\\\")` finds usages, `explore(query=...)` does "
    "both. (Grep stays right for exact strings/edit anchoring; full playbook: the `tamblo` "
    "skill.)\"}}\n";

std::string nudge(const std::string& shown) {
    std::string out = kGetUserNudge;
    for (auto at = out.find("getUser"); at != std::string::npos;
         at = out.find("getUser", at + shown.size())) {
        out.replace(at, 7, shown);
    }
    return out;
}

double now_seconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string state_text(double last_nudge) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "{\"last_nudge\": %.3f}", last_nudge);
    return buf;
}

// The whole state file: the time of the last nudge, with a decimal point and no line feed.
const std::regex kState(R"(\{"last_nudge": (\d+\.\d+)\})");

class SuggestTamblo : public HookTest {
  protected:
    void SetUp() override {
        HookTest::SetUp();
        index_dir_ = repo_ / "memory/codebase-index";
        state_ = index_dir_ / ".suggest_state.json";
        fs::create_directories(index_dir_);
        write_file(index_dir_ / "index.db", "");
    }

    void TearDown() override {
        EXPECT_TRUE(host_calls().empty()) << "suggest-tamblo starts no child process";
        HookTest::TearDown();
    }

    // Runs a search and checks its response ("" for silence, else the pattern as the JSON
    // response shows it), and that only a nudge rewrote the state file, with the time just now.
    void expect_search(const std::string& pattern_json, const std::string& shown,
                       const std::vector<std::string>& args = {}) {
        const bool existed = fs::exists(state_);
        const std::string before = read_file(state_);
        expect_clean(
            hook("suggest-tamblo", R"({"tool_input": {"pattern": )" + pattern_json + "}}", args),
            shown.empty() ? "" : nudge(shown));
        const std::string text = read_file(state_);
        if (shown.empty()) {
            EXPECT_EQ(fs::exists(state_), existed);
            EXPECT_EQ(text, before);
            return;
        }
        std::smatch m;
        ASSERT_TRUE(std::regex_match(text, m, kState)) << text;
        EXPECT_NEAR(std::stod(m[1]), now_seconds(), 5.0);
    }

    fs::path index_dir_;  // holds the index marker index.db
    fs::path state_;
};

TEST_F(SuggestTamblo, OnlyIdentifierShapedPatternsNudge) {
    const struct {
        std::string pattern_json, shown;
    } nudged[] = {
        {R"("getUser")", "getUser"},           {R"("_init")", "_init"},
        {R"("os.path.join")", "os.path.join"}, {R"("abc\n")", R"(abc\n)"},
        {"\"na\u00efve\"", R"(na\u00efve)"},   {"null", "None"},
    };
    for (const auto& c : nudged) {
        SCOPED_TRACE(c.pattern_json);
        fs::remove(state_);
        expect_search(c.pattern_json, c.shown);
    }
    fs::remove(state_);
    for (const char* pattern_json :
         {R"("ab")", R"("1abc")", R"(".foo")", R"("foo bar")", R"("foo(")", R"("^foo")",
          R"("*.py")", R"("get_.*")", R"("")", R"("abc\n\n")", "\"\u00e9a1\""}) {
        SCOPED_TRACE(pattern_json);
        expect_search(pattern_json, "");
    }
}

// The states are stamped before the runs, so the time a run takes only adds to the interval: no
// case depends on how fast the hook starts.
TEST_F(SuggestTamblo, RateLimitAndStateRepair) {
    const double now = now_seconds();
    const struct {
        std::string state;
        bool nudges;
    } cases[] = {
        {state_text(now - 590), false},
        {state_text(now - 600), true},
        {state_text(now + 1000), false},  // the clock was set back
        {"{\"last_nudge\": \" " + std::to_string(now) + " \"}", false},
        {"garbage", true},
        {"\xff\xfe\x80", true},
        {R"({"last_nudge": "soon"})", true},
        {R"({"last_nudge": true})", true},
        {"{}", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.state);
        write_file(state_, c.state);
        expect_search(R"("getUser")", c.nudges ? "getUser" : "");
    }
}

TEST_F(SuggestTamblo, SilentWithoutTouchingTheState) {
    enum Marker { kFile, kNone, kDirectory, kDanglingLink };
    const struct {
        const char* agent;
        Marker marker;
    } cases[] = {
        {"copilot", kFile}, {"cursor", kFile},      {"windsurf", kFile},
        {"claude", kNone},  {"claude", kDirectory}, {"claude", kDanglingLink},
    };
    const fs::path marker = index_dir_ / "index.db";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.agent) + " marker " + std::to_string(c.marker));
        fs::remove_all(marker);
        if (c.marker == kFile) write_file(marker, "");
        if (c.marker == kDirectory) fs::create_directory(marker);
        if (c.marker == kDanglingLink) fs::create_symlink(index_dir_ / "gone", marker);
        write_file(state_, "garbage");  // a nudge would repair it
        expect_search(R"("getUser")", "", {"--agent", c.agent});
    }
}

TEST_F(SuggestTamblo, MalformedStateOrInputEndsThroughTheGuard) {
    const struct {
        std::optional<std::string> state;
        std::string input;
    } cases[] = {
        {"[]", R"({"tool_input": {"pattern": "getUser"}})"},
        {R"({"last_nudge": null})", R"({"tool_input": {"pattern": "getUser"}})"},
        {std::nullopt, R"({"tool_input": "x"})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input + " / " + c.state.value_or("no state"));
        fs::remove(state_);
        if (c.state) write_file(state_, *c.state);
        expect_guarded(hook("suggest-tamblo", c.input), "suggest-tamblo");
        EXPECT_EQ(read_file(state_), c.state.value_or(""));
        EXPECT_EQ(fs::exists(state_), c.state.has_value());
    }
}

TEST_F(SuggestTamblo, UnwritableStateNudgesEveryTime) {
    // Root may write a read-only file, so a directory stands in for a state file that can be
    // neither read nor written.
    fs::create_directory(state_);
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        expect_clean(hook("suggest-tamblo", R"({"tool_input": {"pattern": "getUser"}})"),
                     kGetUserNudge);
    }
    EXPECT_TRUE(fs::is_directory(state_));
}

// The state is written to a new file that replaces the old one: a link in its place is replaced,
// never written through, and a linked directory is not entered.
TEST_F(SuggestTamblo, SymbolicLinksAreNeverWrittenThrough) {
    const fs::path elsewhere = root_ / "elsewhere";
    fs::create_directories(elsewhere / "codebase-index");
    write_file(elsewhere / "codebase-index/index.db", "");
    write_file(root_ / "home/somefile", "precious");

    fs::create_symlink(root_ / "home/somefile", state_);
    expect_search(R"("getUser")", "getUser");
    EXPECT_EQ(read_file(root_ / "home/somefile"), "precious");
    EXPECT_FALSE(fs::is_symlink(state_));

    fs::remove_all(repo_ / "memory");
    fs::create_directory_symlink(elsewhere, repo_ / "memory");
    // The marker is only looked at, so the link counts there.
    expect_clean(hook("suggest-tamblo", R"({"tool_input": {"pattern": "getUser"}})"),
                 kGetUserNudge);
    EXPECT_FALSE(fs::exists(elsewhere / "codebase-index/.suggest_state.json"));
    EXPECT_EQ(fs::directory_iterator(elsewhere / "codebase-index")->path().filename(), "index.db");
}

// Nudges at the same moment each replace the whole file, so the last one's state stays whole;
// no temporary file is left behind.
TEST_F(SuggestTamblo, ConcurrentNudgesLeaveOneWholeState) {
    const RunOptions options = {.stdin_data = R"({"tool_input": {"pattern": "getUser"}})"};
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        write_file(state_, R"({"last_nudge": 1000.0})");
        for (const HookRun& r : run_together(20, {"hooks", "suggest-tamblo"}, options)) {
            EXPECT_TRUE(r.out == kGetUserNudge || r.out.empty()) << r.out;
            EXPECT_EQ(r.status, 0) << r.err;
        }
        ASSERT_TRUE(std::regex_match(read_file(state_), kState)) << read_file(state_);
        // index.db and the state
        ASSERT_EQ(std::distance(fs::directory_iterator(index_dir_), fs::directory_iterator()), 2);
    }
}

}  // namespace
}  // namespace e2e
