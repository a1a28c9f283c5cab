#include "host/mcp/code_tools.hpp"

#include <algorithm>
#include <cctype>
#include <unordered_set>

#include "engines/index/kinds.hpp"
#include "engines/index/symbols.hpp"
#include "host/mcp/answer.hpp"
#include "host/mcp/arguments.hpp"
#include "host/mcp/jsonrpc.hpp"
#include "host/mcp/target.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "support/utf8.hpp"

namespace host::mcp {

using support::Json;
using Phase = code_index::KeeperStatus::Phase;

namespace {

constexpr const char* kCodeTools = R"json([
  {
    "name": "search",
    "title": "Find definitions by name",
    "description": "Finds where functions, classes, methods, types and variables are defined in this repository, from its code index: names that match query exactly, ignoring case, by prefix, by their camelCase or snake_case words (getUser finds get_user and UserGetter), then as a substring; best first, one a line: path:line kind name \u2014 signature. Prefer it to Grep or a text search when you look for a symbol: it skips comments, strings and uses, and its answer is a fraction of the bytes. Grep stays right for exact strings, text in comments or configuration, and anchoring an edit.",
    "inputSchema": {
      "type": "object",
      "properties": {
        "action": {"type": "string", "enum": ["symbols"], "description": "\"symbols\": the definitions whose names match query"},
        "query": {"type": "string", "minLength": 1, "description": "A name or part of one: getUser, get_user, Parser"},
        "kind": {"type": "string", "enum": ["function", "method", "class", "interface", "struct", "enum", "union", "type", "trait", "module", "namespace", "constant", "variable", "field", "macro", "impl", "other"], "description": "Only definitions of this kind"},
        "path": {"type": "string", "description": "Only files whose path, relative to the repository root, begins so: \"src/api/\""},
        "limit": {"type": "integer", "minimum": 1, "maximum": 200, "description": "At most this many (default 20)"}
      },
      "required": ["action", "query"],
      "additionalProperties": false
    }
  },
  {
    "name": "symbol",
    "title": "Definition, callers and references of a name",
    "description": "What the code index knows of one name in this repository. action=\"definition\": where it is defined; \"callers\": the functions and methods that call it, most calls first; \"references\": every use (calls, type uses, imports, inheritance) with the definition it sits in. One result a line: path:line kind name \u2014 signature. name may be qualified (Parser.parse, Parser::parse); path, a file relative to the repository root, ranks what is near it first. Without a name, the name found by this session's last search is used. Prefer it to Grep for who calls what and where a name is used: calls in comments and strings do not count. Grep stays right for exact strings and anchoring an edit.",
    "inputSchema": {
      "type": "object",
      "properties": {
        "action": {"type": "string", "enum": ["definition", "callers", "references"]},
        "name": {"type": "string", "description": "The name: getUser, Parser.parse; default: the best match of the last search"},
        "path": {"type": "string", "description": "A file relative to the repository root: what is near it ranks first"},
        "limit": {"type": "integer", "minimum": 1, "maximum": 200, "description": "At most this many (default 20)"}
      },
      "required": ["action"],
      "additionalProperties": false
    }
  },
  {
    "name": "explore",
    "title": "Everything known about a name or a question",
    "description": "One call for a name or a question about this repository (\"getUser\", \"how sessions are finalized\"): the definitions that match, where the best ones are called from, the cached understandings and project memories that mention it, and the files whose paths match; a few KiB at most, best first. Start here when you do not know yet where to look; then search, symbol or understand give one part in full.",
    "inputSchema": {
      "type": "object",
      "properties": {
        "query": {"type": "string", "minLength": 1, "description": "A name, a few words or a question"}
      },
      "required": ["query"],
      "additionalProperties": false
    }
  }
])json";

// Enough to answer a question, small enough for a model's context.
constexpr long long kDefaultLimit = 20;
constexpr long long kMaxLimit = 200;
// How long a query waits for changes being written, so that it sees a file just saved.
constexpr auto kSettleLimit = std::chrono::milliseconds(250);
// explore's whole answer, and each of its lines.
constexpr std::size_t kExploreBytes = 4096;
constexpr std::size_t kExploreLineChars = 200;

