#pragma once

#include <string>
#include <string_view>

#include "support/json.hpp"

namespace host::mcp {

// A tool's answer: one text for the model, marked as an error when the call failed.
inline support::Json text_result(const std::string& text, bool is_error = false) {
    using support::Json;
    Json content = Json::object().set("type", "text").set("text", text);
    Json result = Json::object().set("content", Json::array({content}));
    if (is_error) result.set("isError", true);
    return result;
}

inline std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

}  // namespace host::mcp
