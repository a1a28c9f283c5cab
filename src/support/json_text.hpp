#pragma once

#include <string>
#include <string_view>

#include "support/json.hpp"

namespace support {

// The one JSON text form this program writes: one line, ", " and ": " separators, members in
// insertion order, pure ASCII (lowercase \uXXXX, surrogate pairs beyond U+FFFF), the slash
// unescaped, numbers as format_double() writes them. Throws std::runtime_error for a string that
// is not valid UTF-8 or a document nested deeper than kMaxJsonDepth.
std::string to_json_text(const Json& value);

// Appends `text` (valid UTF-8) as a quoted, escaped JSON string.
void append_json_string(std::string& out, std::string_view text);

// The shortest decimal digits that read back to the same double, laid out as fixed notation with
// at least one digit after the point for exponents -4..15 and as d.ddde+XX outside that range.
std::string format_double(double value);

// Deepest nesting we parse or write; keeps every recursive walk of a document shallow.
inline constexpr std::size_t kMaxJsonDepth = 1000;

}  // namespace support
