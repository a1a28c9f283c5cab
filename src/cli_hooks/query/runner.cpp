#include "cli_hooks/query/runner.hpp"

#include "cli_hooks/command/debug_log.hpp"
#include "platform/process.hpp"
#include "support/json.hpp"
#include "support/utf8.hpp"

namespace cli_hooks {

std::optional<Json> _run_query_json(const std::vector<std::string>& cmd, int timeout) {
    platform::ProcessResult result;
    try {
        result = platform::run_process(cmd, std::chrono::seconds(timeout));
    } catch (const platform::ProcessError& e) {
        _hook_debug_log(std::string("_run_query_json failed: ") + e.what());
        return std::nullopt;
    }
    if (result.exit_code != 0) return std::nullopt;
    if (support::is_blank(result.out)) return std::nullopt;
    Json answer;
    try {
        answer = support::parse_json(result.out);
    } catch (const support::JsonParseError& e) {
        // Undecodable output lands here too: no answer, never a hook failure.
        _hook_debug_log(std::string("_run_query_json failed: ") + e.what());
        return std::nullopt;
    }
    if (answer.is_null()) return std::nullopt;
    return answer;
}

std::optional<std::string> _run_host_command(const std::vector<std::string>& cmd, int timeout) {
    try {
        platform::run_process(cmd, std::chrono::seconds(timeout), platform::ChildOutput::discard);
    } catch (const platform::ProcessError& e) {
        return e.what();
    }
    return std::nullopt;
}

std::optional<Json> get_understanding_stats(int limit, bool include_fresh) {
    std::vector<std::string> command = {"orvane-tamblo", "query", "understand", "--action=stats",
                                        "--limit=" + std::to_string(limit)};
    if (include_fresh) command.emplace_back("--include-fresh");
    return _run_query_json(command, 25);
}

std::optional<Json> recall_understanding(std::string_view target) {
    return _run_query_json({"orvane-tamblo", "query", "understand", "--action=recall",
                            "--target=" + std::string(target)},
                           10);
}

bool _has_model_authored_understanding(const std::optional<Json>& result) {
    if (!support::truthy(result)) return false;
    if (!support::truthy(support::member(*result, "found"))) return false;
    const Json* understanding = support::member(*result, "understanding");
    if (!support::truthy(understanding)) return true;
    const Json* auto_generated = support::member(*understanding, "auto_generated");
    // Only the boolean true marks the indexer's entry; 1 or "true" do not.
    return !(auto_generated != nullptr && auto_generated->is_bool() && auto_generated->as_bool());
}

}  // namespace cli_hooks
