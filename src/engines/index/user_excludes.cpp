#include "engines/index/user_excludes.hpp"

#include <cctype>
#include <string_view>

#include "platform/env.hpp"
#include "platform/fs.hpp"
#include "platform/home.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"

namespace code_index {

namespace {

constexpr std::size_t kConfigLimit = 1 << 20;
constexpr int kIncludeDepth = 10;  // as git, which stops a loop of includes there

std::string lowered(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// A path as git's configuration means it: "~/" is the home directory, and a relative include is
// relative to the file that names it.
std::string expand(const std::string& value, const std::string& relative_to) {
    if (value.starts_with("~/")) {
        if (const auto home = platform::home_directory()) {
            return platform::join_path(*home, value.substr(2));
        }
    }
    if (relative_to.empty() || platform::is_absolute_path(value)) return value;
    return platform::join_path(relative_to, value);
}

// Reads git's configuration syntax: "[section]" or "[section "sub"]" headers, "key = value" lines
// with quotes, escapes, comments and continued lines.
class ConfigScanner {
  public:
    explicit ConfigScanner(std::string_view text) : text_(text) {}

    // The next variable as "section.key" (section and key lowered, only when the section has no
    // subsection) and its value; false at the end.
    bool next(std::string& name, std::optional<std::string>& value) {
        while (pos_ < text_.size()) {
            const char c = text_[pos_];
            if (is_blank(c) || c == '\n' || c == '\r') {
                ++pos_;
            } else if (c == '#' || c == ';') {
                skip_line();
            } else if (c == '[') {
                header();
            } else {
                const std::size_t start = pos_;
                while (
                    pos_ < text_.size() &&
                    (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '-')) {
                    ++pos_;
                }
                if (pos_ == start) {  // not a variable: passed over, as nothing git would read
                    skip_line();
                    continue;
                }
                name = section_ + "." + lowered(text_.substr(start, pos_ - start));
                while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
                value.reset();
                if (pos_ < text_.size() && text_[pos_] == '=') {
                    ++pos_;
                    value = read_value();
                } else {
                    skip_line();
                }
                return true;
            }
        }
        return false;
    }

  private:
    void skip_line() {
        const std::size_t end = text_.find('\n', pos_);
        pos_ = end == std::string_view::npos ? text_.size() : end + 1;
    }

    void header() {
        const std::size_t close = text_.find(']', pos_);
        const std::size_t line_end = text_.find('\n', pos_);
        if (close == std::string_view::npos || close > line_end) {
            section_ = "\n";  // matches no name we look for
            skip_line();
            return;
        }
        const std::string_view inside = text_.substr(pos_ + 1, close - pos_ - 1);
        // A subsection, new ("core "x"") or old ("core.x") style, is never the section we read.
        section_ =
            inside.find_first_of(" \t\".") == std::string_view::npos ? lowered(inside) : "\n";
        pos_ = close + 1;
    }

    std::string read_value() {
        while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
        std::string out, blanks;  // blanks outside quotes count only when more follows
        bool quoted = false;
        while (pos_ < text_.size()) {
            const char c = text_[pos_];
            if (c == '\n' || (c == '\r' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '\n')) {
                break;
            }
            if (!quoted && (c == '#' || c == ';')) break;
            ++pos_;
            if (!quoted && is_blank(c)) {
                blanks += c;
                continue;
            }
            out += blanks;
            blanks.clear();
            if (c == '"') {
                quoted = !quoted;
            } else if (c == '\\' && pos_ < text_.size()) {
                const char e = text_[pos_++];
                if (e == '\n') continue;  // the value goes on on the next line
                if (e == '\r' && pos_ < text_.size() && text_[pos_] == '\n') {
                    ++pos_;
                    continue;
                }
                out += e == 'n' ? '\n' : e == 't' ? '\t' : e == 'b' ? '\b' : e;
            } else {
                out += c;
            }
        }
        skip_line();
        return out;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    std::string section_;
};

// Sets `found` from each core.excludesFile in the configuration file `path` and the files it
// includes, in the order git reads them.
void scan(const std::string& path, int depth, std::optional<std::string>& found) {
    std::optional<std::string> text;
    try {
        text = platform::read_regular_file(path, kConfigLimit);
    } catch (const platform::OsError&) {
        return;  // as a missing file: the user's configuration is advice here, not a must
    }
    if (!text) return;
    const platform::PathParts parts = platform::split_path(path);
    std::string directory = parts.root;
    for (std::size_t i = 0; i + 1 < parts.parts.size(); ++i) {
        directory = platform::join_path(directory, parts.parts[i]);
    }
    ConfigScanner scanner(*text);
    std::string name;
    std::optional<std::string> value;
    while (scanner.next(name, value)) {
        if (!value) continue;
        if (name == "core.excludesfile") found = expand(*value, "");
        if (name == "include.path" && depth < kIncludeDepth) {
            scan(expand(*value, directory), depth + 1, found);
        }
    }
}

}  // namespace

std::optional<std::string> user_excludes_file() {
    const auto home = platform::home_directory();
    auto xdg = platform::get_env("XDG_CONFIG_HOME");
    if (xdg && xdg->empty()) xdg.reset();
    if (!xdg && home) xdg = platform::join_path(*home, ".config");
    std::optional<std::string> found;
    if (xdg) scan(platform::join_path(*xdg, "git/config"), 0, found);
    if (home) scan(platform::join_path(*home, ".gitconfig"), 0, found);
    if (found) return found;
    if (xdg) return platform::join_path(*xdg, "git/ignore");
    return std::nullopt;
}

}  // namespace code_index
