#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "cli_hooks/command/input.hpp"
#include "support/json_text.hpp"
#include "support/json_value.hpp"

using cli_hooks::Json;
using cli_hooks::parse_hook_input;

namespace {

const std::string kBom = "\xEF\xBB\xBF";
const std::string kMisreadBom = "\xC3\xAF\xC2\xBB\xC2\xBF";  // "ï»¿"
constexpr const char* kParseFailed = "read_json_input failed to parse stdin: ";

// Debug log switched on into a fresh directory, so each case can read back what it logged.
class HookInputTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/orvane-unit-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        setenv("ORVANE_HOOK_DEBUG", "1", 1);
        setenv("ORVANE_TAMBLO_LOG_DIR", dir_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("ORVANE_HOOK_DEBUG");
        unsetenv("ORVANE_TAMBLO_LOG_DIR");
        std::filesystem::remove_all(dir_);
    }

    // The messages logged since the last call, without their "HH:MM:SS " stamps.
    std::vector<std::string> take_log() {
        const auto path = dir_ / "hook_debug.log";
        std::vector<std::string> messages;
        std::ifstream in(path);
        for (std::string line; std::getline(in, line);) {
            EXPECT_TRUE(line.size() > 9 && line[2] == ':' && line[5] == ':' && line[8] == ' ')
                << line;
            messages.push_back(line.substr(9));
        }
        in.close();
        std::filesystem::remove(path);
        return messages;
    }

    std::filesystem::path dir_;
};

