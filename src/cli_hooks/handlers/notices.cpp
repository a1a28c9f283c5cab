#include "cli_hooks/handlers/notices.hpp"

#include "cli_hooks/command/input.hpp"
#include "cli_hooks/output/response.hpp"

namespace cli_hooks {

int hook_save_compact(const HookArgs& args) {
    const AgentKind agent = get_agent(args);
    output_system_message(
        agent,
        "## Context Compaction Imminent\n\nBefore context is reduced, persist important insights:\n"
        "- `understand(action='store')` for file/module analysis\n"
        "- `remember(action='store', key='...', value='...')` for decisions and insights");
    return 0;
}

}  // namespace cli_hooks
