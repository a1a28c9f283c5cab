#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace code_index {

// The patterns of one ignore file (a .gitignore, .git/info/exclude, the global excludes file), read
// as git reads them: blank lines and comments skipped, trailing spaces dropped unless escaped, "!"
// taking a path back in, a trailing "/" for directories only, a "/" at the start or in the middle
// tying the pattern to the file's own directory, "*", "?", "[...]" and "**".
class IgnoreList {
  public:
    IgnoreList() = default;
    IgnoreList(std::string_view content, bool fold_case);

    bool empty() const { return patterns_.empty(); }

    // What the last pattern matching `path` says: true to leave it out, false to take it back in;
    // nullopt when none matches. `path` is relative to the directory the file applies to, with
    // '/' between its components.
    std::optional<bool> decide(std::string_view path, bool is_directory) const;

  private:
    // One component's glob, compiled to the cheapest test that answers as the whole glob would.
    struct Glob {
        enum class Shape : std::uint8_t { literal, suffix, prefix, general, never, globstar };
        Shape shape = Shape::general;
        std::string text;     // the glob as written
        std::string literal;  // unescaped: the whole name, or the part after or before the "*"
    };
    struct Pattern {
        std::vector<Glob> parts;  // one per component of the path it matches; one for a name
        bool anchored = false;    // matched against the whole path, not only the last name
        bool negated = false;
        bool directory_only = false;
        bool globstar = false;  // some part is "**"
    };

    static Glob compile(std::string_view text);
    bool matches(const Glob& glob, std::string_view name) const;
    bool matches_path(const Pattern& pattern, std::string_view path) const;

    std::vector<Pattern> patterns_;
    bool fold_case_ = false;
};

}  // namespace code_index
