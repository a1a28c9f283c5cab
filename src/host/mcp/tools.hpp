#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "engines/store/store.hpp"
#include "host/mcp/arguments.hpp"
#include "host/mcp/code_tools.hpp"
#include "support/json.hpp"

namespace host::mcp {

// The "tools" list of tools/list: understand, remember, search, symbol and explore, each with its
// input schema.
support::Json tool_list();

// The tools over the store of the repository `root`. The server lives for the agent's whole
// session, so the store stays open from call to call (opening it is most of a short call's cost,
// and its search index lives in the connection); it is opened again when it was created,
// replaced or migrated since.
class Tools {
  public:
    explicit Tools(std::string root) : root_(root), code_(std::move(root)) {}

    // The result of tools/call for the tool `name`. Unknown tools and missing or mistyped
    // arguments throw RpcError (invalid params); a failure of the store is a result with
    // "isError", whose text says what went wrong.
    support::Json call(std::string_view name, const support::Json& arguments);

    // Keeps the code index current while the server lives.
    void keep_index() { code_.keep_index(); }

  private:
    // The open store, for writing when `write` (which creates it when missing).
    ::store::Store& store(bool write);
    support::Json understand(const support::Json& arguments);
    support::Json understand_store(const Arguments& args);
    support::Json understand_recall(const Arguments& args);
    support::Json understand_list(const Arguments& args);
    support::Json remember(const support::Json& arguments);

    std::string root_;
    std::optional<::store::Store> store_;
    bool writable_ = false;
    CodeTools code_;
};

}  // namespace host::mcp
