#include "engines/index/ignore_rules.hpp"

#include <algorithm>
#include <cstring>

namespace code_index {

namespace {

constexpr std::size_t npos = std::string_view::npos;

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char other_case(char c) {
    if (c >= 'A' && c <= 'Z') return static_cast<char>(c - 'A' + 'a');
    if (c >= 'a' && c <= 'z') return static_cast<char>(c - 'a' + 'A');
    return c;
}

bool same_text(std::string_view a, std::string_view b, bool fold_case) {
    if (a.size() != b.size()) return false;
    if (!fold_case) return a == b;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// Whether `c` belongs to the POSIX class `name` ("alpha", ...); nullopt for an unknown name.
std::optional<bool> in_named_class(std::string_view name, unsigned char c, bool fold_case) {
    const bool upper = c >= 'A' && c <= 'Z', lower_case = c >= 'a' && c <= 'z';
    const bool digit = c >= '0' && c <= '9';
    const bool graph = c > 0x20 && c < 0x7f;
    if (name == "alnum") return upper || lower_case || digit;
    if (name == "alpha") return upper || lower_case;
    if (name == "blank") return c == ' ' || c == '\t';
    if (name == "cntrl") return c < 0x20 || c == 0x7f;
    if (name == "digit") return digit;
    if (name == "graph") return graph;
    if (name == "lower") return lower_case || (fold_case && upper);
    if (name == "print") return graph || c == ' ';
    if (name == "punct") return graph && !upper && !lower_case && !digit;
    if (name == "space") return c == ' ' || (c >= '\t' && c <= '\r');
    if (name == "upper") return upper || (fold_case && lower_case);
    if (name == "xdigit") return digit || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    return std::nullopt;
}

// Matches the one element of `glob` at `pos` (a character, an escape, "?" or a class) against
// `c`, moving `pos` past it. A malformed element (an unclosed class, a final backslash) matches
// nothing, so that the whole glob never matches, as git has it.
bool match_element(std::string_view glob, std::size_t& pos, char c, bool fold_case) {
    const char p = glob[pos];
    if (p == '?') {
        ++pos;
        return true;
    }
    if (p == '\\') {
        if (pos + 1 >= glob.size()) return false;
        pos += 2;
        return fold_case ? lower(glob[pos - 1]) == lower(c) : glob[pos - 1] == c;
    }
    if (p != '[') {
        ++pos;
        return fold_case ? lower(p) == lower(c) : p == c;
    }
    std::size_t i = pos + 1;
    const bool negated = i < glob.size() && (glob[i] == '!' || glob[i] == '^');
    if (negated) ++i;
    const auto u = static_cast<unsigned char>(c);
    const char alt = fold_case ? other_case(c) : c;
    bool found = false;
    int previous = -1;  // the last single character, which a following "-" makes a range's start
    for (bool first = true;; first = false) {
        if (i >= glob.size()) return false;
        char m = glob[i];
        if (m == ']' && !first) break;
        if (m == '[' && i + 1 < glob.size() && glob[i + 1] == ':') {
            const std::size_t end = glob.find(":]", i + 2);
            if (end != npos) {
                const auto in = in_named_class(glob.substr(i + 2, end - i - 2), u, fold_case);
                if (!in) return false;
                found = found || *in;
                previous = -1;
                i = end + 2;
                continue;
            }
        }
        if (m == '-' && previous >= 0 && i + 1 < glob.size() && glob[i + 1] != ']') {
            std::size_t j = i + 1;
            if (glob[j] == '\\' && j + 1 < glob.size()) ++j;
            const auto from = static_cast<unsigned char>(previous);
            const auto to = static_cast<unsigned char>(glob[j]);
            const auto a = static_cast<unsigned char>(alt);
            found = found || (u >= from && u <= to) || (a >= from && a <= to);
            previous = -1;
            i = j + 1;
            continue;
        }
        if (m == '\\') {
            if (++i >= glob.size()) return false;
            m = glob[i];
        }
        found = found || m == c || m == alt;
        previous = static_cast<unsigned char>(m);
        ++i;
    }
    pos = i + 1;
    return found != negated;
}

// fnmatch() of one name against one glob with no "/" in either: "*" matches any run.
bool match_general(std::string_view glob, std::string_view name, bool fold_case) {
    std::size_t g = 0, n = 0;
    std::size_t star_g = npos, star_n = 0;  // where the last "*" resumes on a mismatch
    while (n < name.size()) {
        if (g < glob.size() && glob[g] == '*') {
            while (g < glob.size() && glob[g] == '*') ++g;
            star_g = g;
            star_n = n;
            continue;
        }
        std::size_t next = g;
        if (g < glob.size() && match_element(glob, next, name[n], fold_case)) {
            g = next;
            ++n;
            continue;
        }
        // Only the last "*" need take one more character: an earlier one taking more could
        // only hand the later one less.
        if (star_g == npos) return false;
        g = star_g;
        n = ++star_n;
    }
    while (g < glob.size() && glob[g] == '*') ++g;
    return g == glob.size();
}

// The text with its escapes resolved, or nullopt when it holds any wildcard.
std::optional<std::string> plain(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '*' || c == '?' || c == '[') return std::nullopt;
        if (c == '\\') {
            if (++i == text.size()) return std::nullopt;
            out += text[i];
        } else {
            out += c;
        }
    }
    return out;
}

// The end of the pattern's text once trailing spaces are dropped; a space after a backslash
// stays.
std::size_t trimmed_end(std::string_view line) {
    std::size_t end = 0;
    for (std::size_t i = 0; i < line.size();) {
        if (line[i] == '\\' && i + 1 < line.size()) {
            i += 2;
            end = i;
        } else {
            if (line[i] != ' ') end = i + 1;
            ++i;
        }
    }
    return end;
}

// The components of a pattern, split at each "/" outside a class.
std::vector<std::string_view> components(std::string_view pattern) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= pattern.size(); ++i) {
        if (i + 1 < pattern.size() && pattern[i] == '\\') {
            if (pattern[++i] == '/') {  // an escaped "/" is still one
                parts.push_back(pattern.substr(start, i - 1 - start));
                start = i + 1;
            }
        } else if (i < pattern.size() && pattern[i] == '[') {
            const std::size_t close = pattern.find(']', i + 2);
            if (close != npos) i = close;
        } else if (i == pattern.size() || pattern[i] == '/') {
            parts.push_back(pattern.substr(start, i - start));
            start = i + 1;
        }
    }
    return parts;
}

}  // namespace

