#include "cli_hooks/handlers/session_start.hpp"

#include <vector>

#include "cli_hooks/command/debug_log.hpp"
#include "cli_hooks/command/input.hpp"
#include "cli_hooks/output/response.hpp"
#include "cli_hooks/query/conversation.hpp"
#include "cli_hooks/query/runner.hpp"
#include "protocol/host_commands.hpp"
#include "services/session_brief.hpp"
#include "support/json.hpp"
#include "support/text.hpp"

namespace cli_hooks {

namespace {

constexpr std::size_t kEntriesPerScope = 10;

constexpr const char* kWarningText =
    "## AI Cache Warning\n\n[!] orvane-tamblo daemon not responding. Run `orvane-tamblo serve` or "
    "any orvane-tamblo command to auto-start.";

constexpr const char* kNothingCachedText =
    "## AI Cache Status\n\nNo cached understanding available. Start with:\n"
    "- `explore(query=\"...\")` to search the codebase\n"
    "- `understand(action='store')` after analyzing files to cache insights\n"
    "- `remember(action='store', key='...', value='...')` for key decisions";

constexpr const char* kCompactionHeading = "## Context Restored After Compaction\n";

bool is_zero(const Json& total) {
    if (total.is_bool()) return !total.as_bool();
    return total.is_number() && total.as_double() == 0.0;
}

std::string text_member(const Json& entry, std::string_view key) {
    const Json* value = support::member(entry, key);
    return value ? support::plain_text(*value) : "unknown";
}

std::string entry_lines(const Json& stats) {
    const Json* by_scope = support::member(stats, protocol::Stats::kByScope);
    if (by_scope == nullptr) return "None";
    if (!by_scope->is_object()) {
        throw support::TypeError(std::string("'by_scope' is a ") + support::type_name(*by_scope) +
                                 ", not an object");
    }
    std::string lines;
    for (const auto& [scope, scope_data] : by_scope->members()) {
        const Json* entries = support::member(scope_data, protocol::Stats::kEntries);
        if (entries == nullptr) continue;
        if (!entries->is_array()) {
            throw support::TypeError("'entries' of scope " + scope + " is a " +
                                     support::type_name(*entries) + ", not a list");
        }
        for (std::size_t i = 0; i < entries->size() && i < kEntriesPerScope; ++i) {
            const Json& entry = (*entries)[i];
            const Json* fresh = support::member(entry, protocol::Stats::kFresh);
            if (!lines.empty()) lines += '\n';
            lines += "- [" + text_member(entry, protocol::Stats::kImportance) + "] " +
                     text_member(entry, protocol::Stats::kTarget) + " (" + scope + ")";
            if (fresh != nullptr && !support::truthy(*fresh)) lines += " [STALE]";
        }
    }
    return lines.empty() ? "None" : lines;
}

std::string cache_section(const std::optional<Json>& stats) {
    if (!support::truthy(stats)) return kWarningText;
    const Json* total = support::member(*stats, protocol::Stats::kTotal);
    if (total == nullptr || is_zero(*total)) return kNothingCachedText;
    return "## AI Cache Status\n\n**" + support::plain_text(*total) +
           " entries cached.** Use `understand(action=\"recall\", target=\"...\")` before reading "
           "files.\n\n### Cached Entries:\n" +
           entry_lines(*stats) +
           "\n\n### Quick Start:\n"
           "- `understand(action=\"recall\")` for semantic search across cache\n"
           "- `explore(query=\"...\")` for multi-strategy code exploration\n"
           "- `remember(action='list')` to see stored project memories";
}

}  // namespace

int hook_session_start(const HookArgs& args, const std::optional<std::string>& force_source) {
    const HookInput data = read_json_input();
    const AgentKind agent = get_agent(args);

    Json source = "startup";
    if (force_source && !force_source->empty()) {
        source = *force_source;
    } else if (const Json* given = support::member(data, "source")) {
        source = *given;
    }
    const bool is_compact = source == "compact";
    if (agent == AGENT_CLAUDE && source != "startup" && source != "resume" && !is_compact) {
        return 0;  // an event Claude Code does not expect context for
    }

    std::vector<std::string> sections;
    if (!is_compact) {
        std::string note;
        std::string brief = services::get_orvane_session_brief(&note);
        if (!note.empty()) _hook_debug_log("hook_session_start: " + note);
        if (!brief.empty()) sections.push_back(std::move(brief));
    }
    if (auto conversation = get_conversation_context(); conversation && !conversation->empty()) {
        if (is_compact) sections.emplace_back(kCompactionHeading);
        sections.push_back(std::move(*conversation));
    }
    sections.push_back(cache_section(get_understanding_stats(20, true)));

    output_response(agent, "SessionStart", support::join(sections, "\n\n"));
    return 0;
}

int hook_restore_compact(const HookArgs& args) {
    return hook_session_start(args, "compact");
}

}  // namespace cli_hooks
