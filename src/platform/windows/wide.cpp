#include "platform/windows/wide.hpp"

#include <windows.h>

#include "support/utf8.hpp"

namespace platform::windows {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// The code point starting at text[i] (surrogates allowed), advancing i; U+FFFD for a bad byte.
char32_t decode(std::string_view text, std::size_t& i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    int length = 0;
    char32_t cp = 0;
    char32_t min = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, cp = lead & 0x1F, min = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, cp = lead & 0x0F, min = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, cp = lead & 0x07, min = 0x10000;
    } else {
        ++i;
        return kReplacement;
    }
    if (i + length > text.size()) {
        ++i;
        return kReplacement;
    }
    for (int k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) {
            ++i;
            return kReplacement;
        }
        cp = (cp << 6) | (byte(i + k) & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF) {
        ++i;
        return kReplacement;
    }
    i += length;
    return cp;
}

bool is_separator(wchar_t c) {
    return c == L'\\' || c == L'/';
}

}  // namespace

std::wstring widen(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const char32_t cp = decode(text, i);
        if (cp < 0x10000) {
            out += static_cast<wchar_t>(cp);
        } else {
            out += static_cast<wchar_t>(0xD800 + ((cp - 0x10000) >> 10));
            out += static_cast<wchar_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
        }
    }
    return out;
}

std::string narrow(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = text[i];
        if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] < 0xE000) {
            support::append_utf8(out, 0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00));
            ++i;
        } else {
            support::append_utf8(out, unit);
        }
    }
    return out;
}

std::wstring wide_path(std::string_view path) {
    std::wstring wide = widen(path);
    // Room for a file name below a directory of the classic limit's length.
    if (wide.size() < MAX_PATH - 12) return wide;
    const bool drive_absolute = wide.size() > 2 && wide[1] == L':' && is_separator(wide[2]);
    const bool unc =
        is_separator(wide[0]) && is_separator(wide[1]) && wide[2] != L'?' && wide[2] != L'.';
    if (!drive_absolute && !unc) return wide;
    // The \\?\ form is taken literally, so the path is brought to its full form first.
    std::wstring full(wide.size() + 1, L'\0');
    DWORD n = GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (n >= full.size()) {
        full.resize(n);
        n = GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    }
    if (n == 0 || n >= full.size()) return wide;
    full.resize(n);
    return unc ? L"\\\\?\\UNC\\" + full.substr(2) : L"\\\\?\\" + full;
}

}  // namespace platform::windows
