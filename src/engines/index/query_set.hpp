#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engines/index/language.hpp"

struct TSLanguage;
struct TSQuery;
struct pcre2_real_code_8;

namespace code_index {

// What a capture of our queries stands for, by its name: `@name` (the defined or used name),
// `@definition.<kind>` (the whole definition), `@reference.<kind>` (marks a use; its position is
// the name's), `@scope` (a qualifier written before the name, as in `Foo::bar` or a Go method's
// receiver), `@text.calls` (text the grammar leaves unparsed, a macro's body, in which each
// `name(` is a call). Anything else (`@doc`, `@_helper`) only takes part in matching and
// predicates.
enum class Role : std::uint8_t { other, name, definition, reference, scope, text_calls };

struct CaptureInfo {
    Role role = Role::other;
    std::string kind;  // for definitions and references
};

// A text predicate of a pattern, which tree-sitter leaves to its caller.
struct Predicate {
    enum class Op : std::uint8_t { eq, match, any_of } op = Op::eq;
    bool negated = false;
    bool any = false;  // `#any-...`: one node of a quantified capture suffices
    std::uint32_t capture = 0;
    bool other_is_capture = false;  // #eq? @a @b
    std::uint32_t other_capture = 0;
    std::vector<std::string> values;  // the string argument(s)
    pcre2_real_code_8* regex = nullptr;
};

// A language's compiled queries. Built once and never changed after, so every thread may read it.
struct QuerySet {
    const TSLanguage* language = nullptr;
    TSQuery* query = nullptr;
    std::vector<CaptureInfo> captures;               // by capture id
    std::vector<std::vector<Predicate>> predicates;  // by pattern index
};

// The language's grammar and compiled queries, made on first use (thread-safe); nullptr when the
// queries do not compile, which the tests rule out.
const QuerySet* query_set(Language language);

// Why the queries of `language` did not compile ("" when they did): for the tests.
std::string query_error(Language language);

}  // namespace code_index
