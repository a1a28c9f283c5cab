#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "cli_hooks/output/response.hpp"

namespace {

// The block forms are only reachable here: no hook asks for a block yet.
TEST(ResponseTest, FormatsEachAgentsForms) {
    const std::optional<std::string_view> none;
    const struct {
        const char* agent;
        const char* event;  // nullptr: a system message carrying `context`
        std::string context;
        bool block;
        std::optional<std::string_view> reason;
        std::string expected;  // without the one closing line feed every response ends in
    } rows[] = {
        {"claude", "SessionStart", "Hi", false, none,
         R"({"hookSpecificOutput": {"hookEventName": "SessionStart", "additionalContext": "Hi"}})"},
        {"claude", "PreToolUse", "Hi", true, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi", )"
         R"("permissionDecision": "deny", "permissionDecisionReason": "No"}})"},
        {"claude", "PreToolUse", "Hi", true, "",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi", )"
         R"("permissionDecision": "deny"}})"},
        {"claude", "PreToolUse", "Hi", false, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi"}})"},
        {"claude", "PostToolUse", "Hi", true, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PostToolUse", "additionalContext": "Hi"}})"},
        {"claude", "Stop", "Hi", false, none,
         R"({"hookSpecificOutput": {"hookEventName": "Stop", "additionalContext": "Hi"}})"},
        {"claude", "UserPromptSubmit", "", false, none,
         R"({"hookSpecificOutput": {"hookEventName": "UserPromptSubmit"}})"},
        {"claude", "pre_prompt", "Hi", false, none, R"({"systemMessage": "Hi"})"},
        {"claude", "pretooluse", "Hi", true, "No", R"({"systemMessage": "Hi"})"},
        {"claude", "PreCompact", "", false, none, "{}"},
        {"vim", "PreToolUse", "Hi", true, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi", )"
         R"("permissionDecision": "deny", "permissionDecisionReason": "No"}})"},
        {"Windsurf", "pre_prompt", "Hi", false, none, R"({"systemMessage": "Hi"})"},
        {"copilot", "PreToolUse", "Hi", false, none, R"({"message": "Hi", "action": "approve"})"},
        {"copilot", "preToolUse", "Hi", false, "No", R"({"message": "Hi", "action": "approve"})"},
        {"copilot", "PRE_TOOL_USE", "Hi", false, none, R"({"message": "Hi", "action": "approve"})"},
        {"copilot", "pre-tool-use", "Hi", false, none, R"({"message": "Hi"})"},
        {"copilot", "PostToolUse", "", false, none, R"({"message": ""})"},
        {"copilot", "PostToolUse", "Hi", true, "No",
         R"({"message": "Hi", "action": "deny", "reason": "No"})"},
        {"copilot", "PreToolUse", "Hi", true, "", R"({"message": "Hi", "action": "deny"})"},
        {"cursor", "anything", "Hi", true, "No",
         R"({"output": "Hi", "block": true, "reason": "No"})"},
        {"cursor", "PreToolUse", "Hi", true, none, R"({"output": "Hi", "block": true})"},
        {"cursor", "PreToolUse", "Hi", false, "No", R"({"output": "Hi"})"},
        {"windsurf", "SessionStart", "", false, none, ""},
        {"windsurf", "PreToolUse", "a\nb \xC3\xA9\xF0\x9F\x98\x80 \"q\"", true, "No",
         "a\nb \xC3\xA9\xF0\x9F\x98\x80 \"q\""},
        // Pure ASCII on one line.
        {"claude", "SessionStart", "\xC3\xA9\xF0\x9F\x98\x80", false, none,
         R"({"hookSpecificOutput": {"hookEventName": "SessionStart", )"
         R"("additionalContext": "\u00e9\ud83d\ude00"}})"},
        {"copilot", "PostToolUse", "line 1\nline 2\t\"q\" \\ a/b\r", false, none,
         R"({"message": "line 1\nline 2\t\"q\" \\ a/b\r"})"},
        {"claude", nullptr, "Hi", false, none, R"({"systemMessage": "Hi"})"},
        {"claude", nullptr, "", false, none, R"({"systemMessage": ""})"},
        {"copilot", nullptr, "Hi", false, none, R"({"message": "Hi"})"},
        {"cursor", nullptr, "", false, none, R"({"output": ""})"},
        {"vim", nullptr, "a\n\xC3\xA9", false, none, R"({"systemMessage": "a\n\u00e9"})"},
        {"windsurf", nullptr, "a\n\xC3\xA9", false, none, "a\n\xC3\xA9"},
        {"windsurf", nullptr, "", false, none, ""},
        // A lone surrogate (kept from a \u escape): escaped in JSON, U+FFFD in plain text.
        {"claude", nullptr, "a\xED\xA0\xBD", false, none, R"({"systemMessage": "a\ud83d"})"},
        {"windsurf", "PreToolUse", "a\xED\xA0\xBD", false, none, "a\xEF\xBF\xBD"},
        {"windsurf", nullptr, "\xED\xB8\x80-\xED\x9F\xBF", false, none,
         "\xEF\xBF\xBD-\xED\x9F\xBF"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message()
                     << row.agent << " " << (row.event ? row.event : "(system)") << " '"
                     << row.context << "' block=" << row.block);
        EXPECT_EQ(row.event ? cli_hooks::format_response(row.agent, row.event, row.context,
                                                         row.block, row.reason)
                            : cli_hooks::format_system_message(row.agent, row.context),
                  row.expected + "\n");
    }
}

}  // namespace
