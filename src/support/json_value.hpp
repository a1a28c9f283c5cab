#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "support/json.hpp"

namespace support {

// A value of the wrong kind where a step needs another (a member read from a list, a length
// taken of a number). Nothing forgiving catches it; it ends a hook through the dispatcher's guard.
class TypeError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Text that is not one JSON document (or not UTF-8).
class JsonParseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Parses exactly one JSON document (white space around it allowed, nothing after it).
// Throws JsonParseError for invalid text and std::runtime_error for nesting deeper than
// kMaxJsonDepth, so that callers who forgive bad text still report a document too deep to hold.
Json parse_json(std::string_view text);

// Absent, null, false, 0, "", [] and {} are false; everything else is true.
bool truthy(const Json& value);
inline bool truthy(const Json* value) {
    return value != nullptr && truthy(*value);
}
inline bool truthy(const std::optional<Json>& value) {
    return value && truthy(*value);
}

// The member `key` of `object`, or nullptr when it is missing. Throws TypeError when `object`
// is not an object, which is how a member read from a list or a text must fail.
const Json* member(const Json& object, std::string_view key);

// Text as it stands; other values as plain_text() of a message writes them: integers in
// decimal, other numbers as format_double(), True/False/None, lists and objects in a
// bracketed form ("[1, 'a']", "{'k': None}").
std::string plain_text(const Json& value);

// Name of the value's kind as the debug log reports it: list, str, int, float, bool, NoneType,
// dict.
const char* type_name(const Json& value);

}  // namespace support
