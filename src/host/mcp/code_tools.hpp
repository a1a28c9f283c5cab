#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engines/index/database.hpp"
#include "engines/index/keeper.hpp"
#include "engines/store/store.hpp"
#include "support/json.hpp"

namespace host::mcp {

// The tool list entries of search, symbol and explore.
std::vector<support::Json> code_tool_list();

// The code index's tools over the repository `root`. They answer on the caller's thread, with a
// connection of their own, from what the index holds; the keeper's thread keeps it current.
class CodeTools {
  public:
    explicit CodeTools(std::string root) : root_(root), keeper_(std::move(root)) {}

    // Starts keeping the index current, building the first one in a repository that has none.
    void keep_index();

    // As Tools::call for search, symbol and explore; nullopt for another tool. `store` opens the
    // repository's store, for the cached understandings and memories.
    std::optional<support::Json> call(std::string_view name, const support::Json& arguments,
                                      const std::function<::store::Store&()>& store);

  private:
    support::Json search(const support::Json& arguments);
    support::Json symbol(const support::Json& arguments);
    support::Json explore(const support::Json& arguments,
                          const std::function<::store::Store&()>& store);
    // The index to answer from; nullopt with `note` saying why there is none. Otherwise `note`
    // holds what the answer should add (a refresh under way), or stays empty.
    code_index::Database* index(std::string& note);

    std::string root_;
    // Closed after the query connection, so that the last connection to close (which tidies the
    // index's log) is the one that may write.
    code_index::IndexKeeper keeper_;
    std::optional<code_index::IndexDatabase> index_;
    // The name this session looked for last, for a symbol call that names none.
    std::string last_name_;
};

}  // namespace host::mcp