IgnoreList::Glob IgnoreList::compile(std::string_view text) {
    Glob glob;
    glob.text = std::string(text);
    if (!text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c == '*'; })) {
        glob.shape = text.size() > 1 ? Glob::Shape::globstar : Glob::Shape::suffix;
        return glob;  // "*" is the suffix "" of any name
    }
    if (auto whole = plain(text)) {
        glob.shape = Glob::Shape::literal;
        glob.literal = std::move(*whole);
        return glob;
    }
    const std::size_t first = text.find_first_not_of('*');
    if (first > 0) {
        if (auto tail = plain(text.substr(first))) {
            glob.shape = Glob::Shape::suffix;
            glob.literal = std::move(*tail);
            return glob;
        }
    }
    if (text.back() == '*' && text[text.size() - 2] != '\\') {
        if (auto head = plain(text.substr(0, text.find_last_not_of('*') + 1))) {
            glob.shape = Glob::Shape::prefix;
            glob.literal = std::move(*head);
            return glob;
        }
    }
    // An escape with nothing to escape leaves the glob unable to match.
    std::size_t backslashes = 0;
    for (std::size_t i = text.size(); i > 0 && text[i - 1] == '\\'; --i) ++backslashes;
    if (backslashes % 2 == 1) glob.shape = Glob::Shape::never;
    return glob;
}

