#include "support/utf8.hpp"

#include "support/byte_scan.hpp"

#include <cstdio>

namespace support {

std::size_t utf8_sequence_length(std::string_view s, std::size_t i, bool allow_surrogates) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char b0 = byte(i);
    if (b0 < 0x80) return 1;
    std::size_t len;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3;
        if (b0 == 0xE0) lo = 0xA0;                       // overlong
        if (b0 == 0xED && !allow_surrogates) hi = 0x9F;  // surrogates
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4;
        if (b0 == 0xF0) lo = 0x90;  // overlong
        if (b0 == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
        return 0;
    }
    if (i + len > s.size()) return 0;
    if (byte(i + 1) < lo || byte(i + 1) > hi) return 0;
    for (std::size_t k = 2; k < len; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    }
    return len;
}

std::optional<std::string> utf8_error(std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t len = utf8_sequence_length(bytes, i);
        if (len == 0) {
            char buf[96];
            std::snprintf(buf, sizeof buf,
                          "invalid UTF-8: cannot decode byte 0x%02x at position %zu",
                          static_cast<unsigned char>(bytes[i]), i);
            return std::string(buf);
        }
        i += len;
    }
    return std::nullopt;
}

char32_t next_code_point(std::string_view text, std::size_t& pos) {
    const auto b = [&](std::size_t k) {
        return static_cast<char32_t>(static_cast<unsigned char>(text[k]));
    };
    const char32_t b0 = b(pos);
    if (b0 < 0x80) {
        pos += 1;
        return b0;
    }
    if (b0 < 0xE0) {
        const char32_t cp = ((b0 & 0x1F) << 6) | (b(pos + 1) & 0x3F);
        pos += 2;
        return cp;
    }
    if (b0 < 0xF0) {
        const char32_t cp = ((b0 & 0x0F) << 12) | ((b(pos + 1) & 0x3F) << 6) | (b(pos + 2) & 0x3F);
        pos += 3;
        return cp;
    }
    const char32_t cp = ((b0 & 0x07) << 18) | ((b(pos + 1) & 0x3F) << 12) |
                        ((b(pos + 2) & 0x3F) << 6) | (b(pos + 3) & 0x3F);
    pos += 4;
    return cp;
}

void append_utf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

void append_surrogates_replaced(std::string& out, std::string_view text) {
    std::size_t done = 0;
    for (std::size_t i = 0; i + 2 < text.size(); ++i) {
        if (static_cast<unsigned char>(text[i]) == 0xED &&
            static_cast<unsigned char>(text[i + 1]) >= 0xA0) {
            out.append(text, done, i - done);
            out += "\xEF\xBF\xBD";
            i += 2;
            done = i + 1;
        }
    }
    out.append(text, done);
}

std::size_t code_point_count(std::string_view text) {
    std::size_t n = 0;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
    }
    return n;
}

std::string_view cut_code_points(std::string_view text, std::size_t max_code_points) {
    if (text.size() <= max_code_points) return text;  // no more characters than bytes
    std::size_t seen = 0;
    std::size_t i = 0;
    // Whole words while even eight more characters would not reach the limit.
    for (; i + 8 <= text.size() && seen + 8 <= max_code_points; i += 8) {
        seen += 8 - static_cast<std::size_t>(byte_scan::continuation_bytes(text.data() + i));
    }
    for (; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            if (seen == max_code_points) return text.substr(0, i);
            ++seen;
        }
    }
    return text;
}

bool is_unicode_space(char32_t cp) {
    switch (cp) {
        case 0x09:
        case 0x0A:
        case 0x0B:
        case 0x0C:
        case 0x0D:
        case 0x1C:
        case 0x1D:
        case 0x1E:
        case 0x1F:
        case 0x20:
        case 0x85:
        case 0xA0:
        case 0x1680:
        case 0x2028:
        case 0x2029:
        case 0x202F:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return cp >= 0x2000 && cp <= 0x200A;
    }
}

std::string_view trim_unicode_space(std::string_view text) {
    std::size_t begin = 0;
    for (std::size_t pos = 0; pos < text.size(); begin = pos) {
        if (!is_unicode_space(next_code_point(text, pos))) break;
    }
    std::size_t end = begin;
    for (std::size_t pos = begin; pos < text.size();) {
        if (!is_unicode_space(next_code_point(text, pos))) end = pos;
    }
    return text.substr(begin, end - begin);
}

bool is_blank(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        if (utf8_sequence_length(text, i) == 0) return false;
        if (!is_unicode_space(next_code_point(text, i))) return false;
    }
    return true;
}

}  // namespace support
