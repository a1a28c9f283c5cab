// Hook input is read by the JSON grammar, no more and no less, after any byte-order marks: what
// the grammar allows reaches the host as the agent wrote it (agents cut strings inside emoji and
// write big integers), and anything after the value makes the input unreadable.
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
    // More members than are searched one by one: repeated ones still keep first place, last value.
    std::string many = "{", kept = "{";
    for (int i = 0; i < 20; ++i) {
        const std::string key = "\"k" + std::to_string(i) + "\": ";
        many += key + std::to_string(i) + ", ";
        kept += (i ? ", " : "") + key + (i == 7 ? "\"x\"" : i == 15 ? "\"y\"" : std::to_string(i));
    }
    const struct {
        std::string type, input;
        Args call;
    } rows[] = {
        // Our JSON text: members in input order, a repeated key in its first place with its last
        // value, integers digit for digit (-0 is 0), escapes only where needed, lone surrogates
        // kept.
        {"tool",
         "{\"session_id\": \"s1\", \"tool_name\": \"T\", \"tool_input\": \n\t\r"
         R"({"b":1,"a":2,"b":3,"k":[1,{"x":null,"y":[true,false]}],"e":{},"l":[ ],"a\/b":"\u00E9",)"
         R"("n":[-5,0,-0,18446744073709551616,-123456789012345678901234567890],)"
         R"("s":["a\ud83d","\uDE00x","\ud83d\ude00","\ud83d\ud83d\ude00","\ude00\ud83d"]}})"
         "\r\n ",
         {"conversation", "log-turn", "--session-id=s1", "--type", "tool", "--tool-name", "T",
          "--tool-input",
          R"({"b": 3, "a": 2, "k": [1, {"x": null, "y": [true, false]}], "e": {}, "l": [], )"
          R"("a/b": "\u00e9", "n": [-5, 0, 0, 18446744073709551616, )"
          R"(-123456789012345678901234567890], "s": ["a\ud83d", "\ude00x", "\ud83d\ude00", )"
          R"("\ud83d\ud83d\ude00", "\ude00\ud83d"]})"}},
        {"tool",
         R"({"tool_name": "T", "tool_input": {"big": 1E400, "small": -1e999}})",
         {"conversation", "log-turn", "--type", "tool", "--tool-name", "T", "--tool-input",
          R"({"big": 1E400, "small": -1e999})"}},
        {"tool",
         R"({"tool_name": "T", "tool_input": )" + many + R"("k7": "x", "k15": "y"}})",
         {"conversation", "log-turn", "--type", "tool", "--tool-name", "T", "--tool-input",
          kept + "}"}},
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

// Byte-order marks are read through, a misread one too; blank input, Unicode blanks too, is an
// empty object; so is input that is not an object or cannot be read (a second misread mark,
// anything after the value, bytes that are not UTF-8), with one line in the debug log.
TEST_F(JsonInput, ByteOrderMarksBlanksAndWhatIsNoObject) {
    const std::string json = R"({"prompt": "hi"})";
    const std::string bom = "\xEF\xBB\xBF";                     // U+FEFF
    const std::string latin1_bom = "\xC3\xAF\xC2\xBB\xC2\xBF";  // "ï»¿"
    const std::string failed = "read_json_input failed to parse stdin: ";
    const std::string type = "read_json_input: stdin not a JSON object (type=";
    const struct {
        std::string input;
        bool read;        // the prompt reaches the host
        std::string log;  // the line between the dispatcher's two, or its start (": "); "" for none
    } rows[] = {
        {bom + json, true, ""},
        {bom + bom + latin1_bom + json, true, ""},
        {latin1_bom + json, true, ""},
        {latin1_bom + latin1_bom + json, false, failed},
        {latin1_bom + bom + json, false, failed},
        {bom + "\n", false, ""},
        {"", false, ""},
        {" \t\xC2\xA0\xE3\x80\x80\xE2\x80\xA8\r\n", false, ""},
        {"\xE2\x80\x8B", false, failed},  // a zero-width space is no blank
        {json + '\0', false,
         failed + "expected the end of the text at position 16, found byte 0x00"},
        {"{\"prompt\": \"\xff\"}", false, failed},
        {"[1,2]", false, type + "list)"},
        {R"("s")", false, type + "str)"},
        {"42", false, type + "int)"},
        {"1e3", false, type + "float)"},
        {"false", false, type + "bool)"},
        {"null", false, type + "NoneType)"},
    };
    const std::vector<Args> read = {
        {"conversation", "log-turn", "--type", "user", "--prompt", "hi"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        fs::remove(logs_ / "hook_debug.log");
        log_turn("user", row.input);
        EXPECT_EQ(host_calls(), row.read ? read : std::vector<Args>{});
        expect_debug_line(row.log);
    }
}

}  // namespace
}  // namespace e2e
