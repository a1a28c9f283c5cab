#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "cli_hooks/command/input.hpp"
#include "support/json_text.hpp"
#include "support/json_value.hpp"

using cli_hooks::Json;

namespace {

const std::string kBom = "\xEF\xBB\xBF";
const std::string kMisreadBom = "\xC3\xAF\xC2\xBB\xC2\xBF";  // "ï»¿"

// Debug log switched on into a directory of our own, so each case can read back what it logged.
class HookInputTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(dir_);
        setenv("ORVANE_HOOK_DEBUG", "1", 1);
        setenv("ORVANE_TAMBLO_LOG_DIR", dir_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("ORVANE_HOOK_DEBUG");
        std::filesystem::remove_all(dir_);
    }

    // The lines logged since the last call, without their "HH:MM:SS " stamps.
    std::string take_log() {
        std::string messages;
        std::ifstream in(dir_ / "hook_debug.log");
        for (std::string line; std::getline(in, line);) messages += line.substr(9) + "\n";
        std::filesystem::remove(dir_ / "hook_debug.log");
        return messages;
    }

    const std::filesystem::path dir_ = "/tmp/orvane-hook-input-" + std::to_string(getpid());
};

TEST_F(HookInputTest, ParsesOrForgivesInput) {
    const std::string failed = "read_json_input failed to parse stdin: ";
    const std::string type = "read_json_input: stdin not a JSON object (type=";
    const struct {
        const char* label;
        std::string input;
        const char* expected;
        std::string log;  // the one line logged, or its start; "" for none
    } rows[] = {
        {"empty", "", "{}", ""},
        {"bom and line feed", kBom + "\n", "{}", ""},
        {"boms, misread bom", kBom + kBom + kMisreadBom + R"({"a": 1})", R"({"a": 1})", ""},
        {"misread bom twice", kMisreadBom + kMisreadBom + "{}", "{}", failed},
        {"misread bom then bom", kMisreadBom + kBom + "{}", "{}", failed},
        {"blanks, unicode too", " \t\xC2\xA0\xE3\x80\x80\xE2\x80\xA8\r\n", "{}", ""},
        {"zero-width space", "\xE2\x80\x8B", "{}", failed},
        {"blanks around", "\n {\"k\": [1, \"\xC3\xA9\"]} \n", R"({"k": [1, "\u00e9"]})", ""},
        {"list", "[1,2]", "{}", type + "list)\n"},
        {"string", R"("s")", "{}", type + "str)\n"},
        {"int", "42", "{}", type + "int)\n"},
        {"float", "1e3", "{}", type + "float)\n"},
        {"bool", "false", "{}", type + "bool)\n"},
        {"null", "null", "{}", type + "NoneType)\n"},
        {"invalid utf-8", "{\"a\": \"\xff\"}", "{}", failed},
        {"text after value", R"({"a": 1} x)", "{}", failed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(support::to_json_text(cli_hooks::parse_hook_input(row.input)), row.expected);
        const std::string log = take_log();
        EXPECT_TRUE(log.starts_with(row.log)) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), row.log.empty() ? 0 : 1) << log;
    }
}

TEST(GetAgentTest, MapsAgentNames) {
    const struct {
        const char* agent;
        std::string_view expected;
    } rows[] = {
        {"GitHub", "copilot"},    {"COPILOT", "copilot"}, {"cursor", "cursor"},
        {"Windsurf", "windsurf"}, {" cursor", "claude"},  {"vim", "claude"},
    };
    for (const auto& row : rows) {
        cli_hooks::HookArgs args;
        args.agent = row.agent;
        EXPECT_EQ(cli_hooks::get_agent(args), row.expected) << "'" << row.agent << "'";
    }
}

TEST(ValidateSessionIdTest, AcceptsOnlySafeIds) {
    const std::string a100 = "Ab-9_z" + std::string(94, 'a');
    const std::optional<std::string> absent;
    const struct {
        const char* label;
        std::optional<Json> value;  // nullopt: the member is missing
        std::optional<std::string> expected;
    } rows[] = {
        {"100 chars of every allowed kind", Json(a100), a100},
        {"101 chars", Json(a100 + "a"), absent},
        {"100 chars and line feed", Json(a100 + "\n"), absent},
        {"final line feed kept", Json("abc\n"), "abc\n"},
        {"two line feeds", Json("abc\n\n"), absent},
        {"blank inside", Json("abc def"), absent},
        {"slash", Json("abc/def"), absent},
        {"missing", std::nullopt, absent},
        {"null", Json(nullptr), absent},
        {"empty", Json(""), absent},
        {"zero", Json(0), absent},
        {"list of 101", Json::array(Json::Array(101, Json(1))), absent},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(cli_hooks::validate_session_id(row.value ? &*row.value : nullptr), row.expected);
    }
    // Other non-empty kinds are a caller's mistake, not an unsafe id.
    for (const Json& value :
         {Json(42), Json(true), Json::array({"a"}), Json::object().set("a", 1)}) {
        EXPECT_THROW(cli_hooks::validate_session_id(&value), support::TypeError)
            << support::to_json_text(value);
    }
}

TEST(ValidateStringInputTest, TextFormCutByCharacters) {
    const struct {
        const char* label;
        std::optional<Json> value;
        std::size_t limit;  // 0: the default
        std::string expected;
    } rows[] = {
        {"missing", std::nullopt, 0, ""},
        {"null", Json(nullptr), 0, ""},
        {"int", Json(42), 0, "42"},
        {"30001 chars", Json(std::string(30001, 'x')), 0, std::string(30000, 'x')},
        {"characters, not bytes", Json("\xC3\xA9\xF0\x9F\x98\x80x"), 2, "\xC3\xA9\xF0\x9F\x98\x80"},
        {"a lone surrogate is one", Json("\xED\xA0\xBDxy"), 2, "\xED\xA0\xBDx"},
        {"list", Json::array({1, 2}), 1, "["},
    };
    for (const auto& row : rows) {
        const Json* value = row.value ? &*row.value : nullptr;
        EXPECT_EQ(row.limit ? cli_hooks::_validate_string_input(value, row.limit)
                            : cli_hooks::_validate_string_input(value),
                  row.expected)
            << row.label;
    }
}

}  // namespace
