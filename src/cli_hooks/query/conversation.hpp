#pragma once

#include <optional>
#include <string>

namespace cli_hooks {

// The most recent active conversation's goals, recent activity and files as Markdown, or nullopt
// when there is no such session, the service cannot answer, or there is nothing to show.
std::optional<std::string> get_conversation_context();

}  // namespace cli_hooks
