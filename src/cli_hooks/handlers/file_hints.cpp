#include "cli_hooks/handlers/file_hints.hpp"

#include <optional>
#include <string>

#include "cli_hooks/command/file_path.hpp"
#include "cli_hooks/command/input.hpp"
#include "cli_hooks/output/response.hpp"
#include "cli_hooks/query/runner.hpp"
#include "protocol/host_commands.hpp"
#include "support/json.hpp"

namespace cli_hooks {

namespace {

// What the three hooks share: the agent, the file's path relative to the repository and the
// cache's answer about it. nullopt when the input names no usable file; no query is made then.
struct FileLookup {
    AgentKind agent;
    std::string rel_path;
    std::optional<Json> result;
};

std::optional<FileLookup> look_up_file(const HookArgs& args) {
    const HookInput data = read_json_input();
    const AgentKind agent = get_agent(args);
    const std::optional<std::string> file_path = extract_file_path(data);
    if (!file_path || file_path->empty()) return std::nullopt;
    std::string rel_path = get_relative_path(*file_path);
    std::optional<Json> result = recall_understanding(rel_path);
    return FileLookup{agent, std::move(rel_path), std::move(result)};
}

}  // namespace

int hook_check_cache(const HookArgs& args) {
    const auto file = look_up_file(args);
    if (!file || !_has_model_authored_understanding(file->result)) return 0;
    const Json* fresh = support::member(*file->result, protocol::Recall::kFresh);
    const std::string& p = file->rel_path;
    const std::string message =
        fresh == nullptr || support::truthy(*fresh)
            ? "Cached understanding exists for `" + p +
                  "` \u2014 consider `understand(action=\"recall\", target=\"" + p +
                  "\")` before reading the full file (saves tokens)."
            : "Cached understanding exists for `" + p +
                  "` but is **stale** (the file changed since it was cached). After reading, "
                  "refresh it with `understand(action=\"store\", target=\"" +
                  p + "\", ...)`.";
    output_response(file->agent, "PreToolUse", message);
    return 0;
}

int hook_refresh_cache(const HookArgs& args) {
    const auto file = look_up_file(args);
    if (!file || !_has_model_authored_understanding(file->result)) return 0;
    // Worded conditionally: an edit need not have changed what the understanding says.
    const std::string& p = file->rel_path;
    output_response(file->agent, "PostToolUse",
                    "You modified `" + p +
                        "`, which has a model-authored cached understanding; your edit may have "
                        "made it outdated. If so, refresh it with `understand(action=\"store\", "
                        "scope=\"file\", target=\"" +
                        p +
                        "\", purpose=\"...\", key_points=[...], gotchas=[...])` so future "
                        "sessions stay accurate.");
    return 0;
}

int hook_remind_store(const HookArgs& args) {
    const auto file = look_up_file(args);
    if (!file) return 0;
    // Any entry the service finds keeps this quiet, the indexer's own stubs included.
    const bool found = support::truthy(file->result) &&
                       support::truthy(support::member(*file->result, protocol::Recall::kFound));
    if (found) return 0;
    const std::string& p = file->rel_path;
    output_response(file->agent, "PostToolUse",
                    "## Remember to Cache: " + p +
                        "\n\nAfter analyzing this file:\n- `understand(action='store', "
                        "scope='file', target='" +
                        p +
                        "', purpose='...', key_points=[...], gotchas=[...])` to cache insights\n"
                        "- `remember(action='store', key='...', value='...')` for key decisions\n"
                        "- `understand(action=\"recall\")` to find related cached understanding");
    return 0;
}

}  // namespace cli_hooks
