// The code index: `orvane-tamblo index` over a repository of every language, what it leaves out,
// a refresh that answers as a fresh index would, what it refuses, and the nudge it turns on.
#include <sqlite3.h>
#include <unistd.h>

#include <ctime>
#include <regex>

#include "harness.hpp"

namespace e2e {
namespace {

using Args = std::vector<std::string>;

struct Source {
    const char* path;
    const char* text;
};

// One small file per language: a definition that calls a function defined beside it.
const Source kSources[] = {
    {"src/py/shapes.py",
     "class Shape:\n    def area(self):\n        return scale(1)\n\n\ndef scale(x):\n"
     "    return x * 2\n"},
    {"src/js/cart.js",
     "function total(items) {\n  return items.reduce((sum, item) => sum + price(item), 0);\n}\n\n"
     "function price(item) {\n  return item.cost;\n}\n"},
    {"src/ts/user.ts",
     "export interface User {\n  id: number;\n}\n\nexport class UserStore {\n"
     "  find(id: number): User {\n    return load(id);\n  }\n}\n\n"
     "function load(id: number): User {\n  return { id };\n}\n"},
    {"src/ts/view.tsx",
     "export function Greeting(props: { name: string }) {\n"
     "  return <span>{greet(props.name)}</span>;\n}\n\n"
     "function greet(name: string) {\n  return \"hi \" + name;\n}\n"},
    {"src/go/server.go",
     "package server\n\ntype Server struct{ port int }\n\nfunc (s *Server) Start() error {\n"
     "\treturn listen(s.port)\n}\n\nfunc listen(port int) error {\n\treturn nil\n}\n"},
    {"src/rs/lib.rs",
     "pub struct Counter {\n    n: u32,\n}\n\nimpl Counter {\n    pub fn bump(&mut self) {\n"
     "        self.n = step(self.n);\n    }\n}\n\nfn step(n: u32) -> u32 {\n    n + 1\n}\n"},
    {"src/java/App.java",
     "public class App {\n    public static void main(String[] args) {\n"
     "        run(args.length);\n    }\n\n    static void run(int n) {\n"
     "        System.out.println(n);\n    }\n}\n"},
    {"src/c/list.c",
     "struct node {\n    int value;\n};\n\nint twice(int x);\n\n"
     "static int sum(struct node *n) {\n    return twice(n->value);\n}\n\n"
     "int twice(int x) {\n    return 2 * x;\n}\n"},
    {"src/cpp/geometry.cpp",
     "namespace geo {\n\ndouble square(double x) { return x * x; }\n\nclass Circle {\n"
     "  public:\n    double area() const { return square(r_) * 3.14; }\n\n  private:\n"
     "    double r_ = 1;\n};\n\n}  // namespace geo\n"},
};

class Index : public HookTest {
  protected:
    void SetUp() override {
        HookTest::SetUp();
        for (const Source& source : kSources) put(source.path, source.text);
    }

    void put(const std::string& path, const std::string& text) {
        fs::create_directories((repo_ / path).parent_path());
        write_file(repo_ / path, text);
    }

    HookRun host(const Args& args) { return run(args, {.real_host = true}); }

    std::string query(const std::string& action, const std::string& name, Args extra = {}) {
        Args args = {"query", "symbol", "--action=" + action, "--name=" + name};
        args.insert(args.end(), extra.begin(), extra.end());
        const HookRun answer = host(args);
        EXPECT_EQ(answer.err, "");
        EXPECT_EQ(answer.status, 0);
        return answer.out;
    }

    // `index --json` with its time taken out, which no two runs share.
    std::string index_json(const Args& extra = {}) {
        Args args = {"index", "--json"};
        args.insert(args.end(), extra.begin(), extra.end());
        const HookRun indexed = host(args);
        EXPECT_EQ(indexed.err, "");
        EXPECT_EQ(indexed.status, 0);
        return std::regex_replace(indexed.out, std::regex(R"x("seconds": [0-9.e+-]+)x"),
                                  "\"seconds\": S");
    }

