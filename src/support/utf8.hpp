#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace support {

// A description of the first malformed sequence, or nullopt when `bytes` is valid UTF-8.
// Surrogates, overlong forms and values above U+10FFFF are malformed, as in strict decoders.
std::optional<std::string> utf8_error(std::string_view bytes);

// Length of the well-formed sequence at `pos`, or 0 when it is malformed. With `allow_surrogates`
// the three-byte forms of U+D800..U+DFFF count as well-formed too (WTF-8, which is how our JSON
// strings keep a lone surrogate escape).
std::size_t utf8_sequence_length(std::string_view bytes, std::size_t pos,
                                 bool allow_surrogates = false);

// Decodes the code point at `pos` of valid UTF-8 (or WTF-8) and moves `pos` past it.
char32_t next_code_point(std::string_view text, std::size_t& pos);

void append_utf8(std::string& out, char32_t cp);

// Appends WTF-8 `text` with each lone surrogate replaced by U+FFFD, which makes it valid UTF-8.
void append_surrogates_replaced(std::string& out, std::string_view text);

// Characters of valid UTF-8 or WTF-8 (a lone surrogate is one character).
std::size_t code_point_count(std::string_view text);

// The first `max_code_points` characters of valid UTF-8 or WTF-8, never splitting a character.
std::string_view cut_code_points(std::string_view text, std::size_t max_code_points);

// White space in the Unicode sense (what a Unicode-aware isspace() accepts), not only JSON's.
bool is_unicode_space(char32_t cp);

// Valid UTF-8 `text` without the Unicode white space at its two ends.
std::string_view trim_unicode_space(std::string_view text);

// True when `text` is empty or holds nothing but Unicode white space. Malformed UTF-8 is not
// white space, so callers may ask before validating and leave the error to the parser.
bool is_blank(std::string_view text);

}  // namespace support
