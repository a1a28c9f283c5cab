// The JSON reader: exactly the grammar of RFC 8259, in one pass that also checks the UTF-8 of
// strings. Iterative, so that the depth limit, not the stack, bounds a hostile document.
#include <charconv>
#include <cstdio>
#include <vector>

#include "support/byte_scan.hpp"
#include "support/json.hpp"
#include "support/utf8.hpp"

namespace support {

namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The end of the number literal at `p`. When the text there is not a JSON number, `problem`
// says why and the result points at the byte where it went wrong.
const char* scan_number(const char* p, const char* end, bool& integer, const char*& problem) {
    integer = true;
    problem = nullptr;
    auto digits = [&](const char* what) {
        if (p == end || !is_digit(*p)) {
            problem = what;
            return false;
        }
        while (p != end && is_digit(*p)) ++p;
        return true;
    };
    if (p != end && *p == '-') ++p;
    if (p != end && *p == '0') {
        ++p;
        if (p != end && is_digit(*p)) {
            problem = "leading zero in a number";
            return p;
        }
    } else if (!digits("missing digit in a number")) {
        return p;
    }
    if (p != end && *p == '.') {
        integer = false;
        ++p;
        if (!digits("missing digit after '.' in a number")) return p;
    }
    if (p != end && (*p == 'e' || *p == 'E')) {
        integer = false;
        ++p;
        if (p != end && (*p == '+' || *p == '-')) ++p;
        if (!digits("missing digit in the exponent of a number")) return p;
    }
    return p;
}

// Whether a literal that a double cannot hold is too large rather than too small: its first
// significant digit stands at a positive power of ten.
bool overflows(std::string_view literal) {
    std::size_t i = literal.front() == '-' ? 1 : 0;
    long long magnitude = -1;  // the power of ten of the first significant digit, before 'e'
    if (literal[i] != '0') {
        for (; i < literal.size() && is_digit(literal[i]); ++i) ++magnitude;
    } else if (i + 1 < literal.size() && literal[i + 1] == '.') {
        for (i += 2; i < literal.size() && literal[i] == '0'; ++i) --magnitude;
    }
    long long exponent = 0;
    if (const std::size_t e = literal.find_first_of("eE"); e != std::string_view::npos) {
        std::size_t k = e + 1;
        const bool negative = literal[k] == '-';
        if (literal[k] == '+' || literal[k] == '-') ++k;
        // Digits beyond a million cannot change the side of zero the sum falls on.
        for (; k < literal.size() && exponent < 1000000; ++k) {
            exponent = exponent * 10 + (literal[k] - '0');
        }
        if (negative) exponent = -exponent;
    }
    return magnitude + exponent > 0;
}

// A number from a literal that scan_number() accepted.
Json number_from(std::string_view literal, bool integer) {
    if (integer) return Json(Json::Integer{std::string(literal == "-0" ? "0" : literal)});
    double value = 0;
    const auto [ptr, ec] = std::from_chars(literal.data(), literal.data() + literal.size(), value);
    if (ec == std::errc()) return Json(value);
    if (overflows(literal)) return Json(Json::BigReal{std::string(literal)});
    return Json(literal.front() == '-' ? -0.0 : 0.0);  // too small: zero, as any reader rounds it
}

class Reader {
  public:
    explicit Reader(std::string_view text)
        : begin_(text.data()), p_(text.data()), end_(text.data() + text.size()) {}

    Json document();

  private:
    // An array or object being read, and the key of the member whose value comes next.
    struct Open {
        Json value;
        std::string key;
    };

    const char* begin_;
    const char* p_;
    const char* end_;

