#include "support/json_text.hpp"

#include <charconv>
#include <cmath>
#include <stdexcept>

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

void append_value(std::string& out, const Json& value, std::size_t depth) {
    if (depth > kMaxJsonDepth) throw std::runtime_error("JSON value nested too deeply to encode");
    switch (value.type()) {
        case Json::value_t::null:
            out += "null";
            return;
        case Json::value_t::boolean:
            out += value.get<bool>() ? "true" : "false";
            return;
        case Json::value_t::number_integer:
            out += std::to_string(value.get<std::int64_t>());
            return;
        case Json::value_t::number_unsigned:
            out += std::to_string(value.get<std::uint64_t>());
            return;
        case Json::value_t::number_float:
            out += format_double(value.get<double>());
            return;
        case Json::value_t::string:
            append_json_string(out, value.get_ref<const std::string&>());
            return;
        case Json::value_t::array: {
            out += '[';
            bool first = true;
            for (const auto& item : value) {
                if (!first) out += ", ";
                first = false;
                append_value(out, item, depth + 1);
            }
            out += ']';
            return;
        }
        case Json::value_t::object: {
            out += '{';
            bool first = true;
            for (const auto& [key, item] : value.items()) {
                if (!first) out += ", ";
                first = false;
                append_json_string(out, key);
                out += ": ";
                append_value(out, item, depth + 1);
            }
            out += '}';
            return;
        }
        default:
            throw std::runtime_error("cannot encode this JSON value as text");
    }
}

}  // namespace

void append_json_string(std::string& out, std::string_view text) {
    if (auto error = utf8_error(text)) throw std::runtime_error(*error);
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        const char32_t cp = next_code_point(text, i);
        switch (cp) {
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
                if (cp >= 0x20 && cp < 0x7F) {
                    out += static_cast<char>(cp);
                } else if (cp < 0x10000) {
                    append_u_escape(out, static_cast<unsigned>(cp));
                } else {
                    const unsigned v = static_cast<unsigned>(cp) - 0x10000;
                    append_u_escape(out, 0xD800 + (v >> 10));
                    append_u_escape(out, 0xDC00 + (v & 0x3FF));
                }
        }
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
