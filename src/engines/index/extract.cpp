#include "engines/index/extract.hpp"

#include <pcre2.h>
#include <tree_sitter/api.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "engines/index/query_set.hpp"
#include "support/utf8.hpp"

namespace code_index {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kSignatureChars = 200;
// A head longer than this is a definition written oddly; its start says enough.
constexpr std::uint32_t kSignatureScanBytes = 2048;

struct Found {
    std::uint32_t name_start = 0, name_end = 0;
    std::uint32_t start = 0, end = 0;  // the whole definition's bytes (or the name's, for a use)
    TSNode node{};                     // the definition
    TSPoint name_point{};
    std::uint16_t pattern = 0;
    const std::string* kind = nullptr;
    std::string scope;  // written before the name (Foo::bar), "" when none
};

const char* read_source(void* payload, std::uint32_t byte, TSPoint, std::uint32_t* length) {
    const auto* source = static_cast<const std::string_view*>(payload);
    if (byte >= source->size()) {
        *length = 0;
        return "";
    }
    *length = static_cast<std::uint32_t>(source->size() - byte);
    return source->data() + byte;
}

// `bytes` as valid UTF-8: each malformed sequence becomes U+FFFD, so that no caller has to ask.
std::string valid_utf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size();) {
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            out += bytes[i++];
            continue;
        }
        const std::size_t n = support::utf8_sequence_length(bytes, i);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            ++i;
        } else {
            out.append(bytes, i, n);
            i += n;
        }
    }
    return out;
}

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// The text white space collapsed to single spaces, cut to kSignatureChars characters.
std::string one_line(std::string_view text) {
    std::string out;
    std::size_t chars = 0;
    bool space = false;
    for (char c : text) {
        if (is_space(c)) {
            space = !out.empty();
            continue;
        }
        const bool lead = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        if (lead && chars + (space ? 1 : 0) >= kSignatureChars) break;
        if (space) {
            out += ' ';
            ++chars;
            space = false;
        }
        out += c;
        if (lead) ++chars;
    }
    return valid_utf8(out);
}

bool is_body(const char* type) {
    static constexpr const char* kBodies[] = {"block",
                                              "compound_statement",
                                              "field_declaration_list",
                                              "declaration_list",
                                              "class_body",
                                              "interface_body",
                                              "enum_body",
                                              "statement_block",
                                              "enumerator_list",
                                              "object_type",
                                              "record_declaration_body",
                                              "annotation_type_body"};
    for (const char* body : kBodies) {
        if (std::strcmp(type, body) == 0) return true;
    }
    return false;
}

// Where the head of a definition ends: at its body (or the brace that opens one), looked for among
// its children and grandchildren, as in `const f = () => {...}` or Go's `type T struct {...}`.
std::uint32_t head_end(TSNode node, int depth) {
    const std::uint32_t count = ts_node_child_count(node);
    for (std::uint32_t i = 0; i < count; ++i) {
        const TSNode child = ts_node_child(node, i);
        const char* field = ts_node_field_name_for_child(node, i);
        const char* type = ts_node_type(child);
        if ((field != nullptr && std::strcmp(field, "body") == 0) || is_body(type) ||
            std::strcmp(type, "{") == 0) {
            return ts_node_start_byte(child);
        }
        if (depth < 2 && ts_node_named_child_count(child) > 0) {
            const std::uint32_t end = head_end(child, depth + 1);
            if (end != 0) return end;
        }
    }
    return 0;
}

std::string signature_of(std::string_view source, const Found& def) {
    std::uint32_t end = def.end;
    const std::string& kind = *def.kind;
    if (kind == "variable" || kind == "constant" || kind == "field") {
        // A value's head is its first line.
        const std::size_t line_end = source.find('\n', def.start);
        if (line_end < end) end = static_cast<std::uint32_t>(line_end);
    } else if (const std::uint32_t body = head_end(def.node, 1); body > def.start) {
        end = body;
    }
    end = std::min(end, def.start + kSignatureScanBytes);
    std::string head = one_line(source.substr(def.start, end - def.start));
    while (!head.empty() &&
           (head.back() == ':' || head.back() == '{' || head.back() == ';' || head.back() == ' ')) {
        head.pop_back();
    }
    return head;
}