// "12,345": counts read at a glance.
std::string grouped(std::int64_t n) {
    std::string digits = std::to_string(n);
    for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) {
        digits.insert(static_cast<std::size_t>(i), ",");
    }
    return digits;
}

std::string counted(std::size_t n, const char* one, const char* many) {
    return grouped(static_cast<std::int64_t>(n)) + " " + (n == 1 ? one : many);
}

std::string qualified(const code_index::SymbolHit& hit) {
    return hit.scope.empty() ? hit.name : hit.scope + "." + hit.name;
}

// path:line kind name — signature
std::string definition_line(const code_index::SymbolHit& hit) {
    std::string line =
        hit.path + ":" + std::to_string(hit.line) + " " + hit.kind + " " + qualified(hit);
    if (!hit.signature.empty()) line += " \u2014 " + hit.signature;
    return line;
}

std::string caller_line(const code_index::CallerHit& hit) {
    const std::string calls =
        " (" + counted(static_cast<std::size_t>(hit.calls), "call", "calls") + ")";
    if (!hit.caller) return hit.path + ":" + std::to_string(hit.line) + " top level" + calls;
    return definition_line(*hit.caller) + calls;
}

std::string reference_line(const code_index::ReferenceHit& hit) {
    std::string line = hit.path + ":" + std::to_string(hit.line) + " " + hit.kind;
    if (hit.in) line += " in " + *hit.in;
    return line;
}

std::string cut_line(std::string_view line, std::size_t chars) {
    if (support::code_point_count(line) <= chars) return std::string(line);
    return std::string(support::cut_code_points(line, chars - 1)) + "\u2026";
}

// A path the model gives, as the index holds paths: relative to the root, '/' between parts.
std::string repository_path(const std::string& root, const std::string& path) {
    std::string out = normalize_target(root, path);
    std::replace(out.begin(), out.end(), '\\', '/');
    while (out.starts_with("./")) out.erase(0, 2);
    // A directory prefix keeps its slash, so that "src/" does not take in "src2/".
    if ((path.ends_with("/") || path.ends_with("\\")) && !out.empty() && !out.ends_with("/")) {
        out += '/';
    }
    return out;
}

std::string ask_again(const code_index::KeeperStatus& status) {
    if (status.pending < 0) return " (listing the repository's files)";
    return ": " + counted(static_cast<std::size_t>(status.pending), "file", "files") +
           " still to parse";
}

bool is_word_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$' || static_cast<unsigned char>(c) >= 0x80;
}

bool is_stop_word(std::string_view word) {
    static constexpr std::string_view kStopWords[] = {
        "the",      "and",    "for",   "are",   "how",    "does",  "what",  "where",   "which",
        "who",      "why",    "when",  "with",  "from",   "into",  "that",  "this",    "these",
        "those",    "there",  "was",   "were",  "has",    "have",  "had",   "its",     "not",
        "but",      "can",    "could", "would", "should", "will",  "about", "all",     "any",
        "get",      "set",    "use",   "used",  "uses",   "using", "find",  "show",    "code",
        "file",     "files",  "work",  "works", "done",   "make",  "made",  "defined", "called",
        "function", "method", "class", "our",   "you"};
    std::string folded(word);
    for (char& c : folded) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    for (const auto stop : kStopWords) {
        if (folded == stop) return true;
    }
    return false;
}

// The names and words of a query worth looking for: a whole name as it is, a question without
// its small words. At most six.
std::vector<std::string> query_terms(std::string_view query) {
    std::vector<std::string> tokens;
    std::size_t i = 0;
    while (i < query.size()) {
        while (i < query.size() && !is_word_char(query[i])) ++i;
        std::size_t end = i;
        // Dots and double colons inside a name belong to it: os.path.join, Parser::parse.
        while (end < query.size() &&
               (is_word_char(query[end]) ||
                ((query[end] == '.' || query[end] == ':') && end + 1 < query.size() &&
                 (is_word_char(query[end + 1]) || query[end + 1] == ':')))) {
            ++end;
        }
        if (end > i) tokens.emplace_back(query.substr(i, end - i));
        i = end;
    }
    std::vector<std::string> terms;
    for (std::string& token : tokens) {
        if (tokens.size() > 1 && (token.size() < 3 || is_stop_word(token))) continue;
        if (std::find(terms.begin(), terms.end(), token) == terms.end()) terms.push_back(token);
        if (terms.size() == 6) break;
    }
    return terms;
}

