#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace store {

// What a tool turn tells a later session at a glance.
struct ToolTurnFacts {
    std::string activity;             // "Read src/a.py", "Ran `make test`", "Searched for x"
    std::optional<std::string> file;  // the file it touched, relative to the repository
};

// Derived from the tool's name and its input (JSON text, possibly cut at its limit and no longer
// valid). `root` is the canonical repository directory.
ToolTurnFacts describe_tool_turn(std::string_view tool_name,
                                 const std::optional<std::string>& tool_input,
                                 const std::string& root);

// `text` on one line: runs of white space (line breaks included) become one blank, none at the
// ends; cut to `max_chars` characters with "..." after a cut.
std::string one_line(std::string_view text, std::size_t max_chars);

}  // namespace store
