#include "engines/index/query_set.hpp"

#include <pcre2.h>
#include <tree_sitter/api.h>

#include <array>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

extern "C" {
const TSLanguage* tree_sitter_python();
const TSLanguage* tree_sitter_javascript();
const TSLanguage* tree_sitter_typescript();
const TSLanguage* tree_sitter_tsx();
const TSLanguage* tree_sitter_go();
const TSLanguage* tree_sitter_rust();
const TSLanguage* tree_sitter_java();
const TSLanguage* tree_sitter_c();
const TSLanguage* tree_sitter_cpp();
}

namespace code_index {

std::string_view embedded_query(std::string_view name);  // generated from queries/*.scm

namespace {

struct Recipe {
    const TSLanguage* (*grammar)();
    // Query files, joined in this order: where two patterns find the same name, the first wins,
    // so the narrower ones (a method in a class) come before the wider (any function).
    std::array<std::string_view, 3> files;
};

constexpr std::array<Recipe, kLanguageCount> kRecipes = {{
    {tree_sitter_python, {"python"}},
    {tree_sitter_javascript, {"javascript", "jsx", "ecmascript"}},
    {tree_sitter_typescript, {"typescript", "ecmascript"}},
    {tree_sitter_tsx, {"typescript", "jsx", "ecmascript"}},
    {tree_sitter_go, {"go"}},
    {tree_sitter_rust, {"rust"}},
    {tree_sitter_java, {"java"}},
    {tree_sitter_c, {"c"}},
    {tree_sitter_cpp, {"cpp", "c"}},
}};

struct Slot {
    std::once_flag once;
    const QuerySet* set = nullptr;
    std::string error;
};
// Filled once each and then only read; never freed, so no thread can outlive its queries.
std::array<Slot, kLanguageCount> slots;

std::string text_of(const TSQuery* query, const TSQueryPredicateStep& step) {
    std::uint32_t length = 0;
    const char* text = step.type == TSQueryPredicateStepTypeCapture
                           ? ts_query_capture_name_for_id(query, step.value_id, &length)
                           : ts_query_string_value_for_id(query, step.value_id, &length);
    return std::string(text, length);
}

// One pattern's text predicates; `#strip!` and the other directives that only serve
// documentation are left out. Throws on a predicate we cannot evaluate, so no query silently
// matches more than it says.
std::vector<Predicate> predicates_of(TSQuery* query, std::uint32_t pattern) {
    std::uint32_t count = 0;
    const TSQueryPredicateStep* steps = ts_query_predicates_for_pattern(query, pattern, &count);
    std::vector<Predicate> out;
    for (std::uint32_t i = 0; i < count;) {
        std::uint32_t end = i;
        while (end < count && steps[end].type != TSQueryPredicateStepTypeDone) ++end;
        std::string name = text_of(query, steps[i]);
        const std::uint32_t args = end - i - 1;
        const TSQueryPredicateStep* arg = steps + i + 1;
        i = end + 1;
        if (!name.empty() && name.back() == '!') continue;
        Predicate p;
        if (name.starts_with("not-")) {
            p.negated = true;
            name.erase(0, 4);
        }
        if (name.starts_with("any-") && name != "any-of?") {
            p.any = true;
            name.erase(0, 4);
        }
        if (name == "eq?") {
            p.op = Predicate::Op::eq;
        } else if (name == "match?") {
            p.op = Predicate::Op::match;
        } else if (name == "any-of?") {
            p.op = Predicate::Op::any_of;
        } else {
            throw std::runtime_error("unknown predicate #" + name);
        }
        if (args < 2 || arg[0].type != TSQueryPredicateStepTypeCapture) {
            throw std::runtime_error("predicate #" + name + " needs a capture and a value");
        }
        p.capture = arg[0].value_id;
        if (p.op == Predicate::Op::eq && arg[1].type == TSQueryPredicateStepTypeCapture) {
            p.other_is_capture = true;
            p.other_capture = arg[1].value_id;
        }
        for (std::uint32_t a = 1; a < args && !p.other_is_capture; ++a) {
            if (arg[a].type != TSQueryPredicateStepTypeString) {
                throw std::runtime_error("predicate #" + name + " takes strings after its capture");
            }
            p.values.push_back(text_of(query, arg[a]));
        }
        if (p.op != Predicate::Op::any_of && p.values.size() > 1) {
            throw std::runtime_error("predicate #" + name + " takes one value");
        }
        if (p.op == Predicate::Op::match) {
            int code = 0;
            PCRE2_SIZE offset = 0;
            p.regex =
                pcre2_compile(reinterpret_cast<PCRE2_SPTR>(p.values[0].data()), p.values[0].size(),
                              PCRE2_UTF | PCRE2_UCP, &code, &offset, nullptr);
            if (p.regex == nullptr) throw std::runtime_error("bad pattern " + p.values[0]);
        }
        out.push_back(std::move(p));
    }
    return out;
}

CaptureInfo capture_info(std::string_view name) {
    CaptureInfo info;
    if (name == "name") {
        info.role = Role::name;
    } else if (name == "scope") {
        info.role = Role::scope;
    } else if (name == "text.calls") {
        info.role = Role::text_calls;
        info.kind = "call";
    } else if (name.starts_with("definition.")) {
        info.role = Role::definition;
        info.kind = name.substr(11);
    } else if (name.starts_with("reference.")) {
        info.role = Role::reference;
        info.kind = name.substr(10);
    }
    return info;
}

const char* error_name(TSQueryError error) {
    switch (error) {
        case TSQueryErrorSyntax:
            return "syntax error";
        case TSQueryErrorNodeType:
            return "unknown node type";
        case TSQueryErrorField:
            return "unknown field";
        case TSQueryErrorCapture:
            return "unknown capture";
        case TSQueryErrorStructure:
            return "impossible pattern";
        case TSQueryErrorLanguage:
            return "grammar version not supported";
        default:
            return "error";
    }
}

void build(Language language, Slot& slot) {
    const Recipe& recipe = kRecipes[static_cast<std::size_t>(language)];
    std::string source;
    for (std::string_view file : recipe.files) {
        if (!file.empty()) source += embedded_query(file);
    }
    auto set = std::make_unique<QuerySet>();
    set->language = recipe.grammar();
    std::uint32_t offset = 0;
    TSQueryError error = TSQueryErrorNone;
    set->query = ts_query_new(set->language, source.data(),
                              static_cast<std::uint32_t>(source.size()), &offset, &error);
    if (set->query == nullptr) {
        std::size_t line = 1, start = 0;
        for (std::size_t i = 0; i < offset && i < source.size(); ++i) {
            if (source[i] == '\n') ++line, start = i + 1;
        }
        const std::size_t stop = source.find('\n', offset);
        slot.error = std::string(language_name(language)) + " queries, line " +
                     std::to_string(line) + ": " + error_name(error) + ": " +
                     source.substr(start, stop == std::string::npos ? stop : stop - start);
        return;
    }
    try {
        for (std::uint32_t id = 0, n = ts_query_capture_count(set->query); id < n; ++id) {
            std::uint32_t length = 0;
            const char* name = ts_query_capture_name_for_id(set->query, id, &length);
            set->captures.push_back(capture_info(std::string_view(name, length)));
        }
        for (std::uint32_t p = 0, n = ts_query_pattern_count(set->query); p < n; ++p) {
            set->predicates.push_back(predicates_of(set->query, p));
        }
    } catch (const std::exception& e) {
        slot.error = std::string(language_name(language)) + " queries: " + e.what();
        return;
    }
    slot.set = set.release();
}

}  // namespace

const QuerySet* query_set(Language language) {
    Slot& slot = slots[static_cast<std::size_t>(language)];
    std::call_once(slot.once, [&] { build(language, slot); });
    return slot.set;
}

std::string query_error(Language language) {
    query_set(language);
    return slots[static_cast<std::size_t>(language)].error;
}

}  // namespace code_index
