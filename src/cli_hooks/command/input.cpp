#include "cli_hooks/command/input.hpp"

#include "cli_hooks/command/debug_log.hpp"
#include "platform/io.hpp"
#include "support/json.hpp"
#include "support/regex.hpp"
#include "support/text.hpp"
#include "support/utf8.hpp"

namespace cli_hooks {

namespace {

constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
// A UTF-8 byte-order mark that was once read as Latin-1 and written back as UTF-8 ("ï»¿").
constexpr std::string_view kMisreadBom = "\xC3\xAF\xC2\xBB\xC2\xBF";

// Letters, digits, "_" and "-" only; "$" also accepts one final line feed.
constinit support::Regex _SESSION_ID_PATTERN{"^[a-zA-Z0-9_-]+$"};

}  // namespace

HookInput read_json_input() {
    return parse_hook_input(platform::read_stdin());
}

HookInput parse_hook_input(std::string_view bytes) {
    std::string_view text = bytes;
    while (text.starts_with(kUtf8Bom)) text.remove_prefix(kUtf8Bom.size());
    if (text.starts_with(kMisreadBom)) text.remove_prefix(kMisreadBom.size());
    if (support::is_blank(text)) return Json::object();

    Json value;
    try {  // undecodable bytes are reported here too
        value = support::parse_json(text);
    } catch (const support::JsonParseError& e) {
        _hook_debug_log(std::string("read_json_input failed to parse stdin: ") + e.what());
        return Json::object();
    }
    if (value.is_object()) return value;
    _hook_debug_log(std::string("read_json_input: stdin not a JSON object (type=") +
                    support::type_name(value) + ")");
    return Json::object();
}

AgentKind get_agent(const HookArgs& args) {
    const std::string agent = support::ascii_lower(args.agent);
    if (agent == "copilot" || agent == "github") return AGENT_COPILOT;
    if (agent == AGENT_CURSOR) return AGENT_CURSOR;
    if (agent == AGENT_WINDSURF) return AGENT_WINDSURF;
    return AGENT_CLAUDE;
}

std::optional<std::string> validate_session_id(const Json* session_id) {
    if (!support::truthy(session_id)) return std::nullopt;
    const Json& value = *session_id;
    std::size_t length = 0;
    if (value.is_string()) {
        length = support::code_point_count(value.as_string());
    } else if (value.is_array() || value.is_object()) {
        length = value.size();
    } else {
        throw support::TypeError(std::string("object of type '") + support::type_name(value) +
                                 "' has no len()");
    }
    if (length > _SESSION_ID_MAX_LENGTH) return std::nullopt;
    if (!value.is_string()) {
        throw support::TypeError(std::string("expected string or bytes-like object, got '") +
                                 support::type_name(value) + "'");
    }
    const std::string& text = value.as_string();
    if (!_SESSION_ID_PATTERN.match(text)) return std::nullopt;
    return text;
}

std::string _validate_string_input(const Json* value, std::size_t max_length) {
    if (value == nullptr || value->is_null()) return "";
    const std::string text = support::plain_text(*value);
    return std::string(support::cut_code_points(text, max_length));
}

}  // namespace cli_hooks