// A word of a question as the start of a name's word: "headers" finds header, "parsed" parse.
std::string stem(std::string word) {
    for (const std::string_view suffix : {"ing", "ed", "es", "s"}) {
        if (word.size() > suffix.size() + 3 && word.ends_with(suffix)) {
            word.resize(word.size() - suffix.size());
            break;
        }
    }
    return word;
}

// What explore asks search_symbols: a name as it is; for words, names holding all of them, then
// two neighbours, then each alone.
std::vector<std::string> definition_queries(const std::vector<std::string>& terms) {
    if (terms.size() == 1) return terms;
    std::vector<std::string> stems;
    for (const std::string& term : terms) stems.push_back(stem(term));
    std::vector<std::string> queries;
    std::string all;
    for (const std::string& s : stems) all += (all.empty() ? "" : "_") + s;
    queries.push_back(all);
    for (std::size_t i = 0; stems.size() > 2 && i + 1 < stems.size(); ++i) {
        queries.push_back(stems[i] + "_" + stems[i + 1]);
    }
    queries.insert(queries.end(), stems.begin(), stems.end());
    return queries;
}

std::string lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return out;
}

// Paths of the index (any file it knows) that hold the terms, those holding most of them in their
// file names first, then the shorter ones.
std::vector<std::string> matching_paths(code_index::Database& db,
                                        const std::vector<std::string>& terms, std::size_t limit) {
    struct Scored {
        std::string path;
        int score = 0;
    };
    std::vector<Scored> found;
    std::unordered_set<std::string> seen;
    code_index::Transaction read(db, false);
    code_index::Statement rows =
        db.prepare("SELECT path FROM files WHERE instr(lower(path), ?1) > 0 LIMIT 500");
    std::vector<std::string> folded;
    for (const std::string& term : terms) {
        // A path holds a name's last part: os.path.join is looked for as join.
        std::string part = term.substr(std::min(term.size(), term.find_last_of(".:") + 1));
        if (part.size() < 2) continue;
        folded.push_back(lower(part));
    }
    for (const std::string& term : folded) {
        rows.bind(1, term);
        while (rows.step()) {
            std::string path(rows.text(0));
            if (seen.insert(path).second) found.push_back({std::move(path), 0});
        }
        rows.reset();
    }
    for (Scored& s : found) {
        const std::string path = lower(s.path);
        const std::size_t slash = path.rfind('/');
        const std::string_view name = slash == std::string::npos
                                          ? std::string_view(path)
                                          : std::string_view(path).substr(slash + 1);
        for (const std::string& term : folded) {
            if (name.find(term) != std::string_view::npos) {
                s.score += 3;
            } else if (path.find(term) != std::string::npos) {
                s.score += 1;
            }
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const Scored& a, const Scored& b) {
        if (a.score != b.score) return a.score > b.score;
        if (a.path.size() != b.path.size()) return a.path.size() < b.path.size();
        return a.path < b.path;
    });
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < found.size() && i < limit; ++i) paths.push_back(found[i].path);
    return paths;
}

// Lines added while they fit in a budget of bytes; what does not fit is counted as cut.
class Budget {
  public:
    explicit Budget(std::size_t bytes) : left_(bytes) {}
    bool add(std::string& out, const std::string& line) {
        if (line.size() + 1 > left_) {
            cut_ = true;
            return false;
        }
        left_ -= line.size() + 1;
        out += line + "\n";
        return true;
    }
    bool cut() const { return cut_; }

  private:
    std::size_t left_;
    bool cut_ = false;
};

}  // namespace

std::vector<Json> code_tool_list() {
    return support::parse_json(kCodeTools).elements();
}

std::optional<Json> CodeTools::call(std::string_view name, const Json& arguments,
                                    const std::function<::store::Store&()>& store) {
    try {
        if (name == "search") return search(arguments);
        if (name == "symbol") return symbol(arguments);
        if (name == "explore") return explore(arguments, store);
    } catch (const code_index::IndexError& e) {
        index_.reset();  // whatever went wrong, the next call opens it afresh
        return text_result(std::string("The code index failed: ") + e.what(), true);
    }
    return std::nullopt;
}

