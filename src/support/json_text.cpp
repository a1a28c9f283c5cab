#include "support/json.hpp"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "support/byte_scan.hpp"
#include "support/utf8.hpp"

namespace support {

namespace {

constexpr char kHex[] = "0123456789abcdef";

void append_u_escape(std::string& out, unsigned unit) {
    out += "\\u";
    out += kHex[(unit >> 12) & 0xF];
    out += kHex[(unit >> 8) & 0xF];
    out += kHex[(unit >> 4) & 0xF];
    out += kHex[unit & 0xF];
}

[[noreturn]] void bad_string(const char* problem, std::string_view text, std::size_t pos) {
    char buf[96];
    std::snprintf(buf, sizeof buf, "invalid UTF-8: %s 0x%02x at position %zu", problem,
                  static_cast<unsigned char>(text[pos]), pos);
    throw std::runtime_error(buf);
}

void append_value(std::string& out, const Json& value, std::size_t depth) {
    if (depth > kMaxJsonDepth) throw JsonDepthError("JSON value nested too deeply to encode");
    switch (value.type()) {
        case Json::Type::null:
            out += "null";
            return;
        case Json::Type::boolean:
            out += value.as_bool() ? "true" : "false";
            return;
        case Json::Type::number:
            if (const auto* i = value.integer()) {
                out += i->digits;
            } else if (const double* r = value.real()) {
                out += format_double(*r);
            } else {
                out += value.big_real()->literal;
            }
            return;
        case Json::Type::string:
            append_json_string(out, value.as_string());
            return;
        case Json::Type::array: {
            out += '[';
            bool first = true;
            for (const Json& item : value.elements()) {
                if (!first) out += ", ";
                first = false;
                append_value(out, item, depth + 1);
            }
            out += ']';
            return;
        }
        case Json::Type::object: {
            out += '{';
            bool first = true;
            for (const auto& [key, item] : value.members()) {
                if (!first) out += ", ";
                first = false;
                append_json_string(out, key);
                out += ": ";
                append_value(out, item, depth + 1);
            }
            out += '}';
            return;
        }
    }
}

}  // namespace

void append_json_string(std::string& out, std::string_view text) {
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t run = i;
        i = static_cast<std::size_t>(
            byte_scan::end_of_plain_ascii(text.data() + i, text.data() + text.size(), false) -
            text.data());
        out.append(text, run, i - run);
        if (i == text.size()) break;
        const char c = text[i];
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x80) {
                    append_u_escape(out, static_cast<unsigned char>(c));
                    break;
                }
                const std::size_t len = utf8_sequence_length(text, i, true);
                if (len == 0) bad_string("cannot decode byte", text, i);
                std::size_t next = i;
                const char32_t cp = next_code_point(text, next);
                if (cp < 0x10000) {
                    // A high surrogate right before a low one would read back as one character.
                    if (cp >= 0xD800 && cp < 0xDC00 && next + 1 < text.size() &&
                        static_cast<unsigned char>(text[next]) == 0xED &&
                        static_cast<unsigned char>(text[next + 1]) >= 0xB0) {
                        bad_string("surrogate pair split in two at byte", text, i);
                    }
                    append_u_escape(out, static_cast<unsigned>(cp));
                } else {
                    const unsigned v = static_cast<unsigned>(cp) - 0x10000;
                    append_u_escape(out, 0xD800 + (v >> 10));
                    append_u_escape(out, 0xDC00 + (v & 0x3FF));
                }
                i = next;
                continue;
        }
        ++i;
    }
    out += '"';
}

std::string format_double(double value) {
    if (std::isnan(value)) return "NaN";
    if (std::isinf(value)) return value < 0 ? "-Infinity" : "Infinity";

    // Scientific to_chars gives the shortest round-trip digits and their decimal exponent; the
    // layout is then ours.
    char buf[64];
    const auto res = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific);
    std::string_view sci(buf, static_cast<std::size_t>(res.ptr - buf));

    std::string out;
    if (sci.front() == '-') {
        out += '-';
        sci.remove_prefix(1);
    }
    const std::size_t e_pos = sci.find('e');
    std::string digits;
    for (const char c : sci.substr(0, e_pos)) {
        if (c != '.') digits += c;
    }
    int exponent = 0;
    std::string_view exp_text = sci.substr(e_pos + 1);
    if (exp_text.front() == '+') exp_text.remove_prefix(1);
    std::from_chars(exp_text.data(), exp_text.data() + exp_text.size(), exponent);

    if (exponent >= -4 && exponent < 16) {
        if (exponent < 0) {
            out += "0.";
            out.append(static_cast<std::size_t>(-exponent - 1), '0');
            out += digits;
        } else {
            const std::size_t int_len = static_cast<std::size_t>(exponent) + 1;
            if (digits.size() <= int_len) {
                out += digits;
                out.append(int_len - digits.size(), '0');
                out += ".0";
            } else {
                out += digits.substr(0, int_len);
                out += '.';
                out += digits.substr(int_len);
            }
        }
    } else {
        out += digits[0];
        if (digits.size() > 1) {
            out += '.';
            out += digits.substr(1);
        }
        out += exponent < 0 ? "e-" : "e+";
        const int magnitude = exponent < 0 ? -exponent : exponent;
        if (magnitude < 10) out += '0';
        out += std::to_string(magnitude);
    }
    return out;
}

std::string to_json_text(const Json& value) {
    std::string out;
    append_value(out, value, 0);
    return out;
}

}  // namespace support
