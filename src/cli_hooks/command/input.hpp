#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "cli_hooks/command/agent.hpp"
#include "cli_hooks/command/args.hpp"
#include "support/json.hpp"

namespace cli_hooks {

using support::Json;

// The hook input: the JSON object the agent wrote to standard input, or an empty object.
using HookInput = Json;

inline constexpr std::size_t _SESSION_ID_MAX_LENGTH = 100;
inline constexpr std::size_t _DEFAULT_STRING_LIMIT = 30000;

// Reads standard input to its end (call it once per run) and returns parse_hook_input() of it.
HookInput read_json_input();

// Byte-order marks stripped, blank input an empty object, anything that is not one JSON object an
// empty object with a debug-log line. A document nested too deeply throws.
HookInput parse_hook_input(std::string_view bytes);

AgentKind get_agent(const HookArgs& args);

// `session_id` unchanged when it is a safe session id, else nullopt. `session_id` is nullptr
// when the member is missing. A value that is neither text nor empty throws support::TypeError,
// except a list or object of more than 100 entries, which is simply too long.
std::optional<std::string> validate_session_id(const Json* session_id);

// The plain text of `value` (nullptr and null give ""), cut to `max_length` characters.
std::string _validate_string_input(const Json* value,
                                   std::size_t max_length = _DEFAULT_STRING_LIMIT);

}  // namespace cli_hooks