void CodeTools::keep_index() {
    // The first index is built where the repository is plainly one (git's directory at its root)
    // or the tool already keeps data; elsewhere, a home directory say, it waits for `index`.
    bool build = false;
    try {
        build = platform::path_exists(platform::join_path(root_, ".git")) ||
                platform::path_exists(platform::join_path(root_, "memory/codebase-index"));
    } catch (const std::exception&) {
    }
    keeper_.start(build);
}

code_index::Database* CodeTools::index(std::string& note) {
    const code_index::KeeperStatus status = keeper_.status();
    try {
        if (index_ && index_->replaced()) index_.reset();
        if (!index_)
            index_ =
                code_index::IndexDatabase::open(root_, code_index::IndexDatabase::Access::read);
    } catch (const code_index::IndexError& e) {
        note = std::string("The code index cannot be read: ") + e.what() + ".";
        return nullptr;
    }
    if (!index_) {
        if (status.phase == Phase::building) {
            note = "The code index of this repository is being built" + ask_again(status) +
                   ". Ask again in a few seconds.";
        } else if (status.phase == Phase::failed) {
            note = "This repository has no code index: building it failed (" + status.problem +
                   "). `orvane-tamblo index` in the repository's root builds it.";
        } else {
            note =
                "This repository has no code index yet: build it with `orvane-tamblo index` in "
                "the repository's root (this server then keeps it current).";
        }
        return nullptr;
    }
    if (status.phase == Phase::idle) keeper_.start(false);  // the index appeared since
    keeper_.settle(kSettleLimit);
    if (status.phase == Phase::refreshing && status.pending != 0) {
        note = "(The index is being brought up to date" + ask_again(status) +
               "; what changed since the last session may be missing.)";
    }
    return &index_->db();
}

namespace {

// A name with nothing a name is made of: the "..." of an example call, sent as written.
bool names_something(std::string_view name) {
    return std::any_of(name.begin(), name.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x80 || std::isalnum(byte) || c == '_';
    });
}

std::string which_name(const std::string& action) {
    return "Which name? symbol(action=" + quoted(action) +
           ", name=\"getUser\") looks one up; search(action=\"symbols\", query=\"...\") finds "
           "names first, and then symbol without a name takes the best match.";
}

}  // namespace

Json CodeTools::search(const Json& arguments) {
    const Arguments args("search", arguments, {"action", "query", "kind", "path", "limit"});
    if (!args.choice("action", {"symbols"})) {
        throw RpcError(RpcCode::invalid_params,
                       "Invalid arguments for search: \"action\" is required");
    }
    const std::string query = args.required_text("query", "action \"symbols\"");
    if (!names_something(query)) {
        return text_result("Nothing to look for in " + quoted(query) +
                           ": give a name or part of one, as in search(action=\"symbols\", "
                           "query=\"getUser\").");
    }
    std::optional<code_index::DefinitionKind> kind;
    if (const auto name = args.text("kind")) {
        kind = code_index::known_definition_kind(*name);
        if (!kind) {
            throw RpcError(RpcCode::invalid_params,
                           "Invalid arguments for search: \"kind\" must be one of function, "
                           "method, class, interface, struct, enum, union, type, trait, module, "
                           "namespace, constant, variable, field, macro, impl, other");
        }
    }
    std::optional<std::string> path = args.text("path");
    if (path && !path->empty()) path = repository_path(root_, *path);
    const auto limit = args.integer("limit", 1, kMaxLimit).value_or(kDefaultLimit);

    last_name_ = query;
    std::string note;
    code_index::Database* db = index(note);
    if (db == nullptr) return text_result(note);
    const auto hits =
        code_index::search_symbols(*db, {query, kind, path, static_cast<std::size_t>(limit)});
    std::string filters;
    if (kind) filters += "kind " + quoted(code_index::kind_name(*kind));
    if (path && !path->empty())
        filters += (filters.empty() ? "under " : ", under ") + quoted(*path);
    if (!filters.empty()) filters = " (" + filters + ")";
    std::string out;
    if (hits.results.empty()) {
        out = "No definition matches " + quoted(query) + filters +
              ". explore(query=" + quoted(query) +
              ") also looks at file paths and the AI cache; Grep finds text.";
    } else {
        last_name_ = qualified(hits.results.front());
        out = counted(hits.results.size(), "definition", "definitions") +
              (hits.results.size() == 1 ? " matches " : " match ") + quoted(query) + filters +
              ", best first:";
        for (const auto& hit : hits.results) out += "\n" + definition_line(hit);
        if (hits.truncated) {
            out += "\nMore match: search(action=\"symbols\", query=" + quoted(query) +
                   ", limit=" + std::to_string(std::min(kMaxLimit, limit * 2)) +
                   ") shows more; kind or path narrows.";
        }
    }
    if (!note.empty()) out += "\n" + note;
    return text_result(out);
}

