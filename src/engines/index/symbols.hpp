#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engines/index/database.hpp"
#include "engines/index/kinds.hpp"

namespace code_index {

// A definition as the symbol queries answer it.
struct SymbolHit {
    std::string name;
    std::string kind;
    std::string path;
    std::int64_t line = 0;
    std::int64_t end_line = 0;
    std::string scope;
    std::string signature;
    std::string language;
};

struct ReferenceHit {
    std::string path;
    std::int64_t line = 0;
    std::int64_t column = 0;
    std::string kind;
    std::optional<std::string> in;  // the enclosing definition, scope-qualified; none at top level
};

// A definition that calls the name, or the top level of a file (no name) that does.
struct CallerHit {
    std::optional<SymbolHit> caller;  // nullopt: code at the top level of `path`
    std::string path;
    std::int64_t line = 0;  // the caller's first line, or the first call's at top level
    std::int64_t calls = 0;
};

template <typename Hit>
struct Hits {
    std::vector<Hit> results;
    bool truncated = false;  // more matched than `limit`
};

struct SearchQuery {
    std::string query;
    std::optional<DefinitionKind> kind;
    std::optional<std::string> path_prefix;  // only files whose path starts so
    std::size_t limit = 50;
};

// Definitions whose name matches: exactly, then ignoring case, then by prefix, then by its
// camel- and snake-case words (getUser finds get_user and UserGetter), then as a substring; within
// each, functions and types before variables and fields, shorter names first.
Hits<SymbolHit> search_symbols(Database& db, const SearchQuery& query);

// Where `name` is defined ("Parser.parse" or "Parser::parse" narrows by the enclosing scope).
// With `near`, the definition in that file ranks first, then those in files it imports, then by
// how far apart the paths are.
Hits<SymbolHit> find_definitions(Database& db, const std::string& name,
                                 const std::optional<std::string>& near, std::size_t limit);
// Every reference to `name`; with `near`, those in that file first, then by path distance.
Hits<ReferenceHit> find_references(Database& db, const std::string& name,
                                   const std::optional<std::string>& near, std::size_t limit);
// The definitions holding calls of `name`, most calls first.
Hits<CallerHit> find_callers(Database& db, const std::string& name,
                             const std::optional<std::string>& near, std::size_t limit);

}  // namespace code_index
