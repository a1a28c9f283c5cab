#pragma once

#include <string>

#include "support/json.hpp"

namespace support {

// JSON for files that people read and edit: two spaces per level, one member or item per line,
// members in order, ": " after a key, empty arrays and objects as [] and {}, and a final line
// feed. Text stays UTF-8; only what JSON requires is escaped (the quotation mark, the backslash,
// control characters, and a lone surrogate as \udXXX). Numbers are written as to_json_text()
// writes them.
std::string to_pretty_json(const Json& value);

}  // namespace support
