#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "engines/index/extract.hpp"
#include "engines/index/query_set.hpp"

using code_index::ExtractStatus;
using code_index::Language;

namespace {

// Definitions as "kind name line-end scope | signature", calls as "name line:column in".
struct Seen {
    std::vector<std::string> definitions, calls;
};

Seen extract(Language language, const std::string& source) {
    code_index::Extractor extractor;
    code_index::Extraction out;
    EXPECT_EQ(extractor.extract(language, source, std::chrono::seconds(10), out),
              ExtractStatus::ok);
    Seen seen;
    for (const auto& d : out.definitions) {
        seen.definitions.push_back(d.kind + " " + d.name + " " + std::to_string(d.line) + "-" +
                                   std::to_string(d.end_line) + " " + d.scope + " | " +
                                   d.signature);
    }
    for (const auto& r : out.references) {
        if (r.kind != "call") continue;
        seen.calls.push_back(r.name + " " + std::to_string(r.line) + ":" +
                             std::to_string(r.column) + " " +
                             (r.in < 0 ? "-" : out.definitions[r.in].name));
    }
    return seen;
}

struct Case {
    Language language;
    std::string source;
    std::vector<std::string> definitions, calls;
};

}  // namespace

TEST(Extract, DefinitionsAndCallsPerLanguage) {
    const Case cases[] = {
        {Language::python,
         "MAX = 10\nclass Foo(Base):\n    @property\n    def size(self,\n             x=1) -> "
         "int:\n"
         "        s = \"\xC3\xA9\"; return helper(x)\n\ndef helper(y):\n    f = lambda: Foo()\n"
         "    return f()\n",
         {"constant MAX 1-1  | MAX = 10", "class Foo 2-6  | class Foo(Base)",
          "method size 4-6 Foo | def size(self, x=1) -> int",
          "function helper 8-10  | def helper(y)", "function f 9-9 helper | f = lambda"},
         {"helper 6:25 size", "Foo 9:17 f", "f 10:12 helper"}},
        {Language::javascript,
         "class Widget extends Base {\n  render() { return draw(this); }\n}\n"
         "const make = (x) => new Widget(x);\nWidget.prototype.size = 3;\nconst fs = "
         "require('fs');\n"
         "const App = () => <Widget />;\n",
         {"class Widget 1-3  | class Widget extends Base", "method render 2-2 Widget | render()",
          "function make 4-4  | make = (x) =>", "method size 5-5  | Widget.prototype.size = 3",
          "variable fs 6-6  | fs = require('fs')", "function App 7-7  | App = () =>"},
         {"draw 2:21 render", "Widget 4:25 make", "Widget 7:20 App"}},
        {Language::typescript,
         "interface Shape { area(): number; }\nnamespace NS { export function f(): void { g(); } "
         "}\n"
         "export abstract class Base<T> implements Shape {\n  abstract area(): number;\n}\n",
         {"interface Shape 1-1  | interface Shape", "method area 1-1 Shape | area(): number",
          "namespace NS 2-2  | namespace NS", "function f 2-2 NS | function f(): void",
          "class Base 3-5  | abstract class Base<T> implements Shape",
          "method area 4-4 Base | abstract area(): number"},
         {"g 2:44 f"}},
        {Language::tsx,
         "export function App(p: Props) {\n  return <Panel title={fmt(p)} />;\n}\n",
         {"function App 1-3  | function App(p: Props)"},
         {"Panel 2:11 App", "fmt 2:24 App"}},
        {Language::go,
         "package main\n\ntype Point struct{ X int }\n\nfunc (p *Point) Move(dx int) {\n"
         "\tfmt.Println(dx)\n}\n\nfunc main() { (&Point{}).Move(1) }\n",
         {"struct Point 3-3  | Point struct",
          "method Move 5-7 Point | func (p *Point) Move(dx int)",
          "function main 9-9  | func main()"},
         {"Println 6:6 Move", "Move 9:26 main"}},
        {Language::rust,
         "trait Shape { fn area(&self) -> f64; }\nimpl Shape for Point {\n"
         "    fn area(&self) -> f64 { helper(self.x) }\n}\nfn helper(x: i32) -> f64 {\n"
         "    println!(\"{}\", x); x.into()\n}\n",
         {"trait Shape 1-1  | trait Shape", "method area 1-1 Shape | fn area(&self) -> f64",
          "method area 3-3 Point | fn area(&self) -> f64",
          "function helper 5-7  | fn helper(x: i32) -> f64"},
         {"helper 3:29 area", "println 6:5 helper", "into 6:26 helper"}},
        {Language::java,
         "public class A extends B {\n  public A(int c) { super(); }\n"
         "  static int helper(int x) { return new A(x).get(); }\n  enum Kind { ONE }\n}\n",
         {"class A 1-5  | public class A extends B", "method A 2-2 A | public A(int c)",
          "method helper 3-3 A | static int helper(int x)", "enum Kind 4-4 A | enum Kind",
          "constant ONE 4-4 A.Kind | ONE"},
         {"A 3:41 helper", "get 3:46 helper"}},
        {Language::c,
         "#define SQ(x) ((x) * sq_(x, \"f(\")) /* g(x) */\ntypedef int (*cmp_fn)(int);\n"
         "int proto(int);\n"
         "static int *\nfind(struct node *n)\n{\n    return lookup(n->v, SQ(2));\n}\n"
         "LUA_API int get (lua_State *L) { return n->fn(L); }\n",
         {"macro SQ 1-1  | #define SQ(x) ((x) * sq_(x, \"f(\")) /* g(x) */",
          "type cmp_fn 2-2  | typedef int (*cmp_fn)(int)",
          "function find 4-8  | static int * find(struct node *n)",
          "function get 9-9  | LUA_API int get (lua_State *L)"},
         {"sq_ 1:22 SQ", "lookup 7:12 find", "SQ 7:25 find", "fn 9:44 get"}},
        {Language::cpp,
         "namespace geo {\nclass Shape {\n  int count() const { return helper(); }\n"
         "  T& at(int i);\n};\nT& Shape::at(int i) { return v.at(i); }\n}\n",
         {"namespace geo 1-7  | namespace geo", "class Shape 2-5 geo | class Shape",
          "method count 3-3 geo.Shape | int count() const",
          "method at 4-4 geo.Shape | T& at(int i)",
          "method at 6-6 geo.Shape | T& Shape::at(int i)"},
         {"helper 3:30 count", "at 6:32 at"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(code_index::language_name(c.language)));
        EXPECT_EQ(code_index::query_error(c.language), "");
        const Seen seen = extract(c.language, c.source);
        EXPECT_EQ(seen.definitions, c.definitions);
        EXPECT_EQ(seen.calls, c.calls);
    }
}

// A broken file yields what the parser recovered around the damage; a file past its time limit
// yields nothing and says so, and the extractor is fit for the next file either way.
TEST(Extract, BrokenFilesAndTimeLimit) {
    const Seen broken = extract(Language::python, "def ok():\n    a(\n\ndef also_ok():\n    b()\n");
    EXPECT_EQ(broken.definitions,
              (std::vector<std::string>{"function ok 1-2  | def ok(): a(",
                                        "function also_ok 4-5  | def also_ok()"}));

    std::string big;
    for (int i = 0; i < 20000; ++i) big += "def f" + std::to_string(i) + "(x):\n    return g(x)\n";
    code_index::Extractor extractor;
    code_index::Extraction out;
    EXPECT_EQ(extractor.extract(Language::python, big, std::chrono::milliseconds(0), out),
              ExtractStatus::timed_out);
    EXPECT_TRUE(out.definitions.empty() && out.references.empty());
    ASSERT_EQ(extractor.extract(Language::python, big, std::chrono::seconds(30), out),
              ExtractStatus::ok);
    EXPECT_EQ(out.definitions.size(), 20000u);
    EXPECT_EQ(out.lines, 40000u);

    // Extractors on several threads share the compiled queries.
    std::vector<std::thread> threads;
    std::vector<std::size_t> counts(4);
    for (std::size_t t = 0; t < counts.size(); ++t) {
        threads.emplace_back([&, t] {
            code_index::Extractor own;
            code_index::Extraction result;
            own.extract(Language::cpp, "int f() { return g(); }", std::chrono::seconds(10), result);
            counts[t] = result.definitions.size() + result.references.size();
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(counts, (std::vector<std::size_t>(4, 2)));
}

TEST(Extract, LanguageOfFileNames) {
    const std::pair<const char*, std::optional<Language>> cases[] = {
        {"src/app.py", Language::python}, {"a/b.TSX", Language::tsx},
        {"x.h", Language::cpp},           {"lib.C", Language::cpp},
        {"main.c", Language::c},          {"web/index.mjs", Language::javascript},
        {"dir.py/README", std::nullopt},  {".py", std::nullopt},
        {"notes.txt", std::nullopt},      {"win\\path\\mod.rs", Language::rust},
    };
    for (const auto& [path, language] : cases)
        EXPECT_EQ(code_index::language_of(path), language) << path;
    EXPECT_EQ(code_index::language_named("cpp"), Language::cpp);
    EXPECT_EQ(code_index::language_named("C++"), std::nullopt);
}
