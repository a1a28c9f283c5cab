#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "support/json_text.hpp"
#include "support/json_value.hpp"

using support::Json;
using support::to_json_text;

namespace {

TEST(JsonTextTest, StringsArePureAsciiWithMinimalEscapes) {
    const struct {
        std::string text, expected;
    } rows[] = {
        {"plain", R"("plain")"},
        {"\xC3\xA9", R"("\u00e9")"},
        {"\xF0\x9F\x98\x80", R"("\ud83d\ude00")"},
        {"\xE2\x80\xA8", R"("\u2028")"},
        {"\n\r\t\b\f", R"("\n\r\t\b\f")"},
        {std::string("\0\x01\x1f", 3), R"("\u0000\u0001\u001f")"},
        {"\x7f", R"("\u007f")"},
        {"say \"hi\" \\ now", R"("say \"hi\" \\ now")"},
        {"a/b", R"("a/b")"},
    };
    for (const auto& row : rows) EXPECT_EQ(to_json_text(Json(row.text)), row.expected) << row.text;
}

TEST(JsonTextTest, InvalidUtf8TextThrows) {
    EXPECT_THROW(to_json_text(Json("abc\xff")), std::runtime_error);
    EXPECT_THROW(to_json_text(Json{{"\xC3", 1}}), std::runtime_error);
}

TEST(JsonTextTest, StructureKeepsOrderAndSeparators) {
    const struct {
        const char* input;
        const char* expected;
    } rows[] = {
        {R"({"b":1,"a":2})", R"({"b": 1, "a": 2})"},
        // A repeated key keeps its first position and its last value.
        {R"({"a":1,"b":2,"a":3})", R"({"a": 3, "b": 2})"},
        {R"({"k":[1,{"x":null,"y":[true,false]}],"e":{},"l":[]})",
         R"({"k": [1, {"x": null, "y": [true, false]}], "e": {}, "l": []})"},
        {"[-5, 0, 18446744073709551615, -9223372036854775808]",
         "[-5, 0, 18446744073709551615, -9223372036854775808]"},
        {R"({"a\/b": "\u00e9"})", R"({"a/b": "\u00e9"})"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(to_json_text(support::parse_json(row.input)), row.expected) << row.input;
    }
}

TEST(JsonTextTest, DoublesUseShortestRoundTripDigits) {
    const struct {
        double value;
        const char* expected;
    } rows[] = {
        {2.0, "2.0"},
        {1e2, "100.0"},
        {-0.0, "-0.0"},
        {0.0, "0.0"},
        {-2.5, "-2.5"},
        {1e15, "1000000000000000.0"},
        {1e16, "1e+16"},
        {1.5e-7, "1.5e-07"},
        {0.1, "0.1"},
        {1e-4, "0.0001"},
        {1e-5, "1e-05"},
        {123.456, "123.456"},
        {1.7976931348623157e308, "1.7976931348623157e+308"},
        {5e-324, "5e-324"},
        {1763330000.25, "1763330000.25"},
        {1763330000.0, "1763330000.0"},
        {0.1 + 0.2, "0.30000000000000004"},
        {1.2345e100, "1.2345e+100"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(support::format_double(row.value), row.expected);
        EXPECT_EQ(to_json_text(Json(row.value)), row.expected);
    }
}

}  // namespace
