// The MCP server's JSON-RPC side: initialize settles on a protocol version, every malformed or
// unanswerable message gets its standard error, notifications get nothing, and the server goes on
// answering after each. Then every AI cache call the hooks show, as written, and the code index's
// tools, kept current while the server runs.
#include <map>
#include <regex>
#include <set>
#include <thread>

#include "harness.hpp"
#include "support/json.hpp"

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
        {call + R"({"name": "forget", "arguments": {}}})",
         bad_args + R"("message": "Unknown tool: forget"}})"},
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
        {understand(R"({"action": "list", "targte": "a.py"})"),
         invalid(R"(unknown argument \"targte\")")},
        {call + R"({"name": "remember", "arguments": {"action": "store", "key": "k"}}})",
         bad_args +
             R"("message": "Invalid arguments for remember: action \"store\" needs \"value\""}})"},
        {call +
             R"({"name": "search", "arguments": {"action": "symbols", "query": "a", "kind": "klass"}}})",
         bad_args + R"("message": "Invalid arguments for search: \"kind\" must be one of )"
                    R"(function, method, class, interface, struct, enum, union, type, trait, )"
                    R"(module, namespace, constant, variable, field, macro, impl, other"}})"},
        {call + R"({"name": "search", "arguments": {"action": "symbols"}}})",
         bad_args + R"("message": "Invalid arguments for search: action \"symbols\" needs )"
                    R"(\"query\""}})"},
        {call + R"({"name": "symbol", "arguments": {"action": "callers", "name": 3}}})",
         bad_args + R"("message": "Invalid arguments for symbol: \"name\" must be a string"}})"},
        {call + R"({"name": "symbol", "arguments": {"action": "callers", "limit": 0}}})",
         bad_args + R"("message": "Invalid arguments for symbol: \"limit\" must be a whole )"
                    R"(number from 1 to 200"}})"},
        {call + R"({"name": "explore", "arguments": {"question": "f"}}})",
         bad_args + R"("message": "Invalid arguments for explore: unknown argument )"
                    R"(\"question\""}})"},
        // Outside a repository (no .git here) the server builds no index by itself.
        {call + R"({"name": "search", "arguments": {"action": "symbols", "query": "main"}}})",
         R"({"jsonrpc": "2.0", "id": 7, "result": {"content": [{"type": "text", "text": "This )"
         R"(repository has no code index yet: build it with `orvane-tamblo index` in the )"
         R"(repository's root (this server then keeps it current)."}]}})"},
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

// The understand and remember calls the hooks' texts show, as a model would send them: quoted
// values as strings, [...] as a list of one placeholder, a bare ... (for "and the rest") left out.
std::string call_arguments(const std::string& call) {
    std::string json;
    std::size_t i = call.find('(') + 1;
    while (i < call.size() && call[i] != ')') {
        const std::size_t equals = call.find('=', i);
        const std::size_t end = call.find_first_of(",)", i);
        if (equals < end) {
            json += (json.empty() ? "\"" : ", \"") + call.substr(i, equals - i) + "\": ";
            const char open = call[equals + 1];
            const std::size_t close = open == '[' ? call.find(']', equals) : call.find(open, equals + 2);
            const std::string value = call.substr(equals + 2, close - equals - 2);
            json += open == '[' ? "[\"" + value + "\"]" : "\"" + value + "\"";
            i = close + 1;
        } else {
            i = end;  // a bare ...
        }
        while (i < call.size() && (call[i] == ',' || call[i] == ' ')) ++i;
    }
    return "{\"name\": \"" + call.substr(0, call.find('(')) + "\", \"arguments\": {" + json + "}}";
}

