// check-cache, refresh-cache and remind-store: which file they ask about, when each speaks, the
// exact hint in every agent's form, and the inputs and answers that end a run early.
#include <algorithm>
#include <functional>

#include "harness.hpp"

namespace e2e {
namespace {

using Message = std::function<std::string(const std::string&)>;

const std::string kRecallKey = "query-understand-recall";
const std::string kDash = "\xE2\x80\x94";  // U+2014

std::string recall_hint(const std::string& p) {
    return "Cached understanding exists for `" + p + "` " + kDash +
           " consider `understand(action=\"recall\", target=\"" + p +
           "\")` before reading the full file (saves tokens).";
}
std::string stale_hint(const std::string& p) {
    return "Cached understanding exists for `" + p +
           "` but is **stale** (the file changed since it was cached). After reading, refresh it "
           "with `understand(action=\"store\", target=\"" +
           p + "\", ...)`.";
}
std::string refresh_hint(const std::string& p) {
    return "You modified `" + p +
           "`, which has a model-authored cached understanding; your edit may have made it "
           "outdated. If so, refresh it with `understand(action=\"store\", scope=\"file\", "
           "target=\"" +
           p +
           "\", purpose=\"...\", key_points=[...], gotchas=[...])` so future sessions stay "
           "accurate.";
}
std::string store_reminder(const std::string& p) {
    return "## Remember to Cache: " + p +
           "\n\nAfter analyzing this file:\n- `understand(action='store', scope='file', target='" +
           p +
           "', purpose='...', key_points=[...], gotchas=[...])` to cache insights\n"
           "- `remember(action='store', key='...', value='...')` for key decisions\n"
           "- `understand(action=\"recall\")` to find related cached understanding";
}

// The JSON string form of the texts above: ASCII escapes, the em dash as \u2014.
std::string json_string(const std::string& text) {
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, kDash.size(), kDash) == 0) {
            out += "\\u2014";
            i += kDash.size() - 1;
        } else if (text[i] == '\n') {
            out += "\\n";
        } else {
            if (text[i] == '"' || text[i] == '\\') out += '\\';
            out += text[i];
        }
    }
    return out + "\"";
}

std::string response(const std::string& agent, const std::string& event, const std::string& text) {
    if (agent == "windsurf") return text + "\n";
    if (agent == "cursor") return "{\"output\": " + json_string(text) + "}\n";
    if (agent == "copilot") {
        return "{\"message\": " + json_string(text) +
               (event == "PreToolUse" ? ", \"action\": \"approve\"}\n" : "}\n");
    }
    return "{\"hookSpecificOutput\": {\"hookEventName\": \"" + event +
           "\", \"additionalContext\": " + json_string(text) + "}}\n";
}

// Each agent's own place for the path.
std::string input_for(const std::string& agent, const std::string& path) {
    if (agent == "windsurf") return "{\"tool_info\": {\"file_path\": " + json_string(path) + "}}";
    if (agent == "copilot") return "{\"toolArgs\": " + json_string(path) + "}";
    if (agent == "cursor") return "{\"filePath\": " + json_string(path) + "}";
    return "{\"tool_input\": {\"file_path\": " + json_string(path) + "}}";
}

std::vector<std::string> recall_call(const std::string& target) {
    return {"query", "understand", "--action=recall", "--target=" + target};
}