Json CodeTools::symbol(const Json& arguments) {
    const Arguments args("symbol", arguments, {"action", "name", "path", "limit"});
    const auto action = args.choice("action", {"definition", "callers", "references"});
    if (!action) {
        throw RpcError(RpcCode::invalid_params,
                       "Invalid arguments for symbol: \"action\" is required");
    }
    std::optional<std::string> near = args.text("path");
    if (near && near->empty()) near.reset();
    if (near) near = repository_path(root_, *near);
    const auto limit = args.integer("limit", 1, kMaxLimit).value_or(kDefaultLimit);
    std::string name = args.text("name").value_or("");
    std::string out;
    if (!names_something(name)) {
        if (!name.empty()) return text_result(which_name(*action));

        // The hooks suggest symbol(action="callers") right after a search: it means that name.
        if (last_name_.empty()) return text_result(which_name(*action));
        name = last_name_;
        out = "(No name given: " + quoted(name) + ", the best match of the last search.)\n";
    }
    last_name_ = name;

    std::string note;
    code_index::Database* db = index(note);
    if (db == nullptr) return text_result(note);
    const auto size = static_cast<std::size_t>(limit);
    const std::string nearby = near ? ", nearest " + *near + " first" : "";
    bool truncated = false;
    if (*action == "definition") {
        const auto hits = code_index::find_definitions(*db, name, near, size);
        truncated = hits.truncated;
        if (hits.results.empty()) {
            out += "No definition of " + quoted(name) +
                   " in the index. search(action=\"symbols\", "
                   "query=" +
                   quoted(name) + ") finds similar names.";
        } else {
            out += quoted(name) + " is defined in " +
                   counted(hits.results.size(), "place", "places") + nearby + ":";
            for (const auto& hit : hits.results) out += "\n" + definition_line(hit);
        }
    } else if (*action == "callers") {
        const auto hits = code_index::find_callers(*db, name, near, size);
        truncated = hits.truncated;
        if (hits.results.empty()) {
            out += "Nothing in the index calls " + quoted(name) +
                   ". symbol(action=\"references\", name=" + quoted(name) +
                   ") lists its other uses.";
        } else {
            out += counted(hits.results.size(), "caller", "callers") + " of " + quoted(name) +
                   (near ? nearby : ", most calls first") + ":";
            for (const auto& hit : hits.results) out += "\n" + caller_line(hit);
        }
    } else {
        const auto hits = code_index::find_references(*db, name, near, size);
        truncated = hits.truncated;
        if (hits.results.empty()) {
            out += "No reference to " + quoted(name) + " in the index.";
        } else {
            out += counted(hits.results.size(), "reference", "references") + " to " + quoted(name) +
                   nearby + ":";
            for (const auto& hit : hits.results) out += "\n" + reference_line(hit);
        }
    }
    if (truncated) {
        out += "\nMore: symbol(action=" + quoted(*action) + ", name=" + quoted(name) +
               ", limit=" + std::to_string(std::min(kMaxLimit, limit * 2)) + ")" +
               (near ? "" : "; path ranks what is near a file first") + ".";
    }
    if (!note.empty()) out += "\n" + note;
    return text_result(out);
}