    [[noreturn]] void fail(const char* at, const char* expected) const;
    [[noreturn]] void fail_at(const char* at, const char* problem) const;
    void skip_space() {
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
    }
    void expect(char c, const char* expected) {
        if (p_ == end_ || *p_ != c) fail(p_, expected);
        ++p_;
    }
    Json scalar();
    std::string string_text();
    void escape(std::string& out);
    unsigned hex4(const char* escape_start);
    void key(Open& open);
};

void Reader::fail(const char* at, const char* expected) const {
    char found[32];
    if (at == end_) {
        std::snprintf(found, sizeof found, "the end of the text");
    } else if (*at > 0x20 && *at < 0x7F) {
        std::snprintf(found, sizeof found, "'%c'", *at);
    } else {
        std::snprintf(found, sizeof found, "byte 0x%02x", static_cast<unsigned char>(*at));
    }
    char buf[160];
    std::snprintf(buf, sizeof buf, "expected %s at position %zu, found %s", expected,
                  static_cast<std::size_t>(at - begin_), found);
    throw JsonParseError(buf);
}

void Reader::fail_at(const char* at, const char* problem) const {
    char buf[128];
    std::snprintf(buf, sizeof buf, "%s at position %zu", problem,
                  static_cast<std::size_t>(at - begin_));
    throw JsonParseError(buf);
}

Json Reader::document() {
    std::vector<Open> stack;
    skip_space();
    for (;;) {
        Json value;
        if (p_ != end_ && (*p_ == '[' || *p_ == '{')) {
            if (stack.size() == kMaxJsonDepth) {
                throw JsonDepthError("JSON document nested more than " +
                                     std::to_string(kMaxJsonDepth) + " levels deep at position " +
                                     std::to_string(p_ - begin_));
            }
            const bool is_object = *p_ == '{';
            ++p_;
            skip_space();
            Open open{is_object ? Json::object() : Json::array(), {}};
            if (p_ != end_ && *p_ == (is_object ? '}' : ']')) {
                ++p_;
                value = std::move(open.value);
            } else {
                if (is_object) key(open);
                stack.push_back(std::move(open));
                continue;
            }
        } else {
            value = scalar();
        }
        // A value is complete: hand it to its container, and close every container that ends
        // here, until one goes on with another value.
        for (;;) {
            skip_space();
            if (stack.empty()) {
                if (p_ != end_) fail(p_, "the end of the text");
                return value;
            }
            Open& top = stack.back();
            const bool is_object = top.value.is_object();
            if (is_object) {
                top.value.set(std::move(top.key), std::move(value));
            } else {
                top.value.push_back(std::move(value));
            }
            if (p_ != end_ && *p_ == ',') {
                ++p_;
                skip_space();
                if (is_object) key(top);
                break;
            }
            expect(is_object ? '}' : ']', is_object ? "',' or '}'" : "',' or ']'");
            value = std::move(top.value);
            stack.pop_back();
        }
    }
}

void Reader::key(Open& open) {
    if (p_ == end_ || *p_ != '"') fail(p_, "a string key");
    open.key = string_text();
    skip_space();
    expect(':', "':'");
    skip_space();
}

Json Reader::scalar() {
    if (p_ == end_) fail(p_, "a value");
    switch (*p_) {
        case '"':
            return Json(string_text());
        case 't':
            if (end_ - p_ >= 4 && std::string_view(p_, 4) == "true") {
                p_ += 4;
                return Json(true);
            }
            break;
        case 'f':
            if (end_ - p_ >= 5 && std::string_view(p_, 5) == "false") {
                p_ += 5;
                return Json(false);
            }
            break;
        case 'n':
            if (end_ - p_ >= 4 && std::string_view(p_, 4) == "null") {
                p_ += 4;
                return Json();
            }
            break;
        default:
            if (*p_ == '-' || is_digit(*p_)) {
                bool integer = true;
                const char* problem = nullptr;
                const char* number_end = scan_number(p_, end_, integer, problem);
                if (problem != nullptr) fail_at(number_end, problem);
                const std::string_view literal(p_, static_cast<std::size_t>(number_end - p_));
                p_ = number_end;
                return number_from(literal, integer);
            }
    }
    fail(p_, "a value");
}

std::string Reader::string_text() {
    const char* start = p_;
    ++p_;  // the opening quote
    std::string out;
    for (;;) {
        const char* run = p_;
        while (p_ != end_) {
            p_ = byte_scan::end_of_plain_ascii(p_, end_, true);
            if (p_ == end_) break;
            const auto c = static_cast<unsigned char>(*p_);
            if (c < 0x80) break;  // the quote, the backslash or a control character
            const std::size_t pos = static_cast<std::size_t>(p_ - begin_);
            const std::size_t len =
                utf8_sequence_length(std::string_view(begin_, end_ - begin_), pos);
            if (len == 0) fail_at(p_, "invalid UTF-8 in a string");
            p_ += len;
        }
        out.append(run, p_);
        if (p_ == end_) fail_at(start, "unterminated string starting");
        if (*p_ == '"') {
            ++p_;
            return out;
        }
        if (*p_ == '\\') {
            escape(out);
        } else {
            fail_at(p_, "unescaped control character in a string");
        }
    }
}

unsigned Reader::hex4(const char* escape_start) {
    unsigned unit = 0;
    for (int k = 0; k < 4; ++k, ++p_) {
        const int digit = p_ == end_ ? -1 : hex_value(*p_);
        if (digit < 0) fail_at(escape_start, "invalid \\u escape");
        unit = unit << 4 | static_cast<unsigned>(digit);
    }
    return unit;
}

void Reader::escape(std::string& out) {
    const char* start = p_;
    ++p_;  // the backslash
    const char c = p_ == end_ ? '\0' : *p_++;
    switch (c) {
        case '"':
        case '\\':
        case '/':
            out += c;
            return;
        case 'b':
            out += '\b';
            return;
        case 'f':
            out += '\f';
            return;
        case 'n':
            out += '\n';
            return;
        case 'r':
            out += '\r';
            return;
        case 't':
            out += '\t';
            return;
        case 'u':
            break;
        default:
            fail_at(start, "invalid escape");
    }
    const unsigned unit = hex4(start);
    if (unit >= 0xD800 && unit < 0xDC00 && end_ - p_ >= 6 && p_[0] == '\\' && p_[1] == 'u') {
        const char* second = p_;
        p_ += 2;
        const unsigned low = hex4(second);
        if (low >= 0xDC00 && low < 0xE000) {
            append_utf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
            return;
        }
        p_ = second;  // not a pair: the next escape stands on its own
    }
    // A lone surrogate becomes its three-byte form (WTF-8).
    append_utf8(out, unit);
}

}  // namespace

Json parse_json(std::string_view text) {
    return Reader(text).document();
}

Json Json::number(std::string literal) {
    const char* begin = literal.data();
    const char* end = begin + literal.size();
    bool integer = true;
    const char* problem = nullptr;
    if (scan_number(begin, end, integer, problem) != end || problem != nullptr) {
        throw JsonParseError("not a JSON number: " + literal);
    }
    return number_from(literal, integer);
}

}  // namespace support