class FileHints : public HookTest {
  protected:
    void expect_guard(const HookRun& r, const std::string& hook_name) {
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.rfind("orvane-tamblo hook " + hook_name + " error: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_TRUE(r.err.ends_with("\n")) << r.err;
    }
};

TEST_F(FileHints, EveryAgentGetsTheSameTextInItsOwnForm) {
    const std::string path = "src/app/main.py";
    const struct {
        std::string hook, answer, event;
        Message message;
    } hints[] = {
        {"check-cache", R"({"found": true, "fresh": true})", "PreToolUse", recall_hint},
        {"check-cache", R"({"found": true, "fresh": false})", "PreToolUse", stale_hint},
        {"refresh-cache", R"({"found": true})", "PostToolUse", refresh_hint},
        {"remind-store", R"({"found": false})", "PostToolUse", store_reminder},
    };
    for (const std::string agent : {"claude", "copilot", "cursor", "windsurf"}) {
        for (const auto& h : hints) {
            SCOPED_TRACE(agent + " " + h.hook + " " + h.answer);
            answer(kRecallKey, h.answer);
            const HookRun r = hook(h.hook, input_for(agent, path), {"--agent", agent});
            EXPECT_EQ(r.out, response(agent, h.event, h.message(path)));
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
            EXPECT_EQ(host_calls().back(), recall_call(path));
        }
    }
}

TEST_F(FileHints, WhenEachHookSpeaks) {
    const std::string model = R"({"found": true, "understanding": {"purpose": "x"}})";
    const std::string stale = R"({"found": true, "fresh": false})";
    const std::string automatic = R"({"found": true, "understanding": {"auto_generated": true}})";
    const std::string miss = R"({"found": false})";
    const struct {
        std::string hook, answer;
        int rc;
        Message message;  // nullptr: silent
        std::string event = "PostToolUse";
    } rows[] = {
        {"check-cache", R"({"found": true, "fresh": true})", 0, recall_hint, "PreToolUse"},
        {"check-cache", model, 0, recall_hint, "PreToolUse"},
        {"check-cache", stale, 0, stale_hint, "PreToolUse"},
        {"check-cache", automatic, 0, nullptr},
        {"check-cache", miss, 0, nullptr},
        {"check-cache", model, 1, nullptr},  // host down: its output is ignored
        {"refresh-cache", model, 0, refresh_hint},
        {"refresh-cache", stale, 0, refresh_hint},
        {"refresh-cache", automatic, 0, nullptr},
        {"refresh-cache", miss, 0, nullptr},
        {"refresh-cache", model, 1, nullptr},
        {"remind-store", model, 0, nullptr},
        {"remind-store", automatic, 0, nullptr},
        {"remind-store", miss, 0, store_reminder},
        {"remind-store", R"({"fresh": true})", 0, store_reminder},
        {"remind-store", model, 1, store_reminder},
    };
    const std::string input = R"({"tool_input": {"file_path": "src/a.py"}})";
    std::size_t calls = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.hook + " " + row.answer + " rc=" + std::to_string(row.rc));
        answer(kRecallKey, row.answer, row.rc);
        const HookRun r = hook(row.hook, input);
        EXPECT_EQ(r.out, row.message ? response("claude", row.event, row.message("src/a.py")) : "");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        ASSERT_EQ(host_calls().size(), ++calls) << "exactly one recall per run";
        EXPECT_EQ(host_calls().back(), recall_call("src/a.py"));
    }
}

TEST_F(FileHints, NoUsablePathStartsNoChild) {
    fs::create_directories(root_ / "other");
    const std::string outside = (fs::canonical(root_) / "other" / "x.py").string();
    for (const std::string input : {"", "{}", R"({"tool_input": {"file_path": ""}, "toolArgs": 0})",
                                    R"({"filePath": "../other/x.py"})"}) {
        for (const char* name : {"check-cache", "refresh-cache", "remind-store"}) {
            SCOPED_TRACE(std::string(name) + " " + input);
            const HookRun r = hook(name, input);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err, "");
            EXPECT_EQ(r.status, 0);
        }
    }
    EXPECT_TRUE(host_calls().empty());
    const auto messages = debug_messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(),
                         "extract_file_path rejected (outside cwd): " + outside),
              3);
}

TEST_F(FileHints, RecallAsksAboutTheRelativePathAsOneArgument) {
    answer(kRecallKey, R"({"found": true})");
    const std::string absolute = (repo_ / "src" / "app" / "main.py").string();
    ASSERT_EQ(hook("check-cache", R"({"filePath": ")" + absolute + R"("})").status, 0);
    ASSERT_EQ(hook("check-cache", R"({"toolArgs": "src/my file.py"})").status, 0);
    ASSERT_EQ(hook("check-cache", R"({"file_path": "a.py", "tool_info": "oops"})").status, 0);
    EXPECT_EQ(host_calls(), (std::vector<std::vector<std::string>>{recall_call("src/app/main.py"),
                                                                   recall_call("src/my file.py"),
                                                                   recall_call("a.py")}));
}

TEST_F(FileHints, NonObjectInputOrAnswerEndsThroughTheGuard) {
    for (const char* input : {R"({"tool_input": null, "filePath": "a.py"})",
                              R"({"tool_info": "oops", "toolArgs": "a.py"})"}) {
        SCOPED_TRACE(input);
        expect_guard(hook("check-cache", input), "check-cache");
    }
    EXPECT_TRUE(host_calls().empty());

    answer(kRecallKey, "[1]");
    for (const char* name : {"check-cache", "refresh-cache", "remind-store"}) {
        SCOPED_TRACE(name);
        expect_guard(hook(name, R"({"filePath": "a.py"})"), name);
    }
    EXPECT_EQ(host_calls().size(), 3u);
}

}  // namespace
}  // namespace e2e