TEST_F(McpProtocol, EveryCallTheHooksShowWorksAsWritten) {
    fs::create_directories(repo_ / "src");
    write_file(repo_ / "src/app.py", "def main():\n    serve()\n");
    write_file(repo_ / "src/util.py", "def serve():\n    pass\n");
    const auto hook = [&](const std::string& name, const std::string& input) {
        return run({"hooks", name, "--agent", "windsurf"},
                   {.stdin_data = input, .real_host = true}).out;
    };
    const auto file = [&](const std::string& path) {
        return input_with_path("windsurf", (repo_ / path).string());
    };
    std::string texts = hook("session-start", "{}");  // nothing cached yet
    run({"index"}, {.real_host = true});
    run({"query", "understand", "--action=store", "--target=src/app.py", "--purpose=Serves the app"},
        {.real_host = true});
    for (const auto& [name, input] :
         std::vector<std::pair<std::string, std::string>>{{"session-start", "{}"},
                                                          {"check-cache", file("src/app.py")},
                                                          {"refresh-cache", file("src/app.py")},
                                                          {"remind-store", file("src/new.py")},
                                                          {"persist-learnings", "{}"},
                                                          {"save-compact", "{}"},
                                                          {"inject-context", "{}"}}) {
        const std::string text = hook(name, input);
        EXPECT_NE(text, "") << name;
        texts += text;
    }
    write_file(repo_ / "src/app.py", "def main():\n    serve(1)\n");
    texts += hook("check-cache", file("src/app.py"));  // stale

    std::set<std::string> shown;
    const std::regex call(R"((understand|remember)\([^()]*\))");
    for (auto it = std::sregex_iterator(texts.begin(), texts.end(), call);
         it != std::sregex_iterator(); ++it) {
        shown.insert(it->str());
    }
    // Each call as the hooks show it, and the first line of its answer: placeholders are never
    // stored, and a recall with nothing to look for lists what is cached.
    const std::string cached = "The 1 most useful of 1 cached understanding (the most important "
                               "of those stored last), best first:";
    const std::string how_to_store =
        "Nothing stored. understand(action=\"store\") caches what you learned about a file once "
        "you have read it, for later sessions: its path from the repository root and what you "
        "found, as in understand(action=\"store\", scope=\"file\", target=\"src/app.py\", "
        "purpose=\"what the file is for\", key_points=[\"what a reader needs to know\"], "
        "gotchas=[\"traps, surprises, invariants\"]). importance is \"high\", \"medium\" (the "
        "default) or \"low\".";
    const auto nothing_learned = [](const std::string& path) {
        return "Nothing stored for " + path +
               ": purpose, key_points and gotchas are missing or placeholders. Say what you "
               "learned about it, as in understand(action=\"store\", scope=\"file\", "
               "target=\"src/app.py\", purpose=\"what the file is for\", key_points=[\"what a "
               "reader needs to know\"], gotchas=[\"traps, surprises, invariants\"]).";
    };
    const std::string no_memories =
        "No memories yet. remember(action=\"store\", key=\"decision/storage\", value=\"SQLite in "
        "the repository, one file\") keeps one.";
    const std::map<std::string, std::string> expected = {
        {"remember(action='list')", no_memories},
        {"remember(action='recall', key='...')",
         "key \"...\" is a placeholder: give one of the keys below."},
        {"remember(action='store', key='...', value='...')",
         "Nothing remembered. remember(action=\"store\") keeps a decision or a fact about this "
         "project for later sessions, under a short key: remember(action=\"store\", "
         "key=\"decision/storage\", value=\"SQLite in the repository, one file\")."},
        {"understand(action=\"recall\")", cached},
        {"understand(action=\"recall\", target=\"...\")",
         "target \"...\" is a placeholder: give a file's path as target, or words to search for "
         "as query. Meanwhile, what is cached:"},
        {"understand(action=\"recall\", target=\"src/app.py\")",
         "src/app.py (file, importance medium): STALE, the file changed since this was stored. "
         "Read it, then store a new understanding."},
        {"understand(action=\"store\", scope=\"file\", target=\"src/app.py\", purpose=\"...\", "
         "key_points=[...], gotchas=[...])",
         nothing_learned("src/app.py")},
        {"understand(action=\"store\", target=\"src/app.py\", ...)", nothing_learned("src/app.py")},
        {"understand(action='list')",
         "1 cached understanding, the most recently stored first:"},
        {"understand(action='recall')", cached},
        {"understand(action='recall', query='...')",
         "query \"...\" is a placeholder: give a file's path as target, or words to search for as "
         "query. Meanwhile, what is cached:"},
        {"understand(action='recall', target='path/to/file')",
         "Nothing is cached for path/to/file. After reading it, cache what you learn: "
         "understand(action=\"store\", scope=\"file\", target=\"path/to/file\", purpose=\"...\", "
         "key_points=[...], gotchas=[...])."},
        {"understand(action='store')", how_to_store},
        {"understand(action='store', scope='file', target='...', purpose='...', key_points=[...], "
         "gotchas=[...])",
         how_to_store},
        {"understand(action='store', scope='file', target='src/new.py', purpose='...', "
         "key_points=[...], gotchas=[...])",
         nothing_learned("src/new.py")},
        // Not in the texts: what check-cache stays silent for, a file only the index describes.
        {"understand(action=\"recall\", target=\"src/util.py\")",
         "src/util.py: nothing cached yet; this is the indexer's outline of it (python, 2 lines), "
         "as the file is now.\nTop-level definitions:\n- function serve, lines 1-2\nRead only the "
         "part you need. After reading, cache what you learn: understand(action=\"store\", "
         "scope=\"file\", target=\"src/util.py\", purpose=\"...\", key_points=[...], "
         "gotchas=[...])."},
    };
    std::vector<std::string> calls(shown.begin(), shown.end()), listed;
    calls.push_back("understand(action=\"recall\", target=\"src/util.py\")");
    for (const auto& [c, answer] : expected) listed.push_back(c);
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, listed);

    RunOptions options;
    int id = 0;
    for (const std::string& c : calls) {
        options.stdin_data += R"({"jsonrpc": "2.0", "id": )" + std::to_string(++id) +
                              R"(, "method": "tools/call", "params": )" + call_arguments(c) + "}\n";
    }
    const HookRun r = run({"mcp"}, options);
    std::istringstream lines(r.out);
    std::string line;
    for (const std::string& c : calls) {
        ASSERT_TRUE(std::getline(lines, line)) << c;
        const support::Json reply = support::parse_json(line);
        const support::Json* result = reply.find("result");
        ASSERT_NE(result, nullptr) << c << "\n" << line;
        const std::string text = result->find("content")->elements().at(0).find("text")->as_string();
        const auto e = expected.find(c);
        if (e == expected.end()) continue;
        // The outline is a whole answer; the others are checked by their first line.
        EXPECT_EQ(e->second.find('\n') == std::string::npos ? text.substr(0, text.find('\n')) : text,
                  e->second)
            << c;
    }
    EXPECT_EQ(r.err, "");
}

