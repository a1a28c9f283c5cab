// Hook input is read by the JSON grammar, no more and no less: what the grammar allows reaches
// the host as the agent wrote it (agents cut strings inside emoji and write big integers), and
// anything after the value makes the input unreadable.
#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;

class JsonInput : public HookTest {
  protected:
    // Runs one log-conversation turn, checking that the hook stays silent.
    void log_turn(const std::string& type, const std::string& input) {
        SCOPED_TRACE(input);
        fs::remove(scenario_ / "calls.log");
        expect_clean(hook("log-conversation", input, {"--type", type}), "");
    }
};

TEST_F(JsonInput, ValuesTheGrammarAllowsReachTheHost) {
    const struct {
        std::string type, input;
        Args call;
    } rows[] = {
        {"tool",
         R"({"session_id": "s1", "tool_name": "T", )"
         R"("tool_input": {"n": 123456789012345678901234567890, "s": "a\ud83d"}})",
         {"conversation", "log-turn", "--session-id=s1", "--type", "tool", "--tool-name", "T",
          "--tool-input", R"({"n": 123456789012345678901234567890, "s": "a\ud83d"})"}},
        {"tool",
         R"({"tool_name": "T", "tool_input": {"big": 1E400, "small": -1e999}})",
         {"conversation", "log-turn", "--type", "tool", "--tool-name", "T", "--tool-input",
          R"({"big": 1E400, "small": -1e999})"}},
        // A prompt is passed as text: the lone surrogate as its three bytes.
        {"user",
         R"({"session_id": "s1", "prompt": "a\ud83d"})",
         {"conversation", "log-turn", "--session-id=s1", "--type", "user", "--prompt",
          "a\xED\xA0\xBD"}},
        {"user",
         "\n {\"prompt\": \"\xC3\xA9\"} \n",
         {"conversation", "log-turn", "--type", "user", "--prompt", "\xC3\xA9"}},
    };
    for (const auto& row : rows) {
        log_turn(row.type, row.input);
        EXPECT_EQ(host_calls(), std::vector<Args>{row.call});
    }
    EXPECT_EQ(debug_log().find("read_json_input"), std::string::npos) << debug_log();
}

// Blank input, Unicode blanks too, is an empty object; so is input that is not an object or
// cannot be read (anything after the value, bytes that are not UTF-8), with one line in the log.
TEST_F(JsonInput, AnythingButAnObjectIsAnEmptyOne) {
    const std::string failed = "read_json_input failed to parse stdin: ";
    const std::string type = "read_json_input: stdin not a JSON object (type=";
    const struct {
        std::string input, log;  // log: the line between the dispatcher's two, or its start
    } rows[] = {
        {"", ""},
        {" \t\xC2\xA0\xE3\x80\x80\xE2\x80\xA8\r\n", ""},
        {"\xE2\x80\x8B", failed},  // a zero-width space is no blank
        {std::string(R"({"prompt": "x"})") + '\0', failed},
        {"{\"prompt\": \"\xff\"}", failed},
        {"[1,2]", type + "list)"},
        {R"("s")", type + "str)"},
        {"42", type + "int)"},
        {"1e3", type + "float)"},
        {"false", type + "bool)"},
        {"null", type + "NoneType)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        fs::remove(logs_ / "hook_debug.log");
        log_turn("user", row.input);
        EXPECT_EQ(host_calls(), std::vector<Args>{});
        const std::vector<std::string> messages = debug_messages();
        ASSERT_EQ(messages.size(), row.log.empty() ? 2u : 3u) << debug_log();
        if (!row.log.empty()) EXPECT_TRUE(messages[1].starts_with(row.log)) << messages[1];
    }
}

}  // namespace
}  // namespace e2e