Json CodeTools::explore(const Json& arguments, const std::function<::store::Store&()>& store) {
    const Arguments args("explore", arguments, {"query"});
    const auto query = args.text("query");
    if (!query || query->empty()) {
        throw RpcError(RpcCode::invalid_params,
                       "Invalid arguments for explore: \"query\" is required");
    }
    const std::vector<std::string> terms = query_terms(*query);
    if (terms.empty()) {
        return text_result("Nothing to look for in " + quoted(*query) +
                           ": give a name or a few words, as in explore(query=\"getUser\") or "
                           "explore(query=\"how sessions end\").");
    }
    std::string words;
    for (const std::string& term : terms) words += (words.empty() ? "" : " ") + term;

    std::string out;
    Budget budget(kExploreBytes);
    std::size_t found = 0;
    const auto section = [&](const std::string& heading, const std::vector<std::string>& lines) {
        if (lines.empty()) return;
        found += lines.size();
        if (!budget.add(out, heading)) return;
        for (const std::string& line : lines) {
            if (!budget.add(out, cut_line(line, kExploreLineChars))) return;
        }
    };

    std::string note;
    code_index::Database* db = index(note);
    std::vector<code_index::SymbolHit> definitions;
    if (db != nullptr) {
        std::unordered_set<std::string> seen;
        for (const std::string& q : definition_queries(terms)) {
            const auto hits = code_index::search_symbols(
                *db, {q, std::nullopt, std::nullopt, terms.size() == 1 ? 8u : 4u});
            for (const auto& hit : hits.results) {
                if (definitions.size() < 8 &&
                    seen.insert(hit.path + ":" + std::to_string(hit.line) + hit.name).second) {
                    definitions.push_back(hit);
                }
            }
            if (definitions.size() == 8) break;
        }
    }
    std::vector<std::string> lines;
    for (const auto& hit : definitions) lines.push_back(definition_line(hit));
    section("Definitions:", lines);
    if (!definitions.empty()) last_name_ = qualified(definitions.front());

    // Where the best functions and types are used.
    std::unordered_set<std::string> asked;
    for (const auto& hit : definitions) {
        if (asked.size() == 2) break;
        if (!code_index::is_primary(code_index::definition_kind(hit.kind)) ||
            !asked.insert(hit.name).second) {
            continue;
        }
        // Most calls first, code before tests: a summary, not the neighbourhood of one file.
        const auto callers = code_index::find_callers(*db, qualified(hit), std::nullopt, 5);
        lines.clear();
        for (const auto& caller : callers.results) lines.push_back(caller_line(caller));
        section("Callers of " + qualified(hit) + ":", lines);
    }

    try {
        ::store::Store& cache = store();
        lines.clear();
        for (const auto& recalled : cache.search_understandings(words, 3)) {
            const auto& u = recalled.understanding;
            lines.push_back(u.target + " (" + u.scope + (recalled.fresh ? "" : ", stale") + ")" +
                            (u.purpose ? ": " + *u.purpose : ""));
        }
        section(
            "Cached understandings (understand(action=\"recall\", target=...) gives one whole):",
            lines);
        lines.clear();
        for (const auto& memory : cache.list_memories()) {
            const std::string text = lower(memory.key + " " + memory.value);
            bool match = false;
            for (const std::string& term : terms)
                match = match || text.find(lower(term)) != std::string::npos;
            if (match && lines.size() < 3)
                lines.push_back(quoted(memory.key) + ": " + memory.value);
        }
        section("Memories:", lines);
    } catch (const ::store::StoreError& e) {
        budget.add(out, std::string("(The AI cache could not be read: ") + e.what() + ".)");
    }

    if (db != nullptr) section("Files:", matching_paths(*db, terms, 8));

    if (found == 0) {
        out = "Nothing matches " + quoted(*query) +
              (db != nullptr ? ": no definition, caller, cached understanding, memory or file path."
                             : " in the AI cache.") +
              (db != nullptr ? " Grep finds text." : "") + "\n";
    } else if (budget.cut()) {
        const std::string name = last_name_.empty() ? terms.front() : last_name_;
        out += "(Cut at 4 KiB: search(action=\"symbols\", query=" + quoted(terms.front()) +
               ") or symbol(action=\"callers\", name=" + quoted(name) + ") give one part whole.)\n";
    }
    if (!note.empty()) out += note + "\n";
    out.pop_back();
    return text_result(out);
}

}  // namespace host::mcp