    fs::path index_db() const { return repo_ / "memory/codebase-index/index.db"; }
};

TEST_F(Index, FindsEachLanguagesDefinitionsAndTheirCallers) {
    EXPECT_EQ(index_json(),
              "{\"files\": 9, \"parsed\": 9, \"unchanged\": 0, \"removed\": 0, \"skipped\": "
              "{\"large\": 0, \"binary\": 0, \"minified\": 0, \"generated\": 0, \"timed_out\": 0, "
              "\"failed\": 0, \"unreadable\": 0}, \"other_files\": 0, \"definitions\": 27, "
              "\"references\": 17, \"seconds\": S, \"rebuilt\": true}\n");
    struct Case {
        const char* callee;
        const char* caller;  // as a definition is asked for
        const char* hit;     // the caller, as both queries answer it
    };
    const Case cases[] = {
        {"scale", "Shape.area",
         R"x("name": "area", "kind": "method", "path": "src/py/shapes.py", "line": 2, "end_line": 3, )x"
         R"x("scope": "Shape", "signature": "def area(self)", "language": "python")x"},
        {"price", "total",
         R"x("name": "total", "kind": "function", "path": "src/js/cart.js", "line": 1, )x"
         R"x("end_line": 3, "scope": "", "signature": "function total(items)", )x"
         R"x("language": "javascript")x"},
        {"load", "UserStore.find",
         R"x("name": "find", "kind": "method", "path": "src/ts/user.ts", "line": 6, "end_line": 8, )x"
         R"x("scope": "UserStore", "signature": "find(id: number): User", "language": "typescript")x"},
        {"greet", "Greeting",
         R"x("name": "Greeting", "kind": "function", "path": "src/ts/view.tsx", "line": 1, )x"
         R"x("end_line": 3, "scope": "", "signature": "function Greeting(props: { name: string })", )x"
         R"x("language": "tsx")x"},
        {"listen", "Server.Start",
         R"x("name": "Start", "kind": "method", "path": "src/go/server.go", "line": 5, )x"
         R"x("end_line": 7, "scope": "Server", "signature": "func (s *Server) Start() error", )x"
         R"x("language": "go")x"},
        {"step", "Counter::bump",
         R"x("name": "bump", "kind": "method", "path": "src/rs/lib.rs", "line": 6, "end_line": 8, )x"
         R"x("scope": "Counter", "signature": "pub fn bump(&mut self)", "language": "rust")x"},
        {"run", "App.main",
         R"x("name": "main", "kind": "method", "path": "src/java/App.java", "line": 2, )x"
         R"x("end_line": 4, "scope": "App", "signature": "public static void main(String[] args)", )x"
         R"x("language": "java")x"},
        {"twice", "sum",
         R"x("name": "sum", "kind": "function", "path": "src/c/list.c", "line": 7, "end_line": 9, )x"
         R"x("scope": "", "signature": "static int sum(struct node *n)", "language": "c")x"},
        {"square", "geo::Circle::area",
         R"x("name": "area", "kind": "method", "path": "src/cpp/geometry.cpp", "line": 7, )x"
         R"x("end_line": 7, "scope": "geo.Circle", "signature": "double area() const", )x"
         R"x("language": "cpp")x"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.callee);
        EXPECT_EQ(query("callers", c.callee), std::string("{\"results\": [{") + c.hit +
                                                  ", \"calls\": 1}], \"truncated\": false}\n");
        EXPECT_EQ(query("definition", c.caller),
                  std::string("{\"results\": [{") + c.hit + "}], \"truncated\": false}\n");
    }
    EXPECT_EQ(query("references", "twice"),
              "{\"results\": [{\"path\": \"src/c/list.c\", \"line\": 8, \"column\": 12, \"kind\": "
              "\"call\", \"in\": \"sum\"}], \"truncated\": false}\n");
    // getUser's words find get_user and UserGetter, after the exact match.
    put("src/py/users.py",
        "def get_user():\n    pass\n\nclass UserGetter:\n    pass\n\ndef getUser():\n    pass\n");
    index_json();
    const HookRun search =
        host({"query", "search", "--action=symbols", "--query=getUser", "--kind=function"});
    EXPECT_EQ(search.out,
              "{\"results\": [{\"name\": \"getUser\", \"kind\": \"function\", \"path\": "
              "\"src/py/users.py\", \"line\": 7, \"end_line\": 8, \"scope\": \"\", \"signature\": "
              "\"def getUser()\", \"language\": \"python\"}, {\"name\": \"get_user\", \"kind\": "
              "\"function\", \"path\": \"src/py/users.py\", \"line\": 1, \"end_line\": 2, "
              "\"scope\": \"\", \"signature\": \"def get_user()\", \"language\": \"python\"}], "
              "\"truncated\": false}\n");
    EXPECT_EQ(host({"query", "search", "--action=symbols", "--query=getUser", "--limit=2"}).out,
              "{\"results\": [{\"name\": \"getUser\", \"kind\": \"function\", \"path\": "
              "\"src/py/users.py\", \"line\": 7, \"end_line\": 8, \"scope\": \"\", \"signature\": "
              "\"def getUser()\", \"language\": \"python\"}, {\"name\": \"get_user\", \"kind\": "
              "\"function\", \"path\": \"src/py/users.py\", \"line\": 1, \"end_line\": 2, "
              "\"scope\": \"\", \"signature\": \"def get_user()\", \"language\": \"python\"}], "
              "\"truncated\": true}\n");
}

TEST_F(Index, LeavesOutWhatGitWouldNotTrackAndWhatIsNoSource) {
    const std::string hidden = "def hidden():\n    pass\n";
    put(".gitignore", "build/\n");
    put("build/out.py", hidden);
    put("src/.gitignore", "*.gen.py\n!keep.gen.py\n");
    put("src/a.gen.py", hidden);
    put("src/keep.gen.py", "def kept():\n    pass\n");
    put(".git/info/exclude", "local.py\n");
    put("local.py", hidden);
    put("vendor/repo/.git/HEAD", "ref: refs/heads/main\n");  // a nested repository
    put("vendor/repo/lib.py", hidden);
    put("big.py", "x = 1\n" + std::string(1 << 20, '#') + "\ndef hidden():\n    pass\n");
    put("data.py", std::string("def hidden():\0\n", 15));
    put("app.min.js", "function hidden(){}\n");
    put("gen.py", "# Code generated by hand. DO NOT EDIT.\ndef hidden():\n    pass\n");
    put("README.md", "# hidden\n");
    if (!windows_build()) {
        fs::create_directories(root_ / "outside");
        write_file(root_ / "outside/leak.py", hidden);
        fs::create_directory_symlink(root_ / "outside", repo_ / "src/linked");
        fs::create_symlink(root_ / "outside/leak.py", repo_ / "src/leak.py");
    }
    EXPECT_EQ(index_json(),
              "{\"files\": 10, \"parsed\": 10, \"unchanged\": 0, \"removed\": 0, \"skipped\": "
              "{\"large\": 1, \"binary\": 1, \"minified\": 1, \"generated\": 1, \"timed_out\": 0, "
              "\"failed\": 0, \"unreadable\": 0}, \"other_files\": 3, \"definitions\": 28, "
              "\"references\": 17, \"seconds\": S, \"rebuilt\": true}\n");
    EXPECT_EQ(query("definition", "hidden"), "{\"results\": [], \"truncated\": false}\n");
    EXPECT_EQ(query("definition", "kept"),
              "{\"results\": [{\"name\": \"kept\", \"kind\": \"function\", \"path\": "
              "\"src/keep.gen.py\", \"line\": 1, \"end_line\": 2, \"scope\": \"\", \"signature\": "
              "\"def kept()\", \"language\": \"python\"}], \"truncated\": false}\n");
}

TEST_F(Index, RefreshAnswersAsAFreshIndexWould) {
    index_json();
    // An edit that renames the callee, a file moved, a file deleted, one added.
    put("src/py/shapes.py",
        "class Shape:\n    def area(self):\n        return grow(1)\n\n\ndef grow(x):\n"
        "    return x * 2\n");
    fs::rename(repo_ / "src/js/cart.js", repo_ / "src/js/basket.js");
    fs::remove(repo_ / "src/c/list.c");
    put("src/c/more.c",
        "int twice(int x) { return x + x; }\nint four(void) { return twice(2); }\n");
    EXPECT_EQ(index_json(),
              "{\"files\": 9, \"parsed\": 3, \"unchanged\": 6, \"removed\": 2, \"skipped\": "
              "{\"large\": 0, \"binary\": 0, \"minified\": 0, \"generated\": 0, \"timed_out\": 0, "
              "\"failed\": 0, \"unreadable\": 0}, \"other_files\": 0, \"definitions\": 26, "
              "\"references\": 16, \"seconds\": S, \"rebuilt\": false}\n");
    const std::vector<std::pair<std::string, std::string>> asked = {
        {"callers", "scale"}, {"callers", "grow"},   {"definition", "total"},
        {"callers", "twice"}, {"definition", "sum"}, {"references", "price"}};
    std::vector<std::string> refreshed;
    for (const auto& [action, name] : asked) refreshed.push_back(query(action, name));
    EXPECT_EQ(refreshed[0], "{\"results\": [], \"truncated\": false}\n");
    EXPECT_EQ(refreshed[4], "{\"results\": [], \"truncated\": false}\n");
    EXPECT_EQ(refreshed[5],
              "{\"results\": [{\"path\": \"src/js/basket.js\", \"line\": 2, \"column\": 44, "
              "\"kind\": \"call\", \"in\": \"total\"}], \"truncated\": false}\n");

    EXPECT_EQ(index_json({"--rebuild"}),
              "{\"files\": 9, \"parsed\": 9, \"unchanged\": 0, \"removed\": 0, \"skipped\": "
              "{\"large\": 0, \"binary\": 0, \"minified\": 0, \"generated\": 0, \"timed_out\": 0, "
              "\"failed\": 0, \"unreadable\": 0}, \"other_files\": 0, \"definitions\": 26, "
              "\"references\": 16, \"seconds\": S, \"rebuilt\": true}\n");
    for (std::size_t i = 0; i < asked.size(); ++i) {
        EXPECT_EQ(query(asked[i].first, asked[i].second), refreshed[i]) << asked[i].second;
    }
}

TEST_F(Index, BrokenSourcesAreIndexedAndForeignIndexesRefused) {
    const std::string no_index =
        "orvane-tamblo query symbol: error: no code index in this repository yet; build it with "
        "`orvane-tamblo index`\n";
    expect_error(host({"query", "symbol", "--action=callers", "--name=scale"}), no_index, 1);

    // What comes before a syntax error is still found.
    put("src/py/broken.py", "def fine():\n    pass\n\ndef broken(:\n    ]]] {{{\n");
    index_json();
    EXPECT_EQ(query("definition", "fine"),
              "{\"results\": [{\"name\": \"fine\", \"kind\": \"function\", \"path\": "
              "\"src/py/broken.py\", \"line\": 1, \"end_line\": 2, \"scope\": \"\", \"signature\": "
              "\"def fine()\", \"language\": \"python\"}], \"truncated\": false}\n");

    struct Foreign {
        std::string content;
        std::string error;
    };
    const Foreign foreign[] = {
        {"not a database, but a file of the user's\n",
         "orvane-tamblo index: error: memory/codebase-index/index.db: file is not a database\n"},
        {"",
         "orvane-tamblo index: error: memory/codebase-index/index.db: an empty file that is no "
         "index of ours; it is left as it is\n"},
    };
    for (const Foreign& f : foreign) {
        write_file(index_db(), f.content);
        for (const Args& args : {Args{"index"}, Args{"index", "--rebuild"}}) {
            expect_error(host(args), f.error, 1);
            EXPECT_EQ(read_file(index_db()), f.content);
        }
        // The AI cache answers without it, and says why in the host log.
        expect_clean(host({"query", "understand", "--action=recall", "--target=src/py/broken.py"}),
                     "{\"found\": false}\n");
    }
    EXPECT_NE(host_log().find("WARNING orvane_tamblo.index: orvane-tamblo query understand: "
                              "answering without the code index: memory/codebase-index/index.db: "
                              "an empty database; run `orvane-tamblo index --rebuild`"),
              std::string::npos)
        << host_log();
}

// A file nobody has described gets the index's outline as its cache entry; the per-file hooks
// speak only for what a model wrote, and the stats list the outlines after the model's entries.
TEST_F(Index, UndescribedFilesHaveTheIndexsOutline) {
    index_json();
    const std::string py = repo_ / "src/py/shapes.py";
    const std::string shapes =
        "{\"found\": true, \"fresh\": true, \"understanding\": {\"target\": "
        "\"src/py/shapes.py\", \"scope\": \"file\", \"importance\": \"low\", "
        "\"auto_generated\": true, \"language\": \"python\", \"lines\": 7, \"definitions\": "
        "[{\"name\": \"Shape\", \"kind\": \"class\", \"line\": 1, \"end_line\": 3}, "
        "{\"name\": \"scale\", \"kind\": \"function\", \"line\": 6, \"end_line\": 7}], "
        "\"more_definitions\": 0}}\n";
    for (const std::string target : {"src/py/shapes.py", "./src//py/shapes.py"}) {
        expect_clean(host({"query", "understand", "--action=recall", "--target=" + target}),
                     shapes);
    }
    for (const std::string hook : {"check-cache", "refresh-cache", "remind-store"}) {
        SCOPED_TRACE(hook);
        expect_clean(
            run({"hooks", hook}, {.stdin_data = input_with_path("claude", py), .real_host = true}),
            "");
    }
    for (const std::string target :
         {"--target=src/py/missing.py", "--target=src/../src/py/shapes.py"}) {
        expect_clean(host({"query", "understand", "--action=recall", target}),
                     "{\"found\": false}\n");
    }
    expect_clean(host({"query", "understand", "--action=recall", "--target=src/py/shapes.py",
                       "--scope=module"}),
                 "{\"found\": false}\n");

    // Described: the model's entry wins, and the file is counted once.
    host({"query", "understand", "--action=store", "--target=src/js/cart.js", "--purpose=Cart"});
    const std::string head = "{\"total\": 9, \"by_scope\": {";
    const std::string cart =
        R"({"target": "src/js/cart.js", "importance": "medium", "fresh": true})";
    const auto thin = [](const std::string& path) {
        return R"(, {"target": ")" + path +
               R"(", "importance": "low", "fresh": true, "auto_generated": true})";
    };
    expect_clean(host({"query", "understand", "--action=stats", "--limit=3", "--include-fresh"}),
                 head + R"("file": {"entries": [)" + cart + thin("src/c/list.c") +
                     thin("src/cpp/geometry.cpp") + "]}}}\n");
    expect_clean(host({"query", "understand", "--action=stats"}), head + "}}\n");
    put(".orvane-tamblo/brief.md", "Brief.");
    std::string listed = "- [medium] src/js/cart.js (file)";
    for (const char* path :
         {"src/c/list.c", "src/cpp/geometry.cpp", "src/go/server.go", "src/java/App.java",
          "src/py/shapes.py", "src/rs/lib.rs", "src/ts/user.ts", "src/ts/view.tsx"}) {
        listed += std::string("\n- [low] ") + path + " (file)";
    }
    expect_clean(run({"hooks", "session-start", "--agent", "windsurf"},
                     {.stdin_data = "{}", .real_host = true}),
                 "Brief.\n\n## AI Cache Status\n\n**9 entries cached.** Use "
                 "`understand(action=\"recall\", target=\"...\")` before reading files.\n\n"
                 "### Cached Entries:\n" +
                     listed +
                     "\n\n### Quick Start:\n- `understand(action=\"recall\")` for semantic "
                     "search across cache\n- `explore(query=\"...\")` for multi-strategy code "
                     "exploration\n- `remember(action='list')` to see stored project memories\n");
}