IgnoreList::IgnoreList(std::string_view content, bool fold_case) : fold_case_(fold_case) {
    if (content.starts_with("\xEF\xBB\xBF")) content.remove_prefix(3);
    while (!content.empty()) {
        const std::size_t newline = content.find('\n');
        std::string_view line = content.substr(0, newline);
        content.remove_prefix(newline == npos ? content.size() : newline + 1);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty() || line[0] == '#') continue;
        line = line.substr(0, trimmed_end(line));
        Pattern pattern;
        if (line.starts_with('!')) {
            pattern.negated = true;
            line.remove_prefix(1);
        }
        if (line.ends_with('/')) {
            pattern.directory_only = true;
            line.remove_suffix(1);
        }
        if (line.empty()) continue;
        std::vector<std::string_view> parts = components(line);
        pattern.anchored = parts.size() > 1;
        if (pattern.anchored && parts.front().empty()) parts.erase(parts.begin());
        for (std::string_view part : parts) {
            Glob glob = compile(part);
            if (glob.shape == Glob::Shape::globstar) {
                if (!pattern.anchored) glob.shape = Glob::Shape::suffix;  // a lone "**" is a "*"
                if (!pattern.parts.empty() && pattern.parts.back().shape == glob.shape) continue;
                pattern.globstar = pattern.globstar || pattern.anchored;
            }
            pattern.parts.push_back(std::move(glob));
        }
        // A final "/**" matches what is inside, not the directory itself: one more component
        // at least.
        if (pattern.parts.back().shape == Glob::Shape::globstar) {
            pattern.parts.insert(pattern.parts.end() - 1, compile("*"));
        }
        patterns_.push_back(std::move(pattern));
    }
}

bool IgnoreList::matches(const Glob& glob, std::string_view name) const {
    switch (glob.shape) {
        case Glob::Shape::literal:
            return same_text(glob.literal, name, fold_case_);
        case Glob::Shape::suffix:
            return name.size() >= glob.literal.size() &&
                   same_text(glob.literal, name.substr(name.size() - glob.literal.size()),
                             fold_case_);
        case Glob::Shape::prefix:
            return name.size() >= glob.literal.size() &&
                   same_text(glob.literal, name.substr(0, glob.literal.size()), fold_case_);
        case Glob::Shape::general:
            return match_general(glob.text, name, fold_case_);
        case Glob::Shape::never:
        case Glob::Shape::globstar:
            break;
    }
    return false;
}

bool IgnoreList::matches_path(const Pattern& pattern, std::string_view path) const {
    const auto& parts = pattern.parts;
    if (!pattern.globstar) {
        for (std::size_t i = 0; i < parts.size(); ++i) {
            const std::size_t slash = path.find('/');
            if ((slash == npos) != (i + 1 == parts.size())) return false;
            if (!matches(parts[i], path.substr(0, slash))) return false;
            path.remove_prefix(slash == npos ? path.size() : slash + 1);
        }
        return true;
    }
    // "**" takes any run of whole components, as "*" takes any run of characters: on a mismatch
    // only the last "**" need take one more component.
    std::size_t p = 0, at = 0, star_p = npos, star_at = 0;
    const auto next_component = [&](std::size_t from) {
        const std::size_t slash = path.find('/', from);
        return slash == npos ? path.size() + 1 : slash + 1;
    };
    while (at <= path.size()) {
        if (p < parts.size() && parts[p].shape == Glob::Shape::globstar) {
            star_p = ++p;
            star_at = at;
            continue;
        }
        const std::size_t end = next_component(at);
        if (p < parts.size() && matches(parts[p], path.substr(at, end - 1 - at))) {
            ++p;
            at = end;
            continue;
        }
        if (star_p == npos) return false;
        p = star_p;
        at = star_at = next_component(star_at);
    }
    while (p < parts.size() && parts[p].shape == Glob::Shape::globstar) ++p;
    return p == parts.size();
}

std::optional<bool> IgnoreList::decide(std::string_view path, bool is_directory) const {
    const std::size_t slash = path.rfind('/');
    const std::string_view name = slash == npos ? path : path.substr(slash + 1);
    for (auto it = patterns_.rbegin(); it != patterns_.rend(); ++it) {
        if (it->directory_only && !is_directory) continue;
        if (it->anchored ? matches_path(*it, path) : matches(it->parts.front(), name)) {
            return !it->negated;
        }
    }
    return std::nullopt;
}

}  // namespace code_index
