#pragma once

#include <string>
#include <string_view>

#include "support/json.hpp"

namespace host::mcp {

// The "tools" list of tools/list: understand and remember, each with its input schema.
support::Json tool_list();

// The result of tools/call for the tool `name`, serving the store of the repository `root`.
// Unknown tools and missing or mistyped arguments throw RpcError (invalid params); a failure of
// the store is a result with "isError", whose text says what went wrong.
support::Json call_tool(std::string_view name, const support::Json& arguments,
                        const std::string& root);

}  // namespace host::mcp
