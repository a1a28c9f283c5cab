#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/json.hpp"

namespace cli_hooks {

using support::Json;

// Runs one host command and decodes its answer: nullopt for a non-zero status, blank output or a
// JSON null, and (with a debug line) for a time-out, a command that cannot start or be waited
// for, too much output, or output that is not one JSON document. The child's standard error is
// never looked at. An argument holding NUL cannot be passed and throws std::invalid_argument.
std::optional<Json> _run_query_json(const std::vector<std::string>& cmd, int timeout);

// Runs a host command whose answer nobody reads (its output and status are discarded). Returns
// the description of a failure to start it, wait for it or see it finish within `timeout`
// seconds, else nullopt.
std::optional<std::string> _run_host_command(const std::vector<std::string>& cmd, int timeout);

// `query understand --action=stats`: the statistics object, or nullopt.
std::optional<Json> get_understanding_stats(int limit = 50, bool include_fresh = true);

// `query understand --action=recall` for one target path: the recall result, or nullopt.
std::optional<Json> recall_understanding(std::string_view target);

// True only for a found understanding the agent itself stored (not the indexer's stub).
bool _has_model_authored_understanding(const std::optional<Json>& result);

}  // namespace cli_hooks