class McpTools : public HookTest {
  protected:
    void SetUp() override {
        HookTest::SetUp();
        fs::create_directories(repo_ / ".git");
        write_file(repo_ / ".gitignore", "build/\n");
        put("src/users.py",
            "class UserStore:\n    def get_user(self, user_id):\n        return "
            "self.rows[user_id]\n\ndef load(store):\n    return store.get_user(1)\n\n"
            "def main():\n    load(UserStore())\n    load(None)\n");
        server_ = converse({"mcp"});
        server_.send(R"({"jsonrpc": "2.0", "id": 0, "method": "initialize", "params": )"
                     R"({"protocolVersion": "2025-06-18", "capabilities": {}, "clientInfo": )"
                     R"({"name": "t", "version": "1"}}})");
        server_.receive();
    }

    void put(const std::string& path, const std::string& text) {
        fs::create_directories((repo_ / path).parent_path());
        write_file(repo_ / path, text);
    }

    // The text of a tool's answer.
    std::string call(const std::string& tool, const std::string& arguments) {
        server_.send(R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": ")" +
                     tool + R"(", "arguments": )" + arguments + "}}");
        const support::Json reply = support::parse_json(server_.receive());
        const support::Json* result = reply.find("result");
        if (result == nullptr) return support::to_json_text(reply);
        return result->find("content")->elements().at(0).find("text")->as_string();
    }

    // Asks until the answer is `expected` (the index catches up in the background), then checks
    // it.
    void expect_soon(const std::string& tool, const std::string& arguments,
                     const std::string& expected) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        std::string text;
        while ((text = call(tool, arguments)) != expected &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        EXPECT_EQ(text, expected) << tool << " " << arguments;
    }

    Conversation server_;
};

TEST_F(McpTools, AnswerFromTheIndexTheServerKeepsCurrent) {
    const std::string get_user = R"({"action": "symbols", "query": "get_user"})";
    const std::string in_users =
        "src/users.py:2 method UserStore.get_user \u2014 def get_user(self, user_id)";
    // The first index is built in the background, answering meanwhile.
    expect_soon("search", get_user, "1 definition matches \"get_user\", best first:\n" + in_users);
    // The hooks' nudge shows symbol calls without a name: the last search's best match.
    EXPECT_EQ(call("symbol", R"({"action": "callers"})"),
              "(No name given: \"UserStore.get_user\", the best match of the last search.)\n"
              "1 caller of \"UserStore.get_user\", most calls first:\n"
              "src/users.py:5 function load \u2014 def load(store) (1 call)");
    EXPECT_EQ(call("symbol", R"({"action": "references", "name": "load", "limit": 1})"),
              "1 reference to \"load\":\nsrc/users.py:9 call in main\n"
              "More: symbol(action=\"references\", name=\"load\", limit=2); path ranks what is "
              "near a file first.");
    EXPECT_EQ(call("explore", R"({"query": "how does load find a user"})"),
              "Definitions:\n"
              "src/users.py:5 function load \u2014 def load(store)\n"
              "src/users.py:1 class UserStore \u2014 class UserStore\n"
              "src/users.py:2 method UserStore.get_user \u2014 def get_user(self, user_id)\n"
              "Callers of load:\n"
              "src/users.py:8 function main \u2014 def main() (2 calls)\n"
              "Callers of UserStore:\n"
              "src/users.py:8 function main \u2014 def main() (1 call)\n"
              "Files:\nsrc/users.py");

    // A file saved while the server runs is found; one under an ignored directory is not, until
    // the directory is no longer ignored; a file removed is gone.
    put("build/gen.py", "def get_user_generated():\n    pass\n");
    put("src/fast.py", "def get_user_fast(x):\n    return x\n");
    const std::string in_fast = "src/fast.py:1 function get_user_fast \u2014 def get_user_fast(x)";
    expect_soon("search", get_user,
                "2 definitions match \"get_user\", best first:\n" + in_users + "\n" + in_fast);
    write_file(repo_ / ".gitignore", "");
    expect_soon("search", get_user,
                "3 definitions match \"get_user\", best first:\n" + in_users + "\n" + in_fast +
                    "\nbuild/gen.py:1 function get_user_generated \u2014 def get_user_generated()");
    fs::remove_all(repo_ / "build");
    fs::remove(repo_ / "src/fast.py");
    expect_soon("search", get_user, "1 definition matches \"get_user\", best first:\n" + in_users);

    const HookRun r = server_.end();
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
}

}  // namespace
}  // namespace e2e
