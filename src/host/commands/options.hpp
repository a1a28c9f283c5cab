#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the command line gave each host command. The parser fills these; the commands check what
// depends on more than one option.
namespace host::commands {

struct UnderstandOptions {
    std::string action;  // store, recall or stats
    std::optional<std::string> target;
    std::optional<std::string> scope;
    std::optional<std::string> importance;
    std::optional<std::string> purpose;
    std::vector<std::string> key_points;
    std::vector<std::string> gotchas;
    bool auto_generated = false;
    std::optional<std::int64_t> limit;
    bool include_fresh = false;
};

struct LogTurnOptions {
    std::optional<std::string> session_id;
    std::string type;  // user or tool
    std::optional<std::string> prompt;
    std::optional<std::string> tool_name;
    std::optional<std::string> tool_input;
    std::optional<std::string> tool_result;
};

struct FinalizeOptions {
    std::optional<std::string> session_id;
    std::string status;  // completed or compacted
};

struct ListOptions {
    std::int64_t days = 7;
    std::string status = "all";
    bool json = false;
};

struct ContextOptions {
    std::vector<std::string> ids;  // exactly one expected
    std::string strategy = "balanced";
    bool json = false;
};

int cmd_query_understand(const UnderstandOptions& options);
int cmd_log_turn(const LogTurnOptions& options);
int cmd_finalize(const FinalizeOptions& options);
int cmd_list(const ListOptions& options);
int cmd_context(const ContextOptions& options);
int cmd_serve();

}  // namespace host::commands
