#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engines/index/language.hpp"

namespace code_index {

// A definition found in one file.
struct Definition {
    std::string name;
    // function, method, class, interface, struct, enum, union, type, trait, module, namespace,
    // constant, variable, field, macro (the set each language yields is its query's business).
    std::string kind;
    std::uint32_t line = 0;      // first line of the whole definition, from 1
    std::uint32_t end_line = 0;  // its last line
    std::int32_t parent = -1;    // the innermost enclosing definition (an index), -1 at top level
    std::string scope;           // the enclosing definitions' names joined by ".", "" at top level
    std::string signature;       // its head on one line (white space collapsed), cut to 200 chars
};

// A use of a name found in one file.
struct Reference {
    std::string name;
    // call (also `new X`, a JSX element, a macro invocation), type, import, inherit
    std::string kind;
    std::uint32_t line = 0;    // from 1
    std::uint32_t column = 0;  // from 1, in characters
    std::int32_t in = -1;      // the innermost enclosing definition (an index), -1 at top level
};

struct Extraction {
    std::vector<Definition> definitions;  // in the order they start
    std::vector<Reference> references;    // in source order
    std::uint32_t lines = 0;              // the file's line count
};

enum class ExtractStatus {
    ok,
    timed_out,  // the per-file limit passed; nothing was extracted
    failed,     // the parser could not run (out of memory, a grammar that cannot load)
};

// Parses source text and runs the language's queries over the tree. One per thread: it holds a
// parser and a query cursor; the compiled queries are shared between all extractors.
class Extractor {
  public:
    Extractor();
    ~Extractor();
    Extractor(const Extractor&) = delete;
    Extractor& operator=(const Extractor&) = delete;

    // Fills `out` (cleared first) from `source`. A file with syntax errors still yields what the
    // parser could recover. Gives up once `limit` has passed, parsing and querying together.
    ExtractStatus extract(Language language, std::string_view source,
                          std::chrono::milliseconds limit, Extraction& out);

    // How long the last call spent parsing and running the queries (for measurements).
    struct Times {
        std::chrono::nanoseconds parse{0}, query{0};
    };
    const Times& last_times() const { return times_; }

  private:
    struct State;
    Times times_;
    std::unique_ptr<State> state_;
};

}  // namespace code_index
