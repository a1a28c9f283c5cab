#include "cli_hooks/handlers/notices.hpp"

#include <optional>
#include <string>
#include <vector>

#include "cli_hooks/command/input.hpp"
#include "cli_hooks/output/response.hpp"
#include "cli_hooks/query/conversation.hpp"
#include "cli_hooks/query/runner.hpp"
#include "protocol/host_commands.hpp"
#include "support/json.hpp"
#include "support/text.hpp"

namespace cli_hooks {

namespace {

// The cache's entry count as text when it is above zero, else nullopt. Only the total is shown,
// so the statistics are asked for small and without fresh entries.
std::optional<std::string> positive_total() {
    const std::optional<Json> stats = get_understanding_stats(10, false);
    if (!support::truthy(stats)) return std::nullopt;
    const Json* total = support::member(*stats, protocol::Stats::kTotal);
    if (total == nullptr) return std::nullopt;
    bool positive = false;
    if (total->is_bool()) {
        positive = total->as_bool();
    } else if (total->is_number()) {
        positive = total->as_double() > 0;
    } else {
        throw support::TypeError(std::string("cannot compare a total of type '") +
                                 support::type_name(*total) + "' with 0");
    }
    if (!positive) return std::nullopt;
    return support::plain_text(*total);
}

}  // namespace

int hook_persist_learnings(const HookArgs& args) {
    const AgentKind agent = get_agent(args);
    const auto total = positive_total();
    if (!total) return 0;
    output_system_message(
        agent, "## Session Summary\n\n**" + *total +
                   " entries** in AI cache. Your analysis will be available in future sessions.\n\n"
                   "Before ending, consider persisting key insights:\n"
                   "- `remember(action='store', key='...', value='...')` for decisions/learnings\n"
                   "- `understand(action='store')` for any files analyzed but not yet cached");
    return 0;
}

int hook_save_compact(const HookArgs& args) {
    const AgentKind agent = get_agent(args);
    output_system_message(
        agent,
        "## Context Compaction Imminent\n\nBefore context is reduced, persist important insights:\n"
        "- `understand(action='store')` for file/module analysis\n"
        "- `remember(action='store', key='...', value='...')` for decisions and insights");
    return 0;
}

int hook_inject_context(const HookArgs& args) {
    const AgentKind agent = get_agent(args);
    std::vector<std::string> sections;
    if (auto conversation = get_conversation_context(); conversation && !conversation->empty()) {
        sections.push_back(std::move(*conversation));
    }
    if (const auto total = positive_total()) {
        sections.push_back("AI Cache: " + *total +
                           " entries available. Use understand(action='recall') before reading "
                           "files.");
    }
    if (sections.empty()) return 0;
    output_response(agent, "pre_prompt", support::join(sections, "\n\n"));
    return 0;
}

}  // namespace cli_hooks