// serve's lines on the index, between the store's and the hooks': what it holds, when it was last
// brought up to date, and whether a live process keeps it current.
TEST_F(Index, ServeReportsTheIndexAndWhoKeepsItCurrent) {
    const auto index_lines = [&](int status = 0) {
        const HookRun r = host({"serve"});
        EXPECT_EQ(r.status, status) << r.err;
        const std::size_t from = r.out.find("\nindex ") + 1, to = r.out.find("\nhooks ") + 1;
        // The times of the refresh and of the keeper's end are the run's own.
        return std::regex_replace(r.out.substr(from, to - from),
                                  std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d \(just now\))"), "T");
    };
    EXPECT_EQ(index_lines(), "index     none yet; build it with `orvane-tamblo index`\n");

    put("big.py", std::string(1 << 20, '#') + "\n");
    put("README.md", "# readme\n");
    index_json();
    const std::string counts = "index     " + native(index_db()) +
                               "\n"
                               "files     9 source files indexed, 1 skipped (1 large), 1 other "
                               "file known by path only\n"
                               "symbols   27 definitions, 17 references\n"
                               "refreshed T\n";
    EXPECT_EQ(index_lines(), counts +
                                 "keeper    none has run; the MCP server keeps the index "
                                 "current while an agent's session runs\n");

    const auto keeper = [&](std::int64_t pid, std::int64_t since = 0) {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(index_db().c_str(), &db), SQLITE_OK);
        const std::string sql =
            "INSERT OR REPLACE INTO meta VALUES ('keeper_pid', " + std::to_string(pid) +
            "), ('keeper_watching', 'inotify, 12 directories'), ('keeper_since', " +
            std::to_string(since) + ")";
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    };
    keeper(2147483646);  // no system gives out such an id
    EXPECT_EQ(index_lines(), counts +
                                 "keeper    none running: the last MCP server (pid "
                                 "2147483646) has ended; the next one, or `orvane-tamblo "
                                 "index`, brings the index up to date\n");
    keeper(0, static_cast<std::int64_t>(std::time(nullptr)) * 1000);  // one that stopped
    EXPECT_EQ(index_lines(),
              counts +
                  "keeper    none running: the last MCP server stopped T; the "
                  "next one, or `orvane-tamblo index`, brings the index up to date\n");
    if (!windows_build()) {
        keeper(::getpid());
        EXPECT_EQ(index_lines(), counts + "keeper    the MCP server (pid " +
                                     std::to_string(::getpid()) +
                                     ") keeps it current: inotify, 12 directories\n");
    }

    write_file(index_db(), "not a database, but a file of the user's\n");
    EXPECT_EQ(index_lines(1), "index     " + native(index_db()) +
                                  "\nfiles     PROBLEM: memory/codebase-index/index.db: file is "
                                  "not a database\n");
}

TEST_F(Index, TheNudgeSpeaksOnceTheRepositoryIsIndexed) {
    const std::string grep = R"x({"tool_name": "Grep", "tool_input": {"pattern": "getUser"}})x";
    fs::create_directories(repo_ / "memory/codebase-index");
    const auto nudge = [&] {
        return run({"hooks", "suggest-tamblo"}, {.stdin_data = grep, .real_host = true});
    };
    expect_clean(nudge(), "");
    index_json();
    EXPECT_NE(nudge().out.find("`getUser` looks like symbol discovery"), std::string::npos);
}

}  // namespace
}  // namespace e2e
