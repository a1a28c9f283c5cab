#pragma once

#include <stdexcept>
#include <string>

#include "support/json.hpp"

namespace host::mcp {

// The standard JSON-RPC 2.0 error codes.
enum class RpcCode {
    parse_error = -32700,
    invalid_request = -32600,
    method_not_found = -32601,
    invalid_params = -32602,
    internal_error = -32603,
};

// A request that gets an error response; the message is the response's "message".
class RpcError : public std::runtime_error {
  public:
    RpcError(RpcCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
    RpcCode code() const { return code_; }

  private:
    RpcCode code_;
};

support::Json result_response(const support::Json& id, support::Json result);
support::Json error_response(const support::Json& id, RpcCode code, const std::string& message);

}  // namespace host::mcp
