#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/mcp/tools.hpp"
#include "support/json.hpp"

namespace host::mcp {

// The protocol side of the MCP server: one JSON-RPC message in, at most one out.
class Server {
  public:
    // The text to write back for one line from the client (one message, its line feed
    // included), or nullopt for a notification, a response, or a blank line.
    std::optional<std::string> handle_line(std::string_view line);

    // Keeps the code index current while the server lives.
    void keep_index() { tools_.keep_index(); }

    // The directory whose store the tools serve.
    const std::string& root() const { return root_; }

  private:
    std::optional<support::Json> respond(std::string_view line);
    support::Json handle_request(const std::string& method, const support::Json& params);
    support::Json initialize(const support::Json& params);

    std::string root_ = ".";
    Tools tools_{root_};
};

// Serves MCP on standard input and output until the client closes its end; returns the exit
// status. Nothing but messages is written to standard output.
int run_mcp_server();

}  // namespace host::mcp
