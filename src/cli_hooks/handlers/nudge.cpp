#include "cli_hooks/handlers/nudge.hpp"

#include <charconv>
#include <stdexcept>
#include <string>

#include "cli_hooks/command/input.hpp"
#include "cli_hooks/output/response.hpp"
#include "platform/clock.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "support/json.hpp"
#include "support/regex.hpp"
#include "support/utf8.hpp"

namespace cli_hooks {

namespace {

constexpr double _NUDGE_INTERVAL_S = 600;
constexpr const char* kIndexDir = "memory/codebase-index";
constexpr const char* _NUDGE_STATE_FILE = "memory/codebase-index/.suggest_state.json";

// An ASCII letter or "_", then two or more Unicode word characters or dots.
constinit support::Regex _IDENTIFIER_RE{"^[A-Za-z_][\\w.]{2,}$"};

// A state value the file may not hold; a nudge repairs the file.
class StateValueError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A decimal number with white space around it allowed, as a text-valued "last_nudge" may be.
double parse_decimal(const std::string& text) {
    std::string_view number = support::trim_unicode_space(text);
    if (number.starts_with('+')) number.remove_prefix(1);
    double value = 0;
    const auto [ptr, ec] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (number.empty() || ec != std::errc() || ptr != number.data() + number.size()) {
        throw StateValueError("could not convert string to float: '" + text + "'");
    }
    return value;
}

double last_nudge_seconds(const Json& state) {
    const Json* value = support::member(state, "last_nudge");
    if (value == nullptr) return 0;
    if (value->is_number()) return value->as_double();
    if (value->is_bool()) return value->as_bool() ? 1 : 0;
    if (value->is_string()) return parse_decimal(value->as_string());
    throw support::TypeError(std::string("last_nudge must be a number, not '") +
                             support::type_name(*value) + "'");
}

// Whether a nudge was given less than the interval ago. A missing, unreadable or garbled state
// file counts as no nudge yet; a well-formed file of the wrong shape is a fault and throws.
bool nudged_recently(double now) {
    double last = 0;
    try {
        const auto text = platform::read_regular_file(_NUDGE_STATE_FILE);
        if (!text) return false;
        last = last_nudge_seconds(support::parse_json(*text));
    } catch (const platform::OsError&) {
        return false;
    } catch (const support::JsonParseError&) {
        return false;
    } catch (const StateValueError&) {
        return false;
    }
    return now - last < _NUDGE_INTERVAL_S;
}

}  // namespace

int hook_suggest_tamblo(const HookArgs& args) {
    const HookInput data = read_json_input();
    const AgentKind agent = get_agent(args);
    if (agent != AGENT_CLAUDE) return 0;

    const Json* tool_input = support::member(data, "tool_input");
    const Json* pattern_value =
        support::truthy(tool_input) ? support::member(*tool_input, "pattern") : nullptr;
    const std::string pattern = pattern_value ? support::plain_text(*pattern_value) : "";
    if (!_IDENTIFIER_RE.match(pattern)) return 0;

    if (!platform::is_regular_file(platform::join_path(kIndexDir, "index.db"))) return 0;

    const double now = platform::epoch_seconds();
    if (nudged_recently(now)) return 0;
    try {
        const Json state = Json::object().set("last_nudge", now);
        platform::replace_file_no_follow(_NUDGE_STATE_FILE, support::to_json_text(state));
    } catch (const platform::OsError&) {
        // Without a writable state file every qualifying search gets the nudge.
    }

    output_response(
        agent, "PreToolUse",
        "`" + pattern +
            "` looks like symbol discovery \u2014 orvane-tamblo has this repo indexed: "
            "`search(action=\"symbols\", query=\"" +
            pattern +
            "\")` finds definitions, `symbol(action=\"callers\"/\"references\")` finds usages, "
            "`explore(query=...)` does both. (Grep stays right for exact strings/edit "
            "anchoring; full playbook: the `tamblo` skill.)");
    return 0;
}

}  // namespace cli_hooks
