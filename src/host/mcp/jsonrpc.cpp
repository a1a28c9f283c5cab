#include "host/mcp/jsonrpc.hpp"

namespace host::mcp {

using support::Json;

Json result_response(const Json& id, Json result) {
    return Json::object().set("jsonrpc", "2.0").set("id", id).set("result", std::move(result));
}

Json error_response(const Json& id, RpcCode code, const std::string& message) {
    Json error = Json::object().set("code", static_cast<int>(code)).set("message", message);
    return Json::object().set("jsonrpc", "2.0").set("id", id).set("error", std::move(error));
}

}  // namespace host::mcp
