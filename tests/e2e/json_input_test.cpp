// Hook input is read by the JSON grammar, no more and no less: what the grammar allows reaches
// the host as the agent wrote it (agents cut strings inside emoji and write big integers), and
// anything after the value makes the input unreadable.
#include <algorithm>

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
        const HookRun r = hook("log-conversation", input, {"--type", type});
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
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
    };
    for (const auto& row : rows) {
        log_turn(row.type, row.input);
        EXPECT_EQ(host_calls(), std::vector<Args>{row.call});
    }
    EXPECT_EQ(debug_log().find("read_json_input"), std::string::npos) << debug_log();
}

TEST_F(JsonInput, NothingMayFollowTheValue) {
    log_turn("user", std::string(R"({"prompt": "x"})") + '\0');
    EXPECT_EQ(host_calls(), std::vector<Args>{});
    const std::vector<std::string> messages = debug_messages();
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& m) {
                                return m.starts_with("read_json_input failed to parse stdin: ");
                            }),
              1)
        << debug_log();
}

}  // namespace
}  // namespace e2e
