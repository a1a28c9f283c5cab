#include "engines/store/turn_facts.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

#include "engines/store/location.hpp"
#include "platform/path.hpp"
#include "support/json.hpp"
#include "support/text.hpp"
#include "support/utf8.hpp"

namespace store {

namespace {

using support::Json;

constexpr std::size_t kCommandChars = 80;
// The hooks cut a tool's input to this many characters, which leaves it invalid JSON.
constexpr std::size_t kHookCut = 30000;
constexpr std::size_t kPatternChars = 80;

enum class Kind { read, edit, write, run, search, other };

// Each agent names its tools differently (Read, read_file, view; Bash, run_terminal_cmd); a
// word in the lower-cased name tells the kind, the first match of this list winning.
constexpr std::array<std::pair<std::string_view, Kind>, 15> kWords = {{
    {"grep", Kind::search},
    {"glob", Kind::search},
    {"search", Kind::search},
    {"find", Kind::search},
    {"bash", Kind::run},
    {"terminal", Kind::run},
    {"shell", Kind::run},
    {"command", Kind::run},
    {"exec", Kind::run},
    {"edit", Kind::edit},
    {"replace", Kind::edit},
    {"patch", Kind::edit},
    {"write", Kind::write},
    {"create", Kind::write},
    {"read", Kind::read},
}};

Kind kind_of(std::string_view tool_name) {
    const std::string name = support::ascii_lower(tool_name);
    if (name == "view") return Kind::read;
    for (const auto& [word, kind] : kWords) {
        if (name.find(word) != std::string::npos) return kind;
    }
    return Kind::other;
}

// Where the agents put what a line names, in the order tried.
constexpr std::array<std::string_view, 5> kPathKeys = {"file_path", "filePath", "notebook_path",
                                                       "target_file", "path"};
constexpr std::array<std::string_view, 2> kCommandKeys = {"command", "cmd"};
constexpr std::array<std::string_view, 4> kPatternKeys = {"pattern", "query", "regex", "glob"};

const std::string* string_member(const Json& object, std::string_view key) {
    const Json* value = support::member(object, key);
    if (value == nullptr || !value->is_string()) return nullptr;
    return &value->as_string();
}

// The text after `"key": "` in JSON text that no longer parses (cut at its limit): the string's
// escapes decoded, or nullopt when it was cut inside.
std::optional<std::string> string_in_cut_text(std::string_view text, std::string_view key) {
    const std::string opening = "\"" + std::string(key) + "\": \"";
    const std::size_t start = text.find(opening);
    if (start == std::string_view::npos) return std::nullopt;
    std::size_t end = start + opening.size();
    while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
    if (end >= text.size()) return std::nullopt;
    try {
        const Json value = support::parse_json(
            text.substr(start + opening.size() - 1, end - start - opening.size() + 2));
        if (value.is_string()) return value.as_string();
    } catch (const std::runtime_error&) {
    }
    return std::nullopt;
}

template <std::size_t N>
std::optional<std::string> first_text(const std::optional<Json>& input, std::string_view raw,
                                      const std::array<std::string_view, N>& keys) {
    for (const auto key : keys) {
        if (input) {
            if (input->is_object()) {
                if (const std::string* text = string_member(*input, key)) {
                    if (!text->empty()) return *text;
                }
            }
        } else if (auto text = string_in_cut_text(raw, key); text && !text->empty()) {
            return text;
        }
    }
    return std::nullopt;
}

// The tool input as a value: a JSON object, or the object inside a JSON string (some agents pass
// their arguments as JSON text); nullopt when it does not parse.
std::optional<Json> parse_input(const std::string& text) {
    try {
        Json value = support::parse_json(text);
        if (value.is_string()) {
            try {
                Json inner = support::parse_json(value.as_string());
                if (inner.is_object()) return inner;
            } catch (const std::runtime_error&) {
            }
        }
        return value;
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

// Relative to the repository when the path lies inside it, lexically or once links are resolved.
std::string relative_file(const std::string& path, const std::string& root) {
    const platform::PathParts parts = platform::split_path(path);
    if (parts.root.empty()) return support::join(parts.parts, "/");
    for (const std::string& base : {root, platform::current_directory()}) {
        const platform::PathParts b = platform::split_path(base);
        if (b.root == parts.root && parts.parts.size() > b.parts.size() &&
            std::equal(b.parts.begin(), b.parts.end(), parts.parts.begin())) {
            const auto first = parts.parts.begin() + static_cast<std::ptrdiff_t>(b.parts.size());
            return support::join(std::vector<std::string>(first, parts.parts.end()), "/");
        }
    }
    try {
        const std::string canonical = platform::canonical_path(path);
        if (platform::is_inside(root, canonical) && canonical != root) {
            return relative_file(canonical, root);
        }
    } catch (const std::exception&) {
    }
    return path;
}

}  // namespace

std::string one_line(std::string_view text, std::size_t max_chars) {
    std::string line;
    bool blank = false;
    for (const char c : text) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f') {
            blank = !line.empty();
            continue;
        }
        if (blank) line += ' ';
        blank = false;
        line += c;
    }
    if (support::code_point_count(line) <= max_chars) return line;
    return std::string(support::cut_code_points(line, max_chars)) + "...";
}

ToolTurnFacts describe_tool_turn(std::string_view tool_name,
                                 const std::optional<std::string>& tool_input,
                                 const std::string& root) {
    std::optional<Json> input;
    if (!tool_input) {
        input = Json::object();
    } else if (support::code_point_count(*tool_input) < kHookCut) {
        input = parse_input(*tool_input);
    }
    // else: cut by the hook, so no longer JSON; not even tried, since a parse error is an
    // exception, and the first one thrown in this static program costs milliseconds.
    const std::string_view raw = tool_input ? std::string_view(*tool_input) : std::string_view();

    ToolTurnFacts facts;
    if (auto path = first_text(input, raw, kPathKeys)) facts.file = relative_file(*path, root);
    const std::string name = one_line(tool_name, kCommandChars);
    switch (kind_of(tool_name)) {
        case Kind::read:
            if (facts.file) facts.activity = "Read " + *facts.file;
            break;
        case Kind::edit:
            if (facts.file) facts.activity = "Edited " + *facts.file;
            break;
        case Kind::write:
            if (facts.file) facts.activity = "Wrote " + *facts.file;
            break;
        case Kind::run:
            if (auto command = first_text(input, raw, kCommandKeys)) {
                // The first line says what ran; a script's other lines would not fit anyway.
                const std::size_t end = command->find('\n');
                std::string line =
                    one_line(std::string_view(*command).substr(0, end), kCommandChars);
                const bool more =
                    end != std::string::npos && !one_line(command->substr(end), 1).empty();
                if (more && !line.ends_with("...")) line += " ...";
                facts.activity = "Ran `" + line + "`";
            }
            break;
        case Kind::search:
            if (auto pattern = first_text(input, raw, kPatternKeys)) {
                facts.activity = "Searched for " + one_line(*pattern, kPatternChars);
            }
            break;
        case Kind::other:
            if (facts.file) facts.activity = name + " " + *facts.file;
            break;
    }
    if (facts.activity.empty()) facts.activity = "Used " + name;
    return facts;
}

}  // namespace store
