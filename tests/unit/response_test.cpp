#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "cli_hooks/output/response.hpp"

using cli_hooks::format_response;
using cli_hooks::format_system_message;

namespace {

// Every response ends in exactly one line feed, which the loops add to the expected text.
TEST(ResponseTest, FormatsEachAgentsResponse) {
    const struct {
        const char* agent;
        const char* event;
        std::string context;
        bool block;
        std::optional<std::string_view> reason;
        std::string expected;
    } rows[] = {
        // Claude Code
        {"claude", "SessionStart", "Hi", false, std::nullopt,
         R"({"hookSpecificOutput": {"hookEventName": "SessionStart", "additionalContext": "Hi"}})"},
        {"claude", "PreToolUse", "Hi", true, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi", )"
         R"("permissionDecision": "deny", "permissionDecisionReason": "No"}})"},
        {"claude", "pre_prompt", "Hi", false, std::nullopt, R"({"systemMessage": "Hi"})"},
        {"claude", "SessionStart", "", false, std::nullopt,
         R"({"hookSpecificOutput": {"hookEventName": "SessionStart"}})"},
        {"claude", "Stop", "Hi", false, std::nullopt,
         R"({"hookSpecificOutput": {"hookEventName": "Stop", "additionalContext": "Hi"}})"},
        {"claude", "UserPromptSubmit", "", false, std::nullopt,
         R"({"hookSpecificOutput": {"hookEventName": "UserPromptSubmit"}})"},
        {"claude", "PreCompact", "", false, std::nullopt, "{}"},
        {"claude", "pre_prompt", "", false, std::nullopt, "{}"},
        {"claude", "PreCompact", "", true, "No", "{}"},
        {"claude", "sessionstart", "Hi", false, std::nullopt, R"({"systemMessage": "Hi"})"},
        {"claude", "pretooluse", "Hi", true, "No", R"({"systemMessage": "Hi"})"},
        {"claude", "PostToolUse", "Hi", true, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PostToolUse", "additionalContext": "Hi"}})"},
        {"claude", "PreToolUse", "Hi", true, "",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi", )"
         R"("permissionDecision": "deny"}})"},
        {"claude", "PreToolUse", "Hi", false, "No",
         R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Hi"}})"},
        // Copilot
        {"copilot", "PreToolUse", "Hi", false, std::nullopt,
         R"({"message": "Hi", "action": "approve"})"},
        {"copilot", "preToolUse", "Hi", false, "No", R"({"message": "Hi", "action": "approve"})"},
        {"copilot", "PRE_TOOL_USE", "Hi", false, std::nullopt,
         R"({"message": "Hi", "action": "approve"})"},
        {"copilot", "pre-tool-use", "Hi", false, std::nullopt, R"({"message": "Hi"})"},
        {"copilot", "PostToolUse", "Hi", false, "No", R"({"message": "Hi"})"},
        {"copilot", "PostToolUse", "", false, std::nullopt, R"({"message": ""})"},
        {"copilot", "PostToolUse", "Hi", true, "No",
         R"({"message": "Hi", "action": "deny", "reason": "No"})"},
        {"copilot", "PreToolUse", "Hi", true, "", R"({"message": "Hi", "action": "deny"})"},
        // Cursor
        {"cursor", "anything", "Hi", true, "No",
         R"({"output": "Hi", "block": true, "reason": "No"})"},
        {"cursor", "PreToolUse", "Hi", false, "No", R"({"output": "Hi"})"},
        {"cursor", "PreToolUse", "Hi", true, std::nullopt, R"({"output": "Hi", "block": true})"},
        // Windsurf: plain text, everything but the context dropped
        {"windsurf", "SessionStart", "", false, std::nullopt, ""},
        {"windsurf", "PreToolUse", "Hi", true, "No", "Hi"},
        {"windsurf", "x", "a\nb \xC3\xA9\xF0\x9F\x98\x80 \"q\"", false, std::nullopt,
         "a\nb \xC3\xA9\xF0\x9F\x98\x80 \"q\""},
        // Any other agent text answers as Claude Code
        {"vim", "SessionStart", "Hi", false, std::nullopt,
         R"({"hookSpecificOutput": {"hookEventName": "SessionStart", "additionalContext": "Hi"}})"},
        {"vim", "pre_prompt", "Hi", false, std::nullopt, R"({"systemMessage": "Hi"})"},
        {"Windsurf", "PreCompact", "", false, std::nullopt, "{}"},
        // Encoding keeps the line whole and ASCII
        {"claude", "SessionStart", "\xC3\xA9\xF0\x9F\x98\x80", false, std::nullopt,
         R"({"hookSpecificOutput": {"hookEventName": "SessionStart", )"
         R"("additionalContext": "\u00e9\ud83d\ude00"}})"},
        {"copilot", "PostToolUse", "line 1\nline 2\t\"q\" \\ a/b", false, std::nullopt,
         R"({"message": "line 1\nline 2\t\"q\" \\ a/b"})"},
        {"cursor", "x", "\xF0\x9F\x98\x80\r", false, std::nullopt,
         R"({"output": "\ud83d\ude00\r"})"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(format_response(row.agent, row.event, row.context, row.block, row.reason),
                  row.expected + "\n")
            << row.agent << " " << row.event << " '" << row.context << "'";
    }
}

TEST(ResponseTest, FormatsSystemMessages) {
    const struct {
        const char* agent;
        const char* message;
        std::string expected;
    } rows[] = {
        {"claude", "Hi", R"({"systemMessage": "Hi"})"},
        {"copilot", "Hi", R"({"message": "Hi"})"},
        {"cursor", "Hi", R"({"output": "Hi"})"},
        {"windsurf", "Hi", "Hi"},
        {"vim", "Hi", R"({"systemMessage": "Hi"})"},
        {"claude", "", R"({"systemMessage": ""})"},
        {"copilot", "", R"({"message": ""})"},
        {"cursor", "", R"({"output": ""})"},
        {"windsurf", "", ""},
        {"vim", "", R"({"systemMessage": ""})"},
        {"claude", "a\n\xC3\xA9", R"({"systemMessage": "a\n\u00e9"})"},
        {"windsurf", "a\n\xC3\xA9", "a\n\xC3\xA9"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(format_system_message(row.agent, row.message), row.expected + "\n")
            << row.agent << " '" << row.message << "'";
    }
}

TEST(ResponseTest, EntryPointsWriteTheFormattedBytesToStdout) {
    testing::internal::CaptureStdout();
    cli_hooks::output_response("copilot", "PreToolUse", "Hi");
    cli_hooks::output_system_message("windsurf", "Bye");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "{\"message\": \"Hi\", \"action\": \"approve\"}\nBye\n");
}

}  // namespace
