#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "support/json.hpp"

using support::Json;
using support::parse_json;
using support::to_json_text;
using namespace std::string_view_literals;

namespace {

// The rest of reading and writing back is checked through hook input (JsonInput): here, numbers
// that are no integers are doubles, except those beyond the double range, which keep their text;
// lone surrogates are held in their three-byte form.
TEST(JsonReadTest, DoublesAndLoneSurrogates) {
    EXPECT_EQ(to_json_text(parse_json(
                  "[1e2, 2.0, -0.0, 0.1, 1E400, -1e999, 1e-400, 1e99999999999999999999]")),
              "[100.0, 2.0, -0.0, 0.1, 1E400, -1e999, 0.0, 1e99999999999999999999]");
    EXPECT_EQ(parse_json(R"("a\ud83d")").as_string(), "a\xED\xA0\xBD");
    EXPECT_EQ(parse_json(R"("\ude00\ud83d\ude00")").as_string(), "\xED\xB8\x80\xF0\x9F\x98\x80");
}

TEST(JsonReadTest, RefusesWhatTheGrammarDoesNot) {
    const std::string_view structure[] = {""sv,          "   "sv,     "\xEF\xBB\xBF{}"sv,
                                          "{} x"sv,      "{}{}"sv,    "{}\0"sv,
                                          "1 \0"sv,      "[1,]"sv,    "{\"a\":1,}"sv,
                                          "{\"a\" 1}"sv, "{1: 2}"sv,  "[1 2]"sv,
                                          "["sv,         "{"sv,       "01"sv,
                                          "-01"sv,       "1."sv,      ".5"sv,
                                          "+1"sv,        "1e"sv,      "1e+"sv,
                                          "-"sv,         "NaN"sv,     "Infinity"sv,
                                          "tru"sv,       "nul"sv,     "'a'"sv,
                                          "/* c */ 1"sv, "\xC3\xA9"sv};
    // Strings: bad escapes, raw control characters, an end missing, bytes that are no UTF-8.
    const std::string_view strings[] = {
        "\"\\x\""sv,  "\"\\u12G4\""sv,      "\"\\ud83"sv,    "\"a\tb\""sv,
        "\"a\nb\""sv, "\"a\0\""sv,          "\"ab"sv,        "\"\xff\""sv,
        "\"\xC3\""sv, "\"\xED\xA0\xBD\""sv, "\"\xC0\xAF\""sv};
    using List = std::span<const std::string_view>;
    for (const List list : {List(structure), List(strings)}) {
        for (const std::string_view text : list) {
            EXPECT_THROW(parse_json(text), support::JsonParseError) << text;
        }
    }
}

TEST(JsonValueTest, NumbersAsDoublesAndAsText) {
    EXPECT_EQ(parse_json("1E400").as_double(), HUGE_VAL);
    EXPECT_EQ(parse_json("-1e999").as_double(), -HUGE_VAL);
    EXPECT_EQ(parse_json("-12").as_double(), -12.0);
    EXPECT_THROW(parse_json(R"("1")").as_double(), support::TypeError);
    EXPECT_EQ(to_json_text(Json::number("-1e999")), "-1e999");
    EXPECT_EQ(to_json_text(Json::number("-0")), "0");
    EXPECT_THROW(Json::number("1x"), support::JsonParseError);
}

TEST(JsonWriteTest, StringsArePureAsciiWithMinimalEscapes) {
    const struct {
        std::string text, expected;
    } rows[] = {
        {"\xC3\xA9\xF0\x9F\x98\x80", R"("\u00e9\ud83d\ude00")"},
        {"\n\r\t\b\f", R"("\n\r\t\b\f")"},
        {std::string("\0\x01\x1f\x7f", 4), R"("\u0000\u0001\u001f\u007f")"},
        {"say \"hi\" \\ a/b", R"("say \"hi\" \\ a/b")"},
        {"a\xED\xA0\xBD", R"("a\ud83d")"},
        {"\xED\xBF\xBF\xEF\xBF\xBF", R"("\udfff\uffff")"},
    };
    for (const auto& row : rows) EXPECT_EQ(to_json_text(Json(row.text)), row.expected) << row.text;
    // Not UTF-8 even with lone surrogates allowed: a byte that starts nothing, a cut sequence,
    // and a pair written as two surrogates.
    for (const char* text : {"abc\xff", "\xC3", "\xED\xA0\xBD\xED\xB8\x80"}) {
        EXPECT_THROW(to_json_text(Json(text)), std::runtime_error) << text;
        EXPECT_THROW(to_json_text(Json::object().set(text, 1)), std::runtime_error) << text;
    }
}

TEST(JsonWriteTest, DoublesUseShortestRoundTripDigits) {
    const struct {
        double value;
        const char* expected;
    } rows[] = {
        {2.0, "2.0"},
        {1e2, "100.0"},
        {-0.0, "-0.0"},
        {0.1, "0.1"},
        {1e15, "1000000000000000.0"},
        {1e16, "1e+16"},
        {1e-4, "0.0001"},
        {1e-5, "1e-05"},
        {1.5e-7, "1.5e-07"},
        {0.1 + 0.2, "0.30000000000000004"},
        {1.7976931348623157e308, "1.7976931348623157e+308"},
        {5e-324, "5e-324"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(to_json_text(Json(row.value)), row.expected);
    }
}

}  // namespace