// "a::b" and "a.b" both as "a.b".
std::string dotted(std::string_view scope) {
    std::string out;
    for (std::size_t i = 0; i < scope.size(); ++i) {
        if (scope[i] == ':' && i + 1 < scope.size() && scope[i + 1] == ':') {
            out += '.';
            ++i;
        } else if (!is_space(scope[i])) {
            out += scope[i];
        }
    }
    return out;
}

}  // namespace

struct Extractor::State {
    TSParser* parser = nullptr;
    TSQueryCursor* cursor = nullptr;
    pcre2_match_data* match_data = nullptr;
    Clock::time_point deadline;
    bool out_of_time = false;
    std::string_view source;
    std::vector<Found> definitions, references;

    State() {
        parser = ts_parser_new();
        cursor = ts_query_cursor_new();
        match_data = pcre2_match_data_create(1, nullptr);
        if (parser == nullptr || cursor == nullptr || match_data == nullptr) {
            release();
            throw std::bad_alloc();
        }
    }
    ~State() { release(); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void release() {
        if (parser != nullptr) ts_parser_delete(parser);
        if (cursor != nullptr) ts_query_cursor_delete(cursor);
        if (match_data != nullptr) pcre2_match_data_free(match_data);
    }

    bool late() {
        if (!out_of_time && Clock::now() >= deadline) out_of_time = true;
        return out_of_time;
    }

    std::string_view text(TSNode node) const {
        const std::uint32_t start = ts_node_start_byte(node), end = ts_node_end_byte(node);
        return source.substr(start, end - start);
    }

    bool holds(const Predicate& p, std::string_view text, const TSQueryMatch& match) {
        switch (p.op) {
            case Predicate::Op::eq:
                if (!p.other_is_capture) return text == p.values[0];
                for (std::uint16_t i = 0; i < match.capture_count; ++i) {
                    if (match.captures[i].index == p.other_capture) {
                        return text == this->text(match.captures[i].node);
                    }
                }
                return false;
            case Predicate::Op::match:
                return pcre2_match(p.regex, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(),
                                   0, 0, match_data, nullptr) >= 0;
            case Predicate::Op::any_of:
                return std::find(p.values.begin(), p.values.end(), text) != p.values.end();
        }
        return false;
    }

    // Whether the match satisfies its pattern's text predicates. A quantified capture must hold
    // for every node it caught, or for one with `#any-...`; one that caught none passes.
    bool accepted(const QuerySet& set, const TSQueryMatch& match) {
        for (const Predicate& p : set.predicates[match.pattern_index]) {
            bool seen = false, any = false, all = true;
            for (std::uint16_t i = 0; i < match.capture_count; ++i) {
                if (match.captures[i].index != p.capture) continue;
                seen = true;
                const bool ok = holds(p, text(match.captures[i].node), match) != p.negated;
                any = any || ok;
                all = all && ok;
            }
            if (seen && !(p.any ? any : all)) return false;
        }
        return true;
    }

    // Each `name (` in text the grammar left unparsed, read as C reads it: comments, strings
    // and character literals are skipped, and so are the keywords that take parentheses.
    void calls_in_text(TSNode node, std::uint16_t pattern, const std::string& kind) {
        static constexpr std::string_view kNotCalls[] = {
            "if",   "while",    "for",      "switch",  "return", "sizeof",     "defined",      "do",
            "case", "_Generic", "_Alignof", "alignof", "typeof", "__typeof__", "__attribute__"};
        const std::uint32_t begin = ts_node_start_byte(node), end = ts_node_end_byte(node);
        TSPoint point = ts_node_start_point(node);
        std::uint32_t line_start = begin - point.column;
        auto is_word = [](char c, bool first) {
            return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                   (!first && c >= '0' && c <= '9');
        };
        for (std::uint32_t i = begin; i < end;) {
            const char c = source[i];
            if (c == '\n') {
                ++point.row;
                line_start = ++i;
            } else if (c == '/' && i + 1 < end && (source[i + 1] == '*' || source[i + 1] == '/')) {
                const bool block = source[i + 1] == '*';
                i += 2;
                while (i < end && !(block ? source[i] == '*' && i + 1 < end && source[i + 1] == '/'
                                          : source[i] == '\n')) {
                    if (source[i] == '\n') ++point.row, line_start = i + 1;
                    ++i;
                }
                if (block) i = std::min(end, i + 2);
            } else if (c == '"' || c == '\'') {
                for (++i; i < end && source[i] != c && source[i] != '\n'; ++i) {
                    if (source[i] == '\\') ++i;
                }
                ++i;
            } else if (is_word(c, true)) {
                const std::uint32_t word = i;
                while (i < end && is_word(source[i], false)) ++i;
                std::uint32_t next = i;
                while (next < end && (source[next] == ' ' || source[next] == '\t')) ++next;
                const std::string_view name = source.substr(word, i - word);
                if (next < end && source[next] == '(' &&
                    std::find(std::begin(kNotCalls), std::end(kNotCalls), name) ==
                        std::end(kNotCalls)) {
                    Found found;
                    found.name_start = found.start = word;
                    found.name_end = found.end = i;
                    found.name_point = {point.row, word - line_start};
                    found.pattern = pattern;
                    found.kind = &kind;
                    references.push_back(std::move(found));
                }
            } else {
                ++i;
            }
        }
    }

    void collect(const QuerySet& set, const TSQueryMatch& match) {
        if (!accepted(set, match)) return;
        Found found;
        const TSNode* name = nullptr;
        const TSNode* whole = nullptr;
        const CaptureInfo* role = nullptr;
        for (std::uint16_t i = 0; i < match.capture_count; ++i) {
            const TSQueryCapture& capture = match.captures[i];
            const CaptureInfo& info = set.captures[capture.index];
            switch (info.role) {
                case Role::name:
                    name = &capture.node;
                    break;
                case Role::scope:
                    found.scope = dotted(text(capture.node));
                    break;
                case Role::definition:
                case Role::reference:
                    whole = &capture.node;
                    role = &info;
                    break;
                case Role::text_calls:
                    calls_in_text(capture.node, match.pattern_index, info.kind);
                    break;
                case Role::other:
                    break;
            }
        }
        if (name == nullptr || role == nullptr) return;
        found.name_start = ts_node_start_byte(*name);
        found.name_end = ts_node_end_byte(*name);
        if (found.name_end == found.name_start) return;  // a node the parser made up
        found.name_point = ts_node_start_point(*name);
        found.pattern = match.pattern_index;
        found.kind = &role->kind;
        if (role->role == Role::definition) {
            found.node = *whole;
            found.start = ts_node_start_byte(*whole);
            found.end = ts_node_end_byte(*whole);
            definitions.push_back(std::move(found));
        } else {
            found.start = found.name_start;
            found.end = found.name_end;
            references.push_back(std::move(found));
        }
    }
};

Extractor::Extractor() : state_(std::make_unique<State>()) {}
Extractor::~Extractor() = default;

namespace {

// One definition per node: where two patterns read one node, the earlier pattern's reading.
void keep_first_per_node(std::vector<Found>& found) {
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
        if (a.start != b.start) return a.start < b.start;
        return a.end != b.end ? a.end > b.end : a.pattern < b.pattern;
    });
    found.erase(std::unique(found.begin(), found.end(),
                            [](const Found& a, const Found& b) {
                                return a.start == b.start && a.end == b.end;
                            }),
                found.end());
}

