// The MCP server's JSON-RPC side: initialize settles on a protocol version, every malformed or
// unanswerable message gets its standard error, notifications get nothing, and the server goes on
// answering after each.
#include "harness.hpp"

namespace e2e {
namespace {

using McpProtocol = HookTest;

struct Exchange {
    std::string in;
    std::string out;  // the whole answer line, or its beginning when it ends in "..."; "" for none
};

TEST_F(McpProtocol, EveryMessageGetsItsAnswerAndTheServerGoesOn) {
    const std::string call = R"({"jsonrpc": "2.0", "id": 7, "method": "tools/call", "params": )";
    const std::string bad_args = R"({"jsonrpc": "2.0", "id": 7, "error": {"code": -32602, )";
    const auto understand = [&](const std::string& arguments) {
        return call + R"({"name": "understand", "arguments": )" + arguments + "}}";
    };
    const auto invalid = [&](const std::string& message) {
        return bad_args + R"("message": "Invalid arguments for understand: )" + message + "\"}}";
    };
    const auto initialize = [](const std::string& version) {
        return R"({"jsonrpc": "2.0", "id": 0, "method": "initialize", "params": {"protocolVersion": ")" +
               version + R"(", "capabilities": {}, "clientInfo": {"name": "t", "version": "1"}}})";
    };
    const auto initialized = [](const std::string& version) {
        return R"({"jsonrpc": "2.0", "id": 0, "result": {"protocolVersion": ")" + version +
               R"(", "capabilities": {"tools": {"listChanged": false}}, "serverInfo": {"name": )"
               R"("orvane-tamblo", "version": "...)";
    };
    // Lines may end in CR LF; the last one needs no line feed at all.
    const std::vector<Exchange> exchanges = {
        {"\r", ""},
        {initialize("2025-06-18"), initialized("2025-06-18")},
        {initialize("2024-11-05"), initialized("2024-11-05")},
        {initialize("2025-11-25"), initialized("2025-11-25")},
        {initialize("1999-01-01"), initialized("2025-11-25")},  // unknown: we offer our newest
        {R"({"jsonrpc": "2.0", "method": "notifications/initialized"})", ""},
        {R"({"jsonrpc": "2.0", "method": "notifications/whatever", "params": {}})", ""},
        {R"({"jsonrpc": "2.0", "id": 1, "method": "ping"})"
         "\r",
         R"({"jsonrpc": "2.0", "id": 1, "result": {}})"},
        {R"({"jsonrpc": "2.0", "id": "a", "method": "ping", "params": {}})",
         R"({"jsonrpc": "2.0", "id": "a", "result": {}})"},
        {"{\"jsonrpc\": \"2.0\", \"id\": 1, \"method\": ",
         R"({"jsonrpc": "2.0", "id": null, "error": {"code": -32700, "message": "Parse error: ...)"},
        {"{\"jsonrpc\": \"2.0\", \"id\": 1, \"method\": \"p\xffng\"}",
         R"({"jsonrpc": "2.0", "id": null, "error": {"code": -32700, "message": "Parse error: ...)"},
        {"[]",
         R"({"jsonrpc": "2.0", "id": null, "error": {"code": -32600, "message": "Invalid Request: batches are not supported"}})"},
        {"42",
         R"({"jsonrpc": "2.0", "id": null, "error": {"code": -32600, "message": "Invalid Request: a message is a JSON object"}})"},
        {R"({"jsonrpc": "2.0", "id": true, "method": "ping"})",
         R"({"jsonrpc": "2.0", "id": null, "error": {"code": -32600, "message": "Invalid Request: \"id\" must be a string or an integer"}})"},
        {R"({"jsonrpc": "1.0", "id": 2, "method": "ping"})",
         R"({"jsonrpc": "2.0", "id": 2, "error": {"code": -32600, "message": "Invalid Request: \"jsonrpc\" must be \"2.0\""}})"},
        {R"({"jsonrpc": "2.0", "id": 3, "method": 5})",
         R"({"jsonrpc": "2.0", "id": 3, "error": {"code": -32600, "message": "Invalid Request: \"method\" must be a string"}})"},
        {R"({"jsonrpc": "2.0", "id": 4, "method": "resources/list"})",
         R"({"jsonrpc": "2.0", "id": 4, "error": {"code": -32601, "message": "Method not found: resources/list"}})"},
        {R"({"jsonrpc": "2.0", "id": 5, "method": "initialize", "params": {}})",
         R"({"jsonrpc": "2.0", "id": 5, "error": {"code": -32602, "message": "initialize needs \"protocolVersion\""}})"},
        {R"({"jsonrpc": "2.0", "id": 6, "method": "tools/call", "params": {"arguments": {}}})",
         R"({"jsonrpc": "2.0", "id": 6, "error": {"code": -32602, "message": "tools/call needs the tool's \"name\""}})"},
        {call + R"({"name": "explore", "arguments": {}}})",
         bad_args + R"("message": "Unknown tool: explore"}})"},
        {call + R"({"name": "understand", "arguments": []}})",
         bad_args + R"("message": "\"arguments\" must be an object"}})"},
        {understand("{}"), invalid(R"(\"action\" is required)")},
        {understand(R"({"action": "forget"})"),
         invalid(R"(\"action\" must be one of \"store\", \"recall\", \"list\")")},
        {understand(R"({"action": "store", "purpose": "x"})"),
         invalid(R"(action \"store\" needs \"target\")")},
        {understand(R"({"action": "store", "target": "a.py", "key_points": "one"})"),
         invalid(R"(\"key_points\" must be a list of strings)")},
        {understand(R"({"action": "recall", "target": 5})"),
         invalid(R"(\"target\" must be a string)")},
        {understand(R"({"action": "recall"})"),
         invalid(R"(action \"recall\" needs a \"target\" (a file path) or a \"query\" (words to )"
                 R"(search for))")},
        {understand(R"({"action": "list", "targte": "a.py"})"),
         invalid(R"(unknown argument \"targte\")")},
        {call + R"({"name": "remember", "arguments": {"action": "store", "key": "k"}}})",
         bad_args +
             R"("message": "Invalid arguments for remember: action \"store\" needs \"value\""}})"},
        {R"({"jsonrpc": "2.0", "id": 9, "result": {}})", ""},
        {"", ""},
        {R"({"jsonrpc": "2.0", "id": "last", "method": "ping"})",
         R"({"jsonrpc": "2.0", "id": "last", "result": {}})"},
    };
    RunOptions options;
    for (const Exchange& e : exchanges) options.stdin_data += e.in + "\n";
    options.stdin_data.pop_back();
    const HookRun r = run({"mcp"}, options);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");

    std::istringstream lines(r.out);
    std::string line;
    for (const Exchange& e : exchanges) {
        if (e.out.empty()) continue;
        SCOPED_TRACE(e.in);
        ASSERT_TRUE(std::getline(lines, line)) << "no answer";
        if (e.out.ends_with("...")) {
            EXPECT_EQ(line.substr(0, e.out.size() - 3), e.out.substr(0, e.out.size() - 3));
        } else {
            EXPECT_EQ(line, e.out);
        }
    }
    EXPECT_FALSE(std::getline(lines, line)) << "unexpected: " << line;
    EXPECT_FALSE(fs::exists(repo_ / "memory")) << "no call reached the store";
}

}  // namespace
}  // namespace e2e
