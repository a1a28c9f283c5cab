// suggest-tamblo: which patterns get the symbol-search nudge, the message, and the state file that
// keeps nudges at least ten minutes apart.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

// The getUser nudge, written out whole rather than through the helpers below.
const std::string kGetUserNudge =
    R"x({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "`getUser` )x"
    R"x(looks like symbol discovery \u2014 orvane-tamblo has this repo indexed: )x"
    R"x(`search(action=\"symbols\", query=\"getUser\")` finds definitions, )x"
    R"x(`symbol(action=\"callers\"/\"references\")` finds usages, `explore(query=...)` does )x"
    R"x(both. (Grep stays right for exact strings/edit anchoring; full playbook: the `tamblo` )x"
    R"x(skill.)"}})x"
    "\n";

// A JSON string body in pure ASCII, as the responses write it (two-byte UTF-8 and the em dash).
std::string json_body(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        unsigned code = c;
        if (c >= 0xE0) {
            code = (c & 0x0F) << 12 | (text[i + 1] & 0x3F) << 6 | (text[i + 2] & 0x3F);
            i += 2;
        } else if (c >= 0xC0) {
            code = (c & 0x1F) << 6 | (text[i + 1] & 0x3F);
            i += 1;
        }
        if (code == '\n') {
            out += "\\n";
        } else if (code == '"' || code == '\\') {
            out += '\\';
            out += static_cast<char>(code);
        } else if (code >= 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", code);
            out += buf;
        } else {
            out += static_cast<char>(code);
        }
    }
    return out;
}

std::string nudge(const std::string& pattern) {
    const std::string message =
        "`" + pattern +
        "` looks like symbol discovery \u2014 orvane-tamblo has this repo indexed: " +
        "`search(action=\"symbols\", query=\"" + pattern +
        "\")` finds definitions, `symbol(action=\"callers\"/\"references\")` finds usages, "
        "`explore(query=...)` does both. (Grep stays right for exact strings/edit anchoring; full "
        "playbook: the `tamblo` skill.)";
    return R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": ")" +
           json_body(message) + "\"}}\n";
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

const std::string kGuardPrefix = "orvane-tamblo hook suggest-tamblo error: ";

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

    HookRun suggest(const std::string& pattern_json, const std::vector<std::string>& args = {}) {
        return hook("suggest-tamblo", R"({"tool_input": {"pattern": )" + pattern_json + "}}", args);
    }

    // A state file written by a nudge just now: the time with a decimal point, no line feed.
    void expect_fresh_state() {
        const std::string text = read_file(state_);
        std::smatch m;
        ASSERT_TRUE(std::regex_match(text, m, std::regex(R"(\{"last_nudge": (\d+\.\d+)\})")))
            << text;
        EXPECT_NEAR(std::stod(m[1]), now_seconds(), 5.0);
    }

    fs::path index_dir_;  // holds the index marker index.db
    fs::path state_;
};

TEST_F(SuggestTamblo, GetUserNudgeByteForByte) {
    const HookRun r = suggest(R"("getUser")");
    EXPECT_EQ(r.out, kGetUserNudge);
    EXPECT_EQ(r.out, nudge("getUser")) << "the helper agrees with the literal";
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    expect_fresh_state();
}

TEST_F(SuggestTamblo, OnlyIdentifierShapedPatternsPass) {
    const struct {
        std::string pattern_json;
        std::optional<std::string> shown;  // the pattern as the nudge shows it; nullopt: silent
    } cases[] = {
        {R"("getUser")", "getUser"},
        {R"("_init")", "_init"},
        {R"("os.path.join")", "os.path.join"},
        {R"("abc\n")", "abc\n"},
        {"\"na\u00efve\"", "na\u00efve"},
        {"null", "None"},
        {R"("ab")", std::nullopt},
        {R"("1abc")", std::nullopt},
        {R"(".foo")", std::nullopt},
        {R"("foo bar")", std::nullopt},
        {R"("foo(")", std::nullopt},
        {R"("^foo")", std::nullopt},
        {R"("*.py")", std::nullopt},
        {R"("get_.*")", std::nullopt},
        {R"("")", std::nullopt},
        {R"("abc\n\n")", std::nullopt},
        {"\"\u00e9a1\"", std::nullopt},
        {"12345", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pattern_json);
        fs::remove(state_);
        const HookRun r = suggest(c.pattern_json);
        EXPECT_EQ(r.out, c.shown ? nudge(*c.shown) : "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(fs::exists(state_), c.shown.has_value());
    }
}

TEST_F(SuggestTamblo, OtherAgentsStaySilentWithoutTouchingState) {
    for (const char* agent : {"copilot", "cursor", "windsurf"}) {
        const HookRun r = suggest(R"("getUser")", {"--agent", agent});
        EXPECT_EQ(r.out, "") << agent;
        EXPECT_EQ(r.err, "") << agent;
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_FALSE(fs::exists(state_));
}

TEST_F(SuggestTamblo, RateLimitAndStateRepair) {
    const double now = now_seconds();
    const struct {
        std::string state;
        bool nudges;
    } cases[] = {
        {state_text(now - 599.9), false},
        {state_text(now - 600), true},
        {state_text(now + 1000), false},  // the clock was set back
        {"garbage", true},
        {"\xff\xfe\x80", true},
        {R"({"last_nudge": "soon"})", true},
        {R"({"last_nudge": " 100 "})", true},
        {R"({"last_nudge": true})", true},
        {"{}", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.state);
        write_file(state_, c.state);
        const HookRun r = suggest(R"("getUser")");
        EXPECT_EQ(r.out, c.nudges ? kGetUserNudge : "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        if (c.nudges) {
            expect_fresh_state();
        } else {
            EXPECT_EQ(read_file(state_), c.state);
        }
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
        const HookRun r = hook("suggest-tamblo", c.input);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err.rfind(kGuardPrefix, 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        if (c.state) {
            EXPECT_EQ(read_file(state_), *c.state);
        } else {
            EXPECT_FALSE(fs::exists(state_));
        }
    }
}

TEST_F(SuggestTamblo, UnwritableStateNudgesEveryTime) {
    // Root may write a read-only file, so a directory stands in for a state file that can be
    // neither read nor written.
    fs::create_directory(state_);
    for (int i = 0; i < 2; ++i) {
        const HookRun r = suggest(R"("getUser")");
        EXPECT_EQ(r.out, kGetUserNudge) << "run " << i;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_TRUE(fs::is_directory(state_));
}

TEST_F(SuggestTamblo, WithoutAnIndexTheStateIsLeftAlone) {
    const struct {
        const char* name;
        void (*make_marker)(const fs::path&);
    } cases[] = {
        {"no marker", [](const fs::path&) {}},
        {"directory", [](const fs::path& marker) { fs::create_directory(marker); }},
        {"dangling symlink",
         [](const fs::path& marker) { fs::create_symlink(marker.parent_path() / "gone", marker); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(index_dir_);
        fs::create_directories(index_dir_);
        write_file(state_, "garbage");
        c.make_marker(index_dir_ / "index.db");
        const HookRun r = suggest(R"("getUser")");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(read_file(state_), "garbage");
    }
}

}  // namespace
}  // namespace e2e
