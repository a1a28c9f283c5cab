#pragma once

#include <cstdint>
#include <optional>
#include <string>

// What the command line gave the code index's commands.
namespace host::commands {

struct IndexCommandOptions {
    bool rebuild = false;
    bool json = false;
};

struct SearchOptions {
    std::string action;  // symbols
    std::optional<std::string> query;
    std::optional<std::string> kind;
    std::optional<std::string> path;
    std::optional<std::int64_t> limit;
};

struct SymbolOptions {
    std::string action;  // definition, references or callers
    std::optional<std::string> name;
    std::optional<std::string> path;
    std::optional<std::int64_t> limit;
};

int cmd_index(const IndexCommandOptions& options);
int cmd_query_search(const SearchOptions& options);
int cmd_query_symbol(const SymbolOptions& options);

}  // namespace host::commands
