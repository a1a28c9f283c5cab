#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/json_text.hpp"
#include "support/json_value.hpp"

using support::Json;
using support::JsonParseError;
using support::parse_json;

namespace {

TEST(JsonValueTest, TruthOfEveryKind) {
    for (const char* json : {"null", "false", "0", "0.0", "-0.0", R"("")", "[]", "{}"}) {
        EXPECT_FALSE(support::truthy(parse_json(json))) << json;
    }
    for (const char* json : {"true", "1", "-1", "0.5", "1e-300", "18446744073709551615", R"("0")",
                             R"(" ")", "[0]", "[[]]", R"({"a": 0})"}) {
        EXPECT_TRUE(support::truthy(parse_json(json))) << json;
    }
    EXPECT_FALSE(support::truthy(static_cast<const Json*>(nullptr)));
}

TEST(JsonValueTest, PlainTextOfScalars) {
    const struct {
        const char* json;
        const char* expected;
    } rows[] = {
        {R"("hi")", "hi"},   {R"("")", ""},    {R"("\u00e9 'q'")", "\xC3\xA9 'q'"},
        {"42", "42"},        {"-7", "-7"},     {"1.0", "1.0"},
        {"1e100", "1e+100"}, {"2.5", "2.5"},   {"true", "True"},
        {"false", "False"},  {"null", "None"}, {"18446744073709551615", "18446744073709551615"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(support::plain_text(parse_json(row.json)), row.expected) << row.json;
}

TEST(JsonValueTest, PlainTextOfContainersIsBracketed) {
    for (const std::string json : {"[]", R"([1, "a", null])", "{}", R"({"k": [true]})"}) {
        EXPECT_EQ(support::plain_text(parse_json(json)).front(), json.front()) << json;
    }
}

TEST(JsonValueTest, MemberReadsObjectsAndRefusesOtherKinds) {
    const Json object = parse_json(R"({"a": null})");
    ASSERT_NE(support::member(object, "a"), nullptr);
    EXPECT_TRUE(support::member(object, "a")->is_null());
    EXPECT_EQ(support::member(object, "b"), nullptr);
    for (const char* json : {"[1]", R"("a")", "null", "1", "true"}) {
        EXPECT_THROW(support::member(parse_json(json), "a"), support::TypeError) << json;
    }
}

TEST(JsonValueTest, ParseRejectsWhatIsNotOneDocument) {
    for (const char* text : {"", "   ", "\xEF\xBB\xBF{}", "{} x", "1 2", "{}{}", "[1,]", "{\"a\":1",
                             "\"\xff\"", "'a'"}) {
        EXPECT_THROW(parse_json(text), JsonParseError) << text;
    }
    EXPECT_EQ(parse_json(" \n{\"a\": 1}\t\r\n ").size(), 1u);
}

std::string nested(std::size_t depth, bool objects) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += objects ? "{\"a\":" : "[";
    text += "1";
    text.append(depth, objects ? '}' : ']');
    return text;
}

TEST(JsonValueTest, NestingTooDeepIsNotAParseError) {
    for (const bool objects : {false, true}) {
        // The deepest document we accept also writes back out.
        EXPECT_NO_THROW(support::to_json_text(parse_json(nested(1000, objects)))) << objects;
        try {
            parse_json(nested(100000, objects));
            ADD_FAILURE() << "no exception, objects=" << objects;
        } catch (const JsonParseError& e) {
            ADD_FAILURE() << "deep nesting reported as bad text: " << e.what();
        } catch (const std::runtime_error&) {
        }
    }
}

}  // namespace
