#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "cli_hooks/query/runner.hpp"
#include "support/json_value.hpp"

using cli_hooks::_has_model_authored_understanding;
using cli_hooks::Json;

namespace {

// Only an understanding the agent stored counts; the indexer's stub is marked by the boolean true.
TEST(QueryTest, ModelAuthoredUnderstanding) {
    const struct {
        std::optional<std::string> result;  // JSON text, nullopt for no answer
        bool expected;
    } rows[] = {
        {std::nullopt, false},
        {"{}", false},
        {R"({"found": false})", false},
        {R"({"found": true})", true},
        {R"({"found": true, "understanding": null})", true},
        {R"({"understanding": {"auto_generated": true}, "found": true})", false},
        {R"({"found": true, "understanding": {"auto_generated": 1}})", true},
        {R"({"found": true, "understanding": {"auto_generated": "true"}})", true},
        {R"({"found": true, "understanding": {"auto_generated": false}})", true},
        {R"({"found": true, "understanding": {"auto_generated": null}})", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.result.value_or("nullopt"));
        std::optional<Json> result;
        if (row.result) result = support::parse_json(*row.result);
        EXPECT_EQ(_has_model_authored_understanding(result), row.expected);
    }
}

TEST(QueryTest, TruthyNonObjectIsATypeError) {
    for (const char* text : {"[1]", R"({"found": true, "understanding": [1]})"}) {
        SCOPED_TRACE(text);
        EXPECT_THROW(_has_model_authored_understanding(support::parse_json(text)),
                     support::TypeError);
    }
}

}  // namespace
