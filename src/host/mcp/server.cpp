#include "host/mcp/server.hpp"

#include <array>

#include "host/mcp/jsonrpc.hpp"
#include "host/mcp/tools.hpp"
#include "platform/io.hpp"
#include "services/logging_setup.hpp"
#include "support/utf8.hpp"

namespace host::mcp {

using support::Json;

namespace {

constexpr const char* kLogger = "orvane_tamblo.mcp";

// Newest first: a client asking for one we do not know gets the newest, as the protocol says.
constexpr std::array<std::string_view, 4> kProtocolVersions{"2025-11-25", "2025-06-18",
                                                            "2025-03-26", "2024-11-05"};

// Far beyond any real message; a longer line is refused without being kept.
constexpr std::size_t kMaxLine = 16 * 1024 * 1024;

constexpr const char* kInstructions =
    "The AI cache of this repository: what earlier sessions learned about its files. Before "
    "reading a file, understand(action=\"recall\", target=\"path\") gives its cached "
    "understanding, if any, and says whether the file changed since; after analyzing a file, "
    "understand(action=\"store\", scope=\"file\", target=\"path\", purpose=\"...\", "
    "key_points=[...], gotchas=[...]) keeps it for later sessions. understand(action=\"recall\", "
    "query=\"words\") searches the cache. remember(action=\"store\", key=\"...\", "
    "value=\"...\") keeps a decision or project fact; remember(action=\"list\") shows them. "
    "The code index, kept current while this server runs: search(action=\"symbols\", "
    "query=\"name\") finds definitions, symbol(action=\"callers\"|\"references\"|"
    "\"definition\", name=\"name\") who calls or uses a name, and explore(query=\"name or "
    "question\") does all of it at once, with the cache; prefer them to a text search for code "
    "symbols.";

bool is_valid_id(const Json& id) {
    return id.is_string() || (id.is_number() && id.is_integer());
}

const Json& object_params(const Json& params) {
    if (!params.is_object()) throw RpcError(RpcCode::invalid_params, "params must be an object");
    return params;
}

}  // namespace

std::optional<std::string> Server::handle_line(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (support::is_blank(line)) return std::nullopt;
    std::optional<Json> response = respond(line);
    if (!response) return std::nullopt;
    return support::to_json_text(*response) + "\n";
}

std::optional<Json> Server::respond(std::string_view line) {
    Json message;
    try {
        message = support::parse_json(line);
    } catch (const std::exception& e) {
        return error_response(nullptr, RpcCode::parse_error,
                              std::string("Parse error: ") + e.what());
    }
    if (message.is_array()) {
        return error_response(nullptr, RpcCode::invalid_request,
                              "Invalid Request: batches are not supported");
    }
    if (!message.is_object()) {
        return error_response(nullptr, RpcCode::invalid_request,
                              "Invalid Request: a message is a JSON object");
    }
    const Json* id = message.find("id");
    if (id != nullptr && !is_valid_id(*id)) {
        return error_response(nullptr, RpcCode::invalid_request,
                              "Invalid Request: \"id\" must be a string or an integer");
    }
    const Json reply_id = id != nullptr ? *id : Json(nullptr);
    const Json* method = message.find("method");
    if (method == nullptr && id != nullptr &&
        (message.find("result") != nullptr || message.find("error") != nullptr)) {
        return std::nullopt;  // an answer to a request of ours; we send none that need one
    }
    const Json* version = message.find("jsonrpc");
    if (version == nullptr || !(*version == "2.0")) {
        return error_response(reply_id, RpcCode::invalid_request,
                              "Invalid Request: \"jsonrpc\" must be \"2.0\"");
    }
    if (method == nullptr || !method->is_string()) {
        return error_response(reply_id, RpcCode::invalid_request,
                              "Invalid Request: \"method\" must be a string");
    }
    const Json* params = message.find("params");
    if (params != nullptr && !params->is_object() && !params->is_array()) {
        return error_response(reply_id, RpcCode::invalid_request,
                              "Invalid Request: \"params\" must be an object or an array");
    }
    // Notifications (initialized, cancelled, ...) need nothing from us and get no answer.
    if (id == nullptr) return std::nullopt;
    try {
        return result_response(
            *id, handle_request(method->as_string(), params ? *params : Json::object()));
    } catch (const RpcError& e) {
        return error_response(*id, e.code(), e.what());
    } catch (const std::exception& e) {
        services::log_record(services::LogLevel::error, kLogger,
                             std::string("request failed: ") + e.what());
        return error_response(*id, RpcCode::internal_error,
                              std::string("Internal error: ") + e.what());
    }
}

Json Server::handle_request(const std::string& method, const Json& params) {
    if (method == "initialize") return initialize(object_params(params));
    if (method == "ping") return Json::object();
    if (method == "tools/list") {
        object_params(params);
        return Json::object().set("tools", tool_list());
    }
    if (method == "tools/call") {
        const Json& call = object_params(params);
        const Json* name = call.find("name");
        if (name == nullptr || !name->is_string()) {
            throw RpcError(RpcCode::invalid_params, "tools/call needs the tool's \"name\"");
        }
        const Json* arguments = call.find("arguments");
        if (arguments != nullptr && !arguments->is_null() && !arguments->is_object()) {
            throw RpcError(RpcCode::invalid_params, "\"arguments\" must be an object");
        }
        const Json no_arguments = Json::object();
        return tools_.call(name->as_string(),
                           arguments && arguments->is_object() ? *arguments : no_arguments);
    }
    throw RpcError(RpcCode::method_not_found, "Method not found: " + method);
}

Json Server::initialize(const Json& params) {
    const Json* requested = params.find("protocolVersion");
    if (requested == nullptr || !requested->is_string()) {
        throw RpcError(RpcCode::invalid_params, "initialize needs \"protocolVersion\"");
    }
    std::string_view version = kProtocolVersions.front();
    for (std::string_view known : kProtocolVersions) {
        if (requested->as_string() == known) version = known;
    }
    Json capabilities = Json::object().set("tools", Json::object().set("listChanged", false));
    Json info = Json::object().set("name", "orvane-tamblo").set("version", ORVANE_VERSION);
    return Json::object()
        .set("protocolVersion", version)
        .set("capabilities", std::move(capabilities))
        .set("serverInfo", std::move(info))
        .set("instructions", kInstructions);
}

int run_mcp_server() {
    Server server;
    server.keep_index();
    std::string pending;
    bool skipping = false;  // inside a line that was too long, until its end
    char chunk[65536];
    auto answer = [&](std::string_view line) {
        if (auto reply = server.handle_line(line)) platform::write_stdout(*reply);
    };
    try {
        for (;;) {
            const std::size_t n = platform::read_stdin_some(chunk, sizeof chunk);
            if (n == 0) break;
            std::string_view data(chunk, n);
            while (!data.empty()) {
                const std::size_t end = data.find('\n');
                if (skipping) {
                    if (end == std::string_view::npos) break;
                    skipping = false;
                    platform::write_stdout(
                        support::to_json_text(error_response(nullptr, RpcCode::parse_error,
                                                             "Parse error: message too long")) +
                        "\n");
                } else if (end == std::string_view::npos) {
                    pending.append(data);
                    if (pending.size() > kMaxLine) {
                        pending.clear();
                        skipping = true;
                    }
                    break;
                } else {
                    pending.append(data.substr(0, end));
                    answer(pending);
                    pending.clear();
                }
                data.remove_prefix(end + 1);
            }
        }
        if (!skipping) answer(pending);
    } catch (const std::exception& e) {
        // The client has gone or closed its end: there is no one left to tell but the log.
        services::log_record(services::LogLevel::warning, kLogger,
                             std::string("MCP server stopped: ") + e.what());
        return 1;
    }
    return 0;
}

}  // namespace host::mcp
