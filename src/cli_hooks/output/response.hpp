#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cli_hooks {

// Context for the model, in the agent's form; a block request denies the pending tool call where
// the agent supports that. Writes exactly one response; throws when standard output fails.
void output_response(std::string_view agent, std::string_view event_name, std::string_view context,
                     bool block = false, std::optional<std::string_view> reason = std::nullopt);

// A notice for the user, in the agent's one-member form.
void output_system_message(std::string_view agent, std::string_view message);

// The bytes the two functions above write, line feed included.
std::string format_response(std::string_view agent, std::string_view event_name,
                            std::string_view context, bool block = false,
                            std::optional<std::string_view> reason = std::nullopt);
std::string format_system_message(std::string_view agent, std::string_view message);

}  // namespace cli_hooks