TEST_F(HookInputTest, ParsesOrForgivesInput) {
    const std::string type_line = "read_json_input: stdin not a JSON object (type=";
    const struct {
        const char* label;
        std::string input;
        const char* expected;
        std::string log;  // "" for no line; kParseFailed matches as a prefix
    } rows[] = {
        {"empty", "", "{}", ""},
        {"bom and line feed", kBom + "\n", "{}", ""},
        {"two boms, misread bom", kBom + kBom + kMisreadBom + R"({"a": 1})", R"({"a": 1})", ""},
        {"many boms", kBom + kBom + kBom + kBom + kBom + R"({"a": 1})", R"({"a": 1})", ""},
        {"misread bom once", kMisreadBom + R"({"a": 1})", R"({"a": 1})", ""},
        {"misread bom twice", kMisreadBom + kMisreadBom + "{}", "{}", kParseFailed},
        {"misread bom then bom", kMisreadBom + kBom + "{}", "{}", kParseFailed},
        {"ascii blanks", " \t\r\n ", "{}", ""},
        {"unicode blanks", "\xC2\xA0\xE3\x80\x80\xE2\x80\xA8", "{}", ""},
        {"zero-width space", "\xE2\x80\x8B", "{}", kParseFailed},
        {"blanks around", "\n {\"k\": [1, \"\xC3\xA9\"]} \n", R"({"k": [1, "\u00e9"]})", ""},
        {"list", "[1,2]", "{}", type_line + "list)"},
        {"string", R"("s")", "{}", type_line + "str)"},
        {"int", "42", "{}", type_line + "int)"},
        {"float", "4.2", "{}", type_line + "float)"},
        {"exponent", "1e3", "{}", type_line + "float)"},
        {"bool", "false", "{}", type_line + "bool)"},
        {"null", "null", "{}", type_line + "NoneType)"},
        {"invalid utf-8", "{\"a\": \"\xff\"}", "{}", kParseFailed},
        {"text after value", R"({"a": 1} x)", "{}", kParseFailed},
        {"two values", "{}{}", "{}", kParseFailed},
        {"truncated", R"({"a": )", "{}", kParseFailed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(support::to_json_text(parse_hook_input(row.input)), row.expected);
        const auto log = take_log();
        if (row.log.empty()) {
            EXPECT_TRUE(log.empty()) << log.front();
        } else {
            ASSERT_EQ(log.size(), 1u);
            if (row.log == kParseFailed) {
                EXPECT_TRUE(log[0].starts_with(kParseFailed)) << log[0];
            } else {
                EXPECT_EQ(log[0], row.log);
            }
        }
    }
}

TEST_F(HookInputTest, NestingTooDeepEscapes) {
    try {
        parse_hook_input(std::string(100000, '[') + std::string(100000, ']'));
        ADD_FAILURE() << "no exception";
    } catch (const support::JsonParseError& e) {
        ADD_FAILURE() << "forgiven as bad text: " << e.what();
    } catch (const std::runtime_error&) {
    }
}

TEST(GetAgentTest, MapsAgentNames) {
    const struct {
        const char* agent;
        cli_hooks::AgentKind expected;
    } rows[] = {
        {"claude", cli_hooks::AGENT_CLAUDE},     {"GitHub", cli_hooks::AGENT_COPILOT},
        {"COPILOT", cli_hooks::AGENT_COPILOT},   {"cursor", cli_hooks::AGENT_CURSOR},
        {"Windsurf", cli_hooks::AGENT_WINDSURF}, {" cursor", cli_hooks::AGENT_CLAUDE},
        {"cursor ", cli_hooks::AGENT_CLAUDE},    {"vim", cli_hooks::AGENT_CLAUDE},
        {"", cli_hooks::AGENT_CLAUDE},
    };
    for (const auto& row : rows) {
        cli_hooks::HookArgs args;
        args.agent = row.agent;
        EXPECT_EQ(cli_hooks::get_agent(args), row.expected) << "'" << row.agent << "'";
    }
    EXPECT_EQ(cli_hooks::get_agent(cli_hooks::HookArgs{}), cli_hooks::AGENT_CLAUDE);
}

TEST(ValidateSessionIdTest, AcceptsOnlySafeIds) {
    const std::string a100(100, 'a');
    const struct {
        const char* label;
        std::optional<Json> value;  // nullopt: the member is missing
        std::optional<std::string> expected;
    } rows[] = {
        {"100 chars", Json(a100), a100},
        {"101 chars", Json(a100 + "a"), std::nullopt},
        {"99 chars and line feed", Json(a100.substr(1) + "\n"), a100.substr(1) + "\n"},
        {"100 chars and line feed", Json(a100 + "\n"), std::nullopt},
        {"all allowed kinds", Json("Ab-9_z"), "Ab-9_z"},
        {"missing", std::nullopt, std::nullopt},
        {"null", Json(nullptr), std::nullopt},
        {"empty", Json(""), std::nullopt},
        {"blank inside", Json("abc def"), std::nullopt},
        {"slash", Json("abc/def"), std::nullopt},
        {"final line feed", Json("abc\n"), "abc\n"},
        {"two line feeds", Json("abc\n\n"), std::nullopt},
        {"leading line feed", Json("\nabc"), std::nullopt},
        {"final carriage return", Json("abc\r"), std::nullopt},
        {"non-ascii letter", Json("\xC3\xA9"), std::nullopt},
        {"zero", Json(0), std::nullopt},
        {"zero float", Json(0.0), std::nullopt},
        {"false", Json(false), std::nullopt},
        {"empty list", Json::array(), std::nullopt},
        {"empty object", Json::object(), std::nullopt},
        {"list of 101", Json(std::vector<int>(101, 1)), std::nullopt},
    };
    for (const auto& row : rows) {
        const Json* value = row.value ? &*row.value : nullptr;
        EXPECT_EQ(cli_hooks::validate_session_id(value), row.expected) << row.label;
    }
}

TEST(ValidateSessionIdTest, OtherKindsAreTypeErrors) {
    for (const char* json : {"42", "1.5", "true", R"(["a"])", R"({"a": 1})"}) {
        const Json value = support::parse_json(json);
        EXPECT_THROW(cli_hooks::validate_session_id(&value), support::TypeError) << json;
    }
}

TEST(ValidateStringInputTest, TextFormCutByCharacters) {
    const std::string e_acute = "\xC3\xA9", grin = "\xF0\x9F\x98\x80";
    const struct {
        const char* label;
        std::optional<Json> value;
        std::size_t limit;
        std::string expected;
    } rows[] = {
        {"missing", std::nullopt, 30000, ""},
        {"null", Json(nullptr), 30000, ""},
        {"int", Json(42), 30000, "42"},
        {"true", Json(true), 30000, "True"},
        {"short text", Json("abc"), 30000, "abc"},
        {"30000 chars", Json(std::string(30000, 'x')), 30000, std::string(30000, 'x')},
        {"30001 chars", Json(std::string(30001, 'x')), 30000, std::string(30000, 'x')},
        {"multi-byte", Json(e_acute + e_acute + e_acute + e_acute + e_acute), 3,
         e_acute + e_acute + e_acute},
        {"astral", Json(e_acute + grin + "x"), 2, e_acute + grin},
        {"tool-name limit", Json(std::string(1001, 'n')), 1000, std::string(1000, 'n')},
        {"list cut", Json::array({1, 2}), 1, "["},
    };
    for (const auto& row : rows) {
        const Json* value = row.value ? &*row.value : nullptr;
        EXPECT_EQ(cli_hooks::_validate_string_input(value, row.limit), row.expected) << row.label;
    }
    const Json long_text(std::string(30001, 'y'));
    EXPECT_EQ(cli_hooks::_validate_string_input(&long_text).size(), 30000u);
}

}  // namespace