// One entry per name: where two patterns found the same name, the earlier pattern's reading.
void keep_first_per_name(std::vector<Found>& found) {
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
        return a.name_start != b.name_start ? a.name_start < b.name_start : a.pattern < b.pattern;
    });
    found.erase(
        std::unique(found.begin(), found.end(),
                    [](const Found& a, const Found& b) { return a.name_start == b.name_start; }),
        found.end());
}

std::uint32_t line_of(TSPoint point) {
    return point.row + 1;
}

// Lines from 1; a node that ends with its line's break ends on that line, not the next.
std::uint32_t last_line(TSNode node) {
    const TSPoint end = ts_node_end_point(node);
    const TSPoint start = ts_node_start_point(node);
    return end.column == 0 && end.row > start.row ? end.row : end.row + 1;
}

}  // namespace

ExtractStatus Extractor::extract(Language language, std::string_view source,
                                 std::chrono::milliseconds limit, Extraction& out) {
    out.definitions.clear();
    out.references.clear();
    out.lines = 0;
    State& s = *state_;
    const QuerySet* set = query_set(language);
    if (set == nullptr || source.size() >= UINT32_MAX) return ExtractStatus::failed;
    if (!ts_parser_set_language(s.parser, set->language)) return ExtractStatus::failed;

    const Clock::time_point started = Clock::now();
    times_ = {};
    s.deadline = started + limit;
    s.out_of_time = false;
    s.source = source;
    s.definitions.clear();
    s.references.clear();

    TSInput input{&source, read_source, TSInputEncodingUTF8, nullptr};
    TSParseOptions parse_options{
        &s, [](TSParseState* p) { return static_cast<State*>(p->payload)->late(); }};
    TSTree* tree = ts_parser_parse_with_options(s.parser, nullptr, input, parse_options);
    if (tree == nullptr) {
        ts_parser_reset(s.parser);
        return s.out_of_time ? ExtractStatus::timed_out : ExtractStatus::failed;
    }
    const Clock::time_point parsed = Clock::now();
    times_.parse = parsed - started;
    struct TreeOwner {
        TSTree* tree;
        ~TreeOwner() { ts_tree_delete(tree); }
    } owner{tree};

    TSQueryCursorOptions query_options{
        &s, [](TSQueryCursorState* q) { return static_cast<State*>(q->payload)->late(); }};
    ts_query_cursor_exec_with_options(s.cursor, set->query, ts_tree_root_node(tree),
                                      &query_options);
    TSQueryMatch match;
    while (ts_query_cursor_next_match(s.cursor, &match)) {
        s.collect(*set, match);
        if (s.late()) break;
    }
    if (s.out_of_time) return ExtractStatus::timed_out;

    keep_first_per_node(s.definitions);
    keep_first_per_name(s.definitions);
    keep_first_per_name(s.references);
    // A name that a definition declares is not also a use of it.
    std::size_t d = 0;
    std::erase_if(s.references, [&](const Found& r) {
        while (d < s.definitions.size() && s.definitions[d].name_start < r.name_start) ++d;
        return d < s.definitions.size() && s.definitions[d].name_start == r.name_start;
    });
    // Enclosing ones first, so that a stack of open definitions gives each one its parent.
    std::sort(s.definitions.begin(), s.definitions.end(), [](const Found& a, const Found& b) {
        return a.start != b.start ? a.start < b.start : a.end > b.end;
    });

    std::vector<std::int32_t> open;
    auto close_before = [&](std::uint32_t at) {
        while (!open.empty() && s.definitions[open.back()].end <= at) open.pop_back();
    };
    out.definitions.reserve(s.definitions.size());
    for (std::size_t i = 0; i < s.definitions.size(); ++i) {
        const Found& f = s.definitions[i];
        close_before(f.start);
        Definition def;
        def.name = valid_utf8(source.substr(f.name_start, f.name_end - f.name_start));
        def.kind = *f.kind;
        def.line = line_of(ts_node_start_point(f.node));
        def.end_line = last_line(f.node);
        if (!open.empty()) {
            const Definition& parent = out.definitions[open.back()];
            def.parent = open.back();
            def.scope = parent.scope.empty() ? parent.name : parent.scope + "." + parent.name;
        }
        if (!f.scope.empty()) def.scope = def.scope.empty() ? f.scope : def.scope + "." + f.scope;
        def.signature = signature_of(source, f);
        out.definitions.push_back(std::move(def));
        open.push_back(static_cast<std::int32_t>(i));
    }

    open.clear();
    std::size_t next = 0;
    out.references.reserve(s.references.size());
    for (const Found& f : s.references) {
        while (next < s.definitions.size() && s.definitions[next].start <= f.start) {
            close_before(s.definitions[next].start);
            open.push_back(static_cast<std::int32_t>(next++));
        }
        close_before(f.start);
        Reference ref;
        ref.name = valid_utf8(source.substr(f.name_start, f.name_end - f.name_start));
        ref.kind = *f.kind;
        ref.line = line_of(f.name_point);
        // Columns count characters, not bytes, from the line's start.
        std::uint32_t column = 1;
        for (std::uint32_t b = f.name_start - f.name_point.column; b < f.name_start; ++b) {
            if ((static_cast<unsigned char>(source[b]) & 0xC0) != 0x80) ++column;
        }
        ref.column = column;
        ref.in = open.empty() ? -1 : open.back();
        out.references.push_back(std::move(ref));
    }

    std::uint32_t lines =
        static_cast<std::uint32_t>(std::count(source.begin(), source.end(), '\n'));
    if (!source.empty() && source.back() != '\n') ++lines;
    out.lines = lines;
    times_.query = Clock::now() - parsed;
    return ExtractStatus::ok;
}

}  // namespace code_index
