#include "support/json_pretty.hpp"

#include <cstdio>

namespace support {

namespace {

void append_hex_escape(std::string& out, unsigned unit) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\u%04x", unit);
    out += buf;
}

// Like append_json_string, but characters beyond ASCII stay as they are, so that a user's own
// text in a configuration file still reads as they wrote it.
void append_readable_string(std::string& out, const std::string& text) {
    out += '"';
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        switch (c) {
            case '"':
                out += "\\\"";
                continue;
            case '\\':
                out += "\\\\";
                continue;
            case '\n':
                out += "\\n";
                continue;
            case '\r':
                out += "\\r";
                continue;
            case '\t':
                out += "\\t";
                continue;
            case '\b':
                out += "\\b";
                continue;
            case '\f':
                out += "\\f";
                continue;
            default:
                break;
        }
        if (c < 0x20 || c == 0x7f) {
            append_hex_escape(out, c);
        } else if (c == 0xed && i + 2 < text.size() &&
                   static_cast<unsigned char>(text[i + 1]) >= 0xa0) {
            // A lone surrogate, kept inside as its three-byte form: not UTF-8, so escape it.
            const unsigned unit = 0xd000u |
                                  ((static_cast<unsigned char>(text[i + 1]) & 0x3fu) << 6) |
                                  (static_cast<unsigned char>(text[i + 2]) & 0x3fu);
            append_hex_escape(out, unit);
            i += 2;
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
}

void newline(std::string& out, std::size_t depth) {
    out += '\n';
    out.append(depth * 2, ' ');
}

void append_pretty(std::string& out, const Json& value, std::size_t depth) {
    if (value.is_string()) {
        append_readable_string(out, value.as_string());
    } else if (value.is_array()) {
        if (value.empty()) {
            out += "[]";
            return;
        }
        out += '[';
        bool first = true;
        for (const Json& item : value.elements()) {
            if (!first) out += ',';
            first = false;
            newline(out, depth + 1);
            append_pretty(out, item, depth + 1);
        }
        newline(out, depth);
        out += ']';
    } else if (value.is_object()) {
        if (value.empty()) {
            out += "{}";
            return;
        }
        out += '{';
        bool first = true;
        for (const auto& [key, member] : value.members()) {
            if (!first) out += ',';
            first = false;
            newline(out, depth + 1);
            append_readable_string(out, key);
            out += ": ";
            append_pretty(out, member, depth + 1);
        }
        newline(out, depth);
        out += '}';
    } else {
        out += to_json_text(value);
    }
}

}  // namespace

std::string to_pretty_json(const Json& value) {
    std::string out;
    append_pretty(out, value, 0);
    out += '\n';
    return out;
}

}  // namespace support
