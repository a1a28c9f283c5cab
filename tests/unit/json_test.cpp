#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/json_text.hpp"
#include "support/json_value.hpp"

using support::Json;
using support::parse_json;
using support::to_json_text;

namespace {

TEST(JsonTextTest, StringsArePureAsciiWithMinimalEscapes) {
    const struct {
        std::string text, expected;
    } rows[] = {
        {"\xC3\xA9\xF0\x9F\x98\x80", R"("\u00e9\ud83d\ude00")"},
        {"\n\r\t\b\f", R"("\n\r\t\b\f")"},
        {std::string("\0\x01\x1f\x7f", 4), R"("\u0000\u0001\u001f\u007f")"},
        {"say \"hi\" \\ a/b", R"("say \"hi\" \\ a/b")"},
    };
    for (const auto& row : rows) EXPECT_EQ(to_json_text(Json(row.text)), row.expected) << row.text;
    EXPECT_THROW(to_json_text(Json("abc\xff")), std::runtime_error);
    EXPECT_THROW(to_json_text(Json{{"\xC3", 1}}), std::runtime_error);
}

TEST(JsonTextTest, StructureKeepsOrderAndSeparators) {
    const struct {
        const char* input;
        const char* expected;
    } rows[] = {
        // Input order; a repeated key keeps its first position and its last value.
        {R"({"b":1,"a":2,"b":3})", R"({"b": 3, "a": 2})"},
        {R"({"k":[1,{"x":null,"y":[true,false]}],"e":{},"l":[]})",
         R"({"k": [1, {"x": null, "y": [true, false]}], "e": {}, "l": []})"},
        {"[-5, 0, 18446744073709551615, -9223372036854775808]",
         "[-5, 0, 18446744073709551615, -9223372036854775808]"},
        {R"({"a\/b": "\u00e9"})", R"({"a/b": "\u00e9"})"},
    };
    for (const auto& row : rows) EXPECT_EQ(to_json_text(parse_json(row.input)), row.expected);
}

TEST(JsonTextTest, DoublesUseShortestRoundTripDigits) {
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
        EXPECT_EQ(support::format_double(row.value), row.expected);
        EXPECT_EQ(to_json_text(Json(row.value)), row.expected);
    }
}

TEST(JsonValueTest, TruthAndPlainText) {
    for (const char* json : {"null", "false", "0", "0.0", "-0.0", R"("")", "[]", "{}"}) {
        EXPECT_FALSE(support::truthy(parse_json(json))) << json;
    }
    for (const char* json :
         {"true", "1", "1e-300", "18446744073709551615", R"("0")", "[0]", R"({"a": 0})"}) {
        EXPECT_TRUE(support::truthy(parse_json(json))) << json;
    }
    EXPECT_FALSE(support::truthy(static_cast<const Json*>(nullptr)));

    const struct {
        const char* json;
        const char* expected;
    } rows[] = {
        {R"("\u00e9 'q'")", "\xC3\xA9 'q'"},
        {"-7", "-7"},
        {"1.0", "1.0"},
        {"1e100", "1e+100"},
        {"true", "True"},
        {"false", "False"},
        {"null", "None"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(support::plain_text(parse_json(row.json)), row.expected) << row.json;
    }
    for (const std::string json : {R"([1, "a", null])", R"({"k": [true]})"}) {
        EXPECT_EQ(support::plain_text(parse_json(json)).front(), json.front()) << json;
    }
}

TEST(JsonValueTest, MemberReadsObjectsAndRefusesOtherKinds) {
    const Json object = parse_json(R"({"a": null})");
    ASSERT_NE(support::member(object, "a"), nullptr);
    EXPECT_EQ(support::member(object, "b"), nullptr);
    for (const char* json : {"[1]", R"("a")", "null", "1"}) {
        EXPECT_THROW(support::member(parse_json(json), "a"), support::TypeError) << json;
    }
}

TEST(JsonValueTest, ParseAcceptsExactlyOneDocument) {
    for (const char* text :
         {"", "   ", "\xEF\xBB\xBF{}", "{} x", "{}{}", "[1,]", "\"\xff\"", "'a'"}) {
        EXPECT_THROW(parse_json(text), support::JsonParseError) << text;
    }
    EXPECT_EQ(parse_json(" \n{\"a\": 1}\t\r\n ").size(), 1u);

    // Too deep is not bad text: callers that forgive bad text must still report it.
    for (const char* open : {"[", "{\"a\":"}) {
        std::string deepest, too_deep;
        for (int i = 0; i < 1000; ++i) deepest += open;
        for (int i = 0; i < 100; ++i) too_deep += deepest;
        const char close = open[0] == '[' ? ']' : '}';
        EXPECT_NO_THROW(to_json_text(parse_json(deepest + "1" + std::string(1000, close))));
        try {
            parse_json(too_deep + "1" + std::string(100000, close));
            ADD_FAILURE() << "no exception for " << open;
        } catch (const support::JsonParseError& e) {
            ADD_FAILURE() << "deep nesting reported as bad text: " << e.what();
        } catch (const std::runtime_error&) {
        }
    }
}

}  // namespace
