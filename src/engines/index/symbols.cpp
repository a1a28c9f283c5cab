#include "engines/index/symbols.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "engines/index/language.hpp"
#include "engines/index/words.hpp"
#include "engines/index/writer.hpp"

namespace code_index {

namespace {

// Never more candidate names per tier than this: a one-letter prefix matches half the index.
constexpr std::int64_t kNamesPerTier = 400;
// Nor more definitions of one name weighed for ranking.
constexpr std::int64_t kDefinitionsPerName = 2000;

constexpr const char* kDefColumns =
    "SELECT n.name, d.kind, f.path, d.line, d.end_line, d.scope, d.signature, f.language, "
    "d.file_id FROM defs AS d JOIN names AS n ON n.id = d.name_id "
    "JOIN files AS f ON f.id = d.file_id ";

struct Candidate {
    SymbolHit hit;
    std::int64_t file_id = 0;
    DefinitionKind kind = DefinitionKind::other;
};

Candidate read_candidate(const Statement& row) {
    Candidate c;
    c.kind = static_cast<DefinitionKind>(row.integer(1));
    c.hit.name = row.text(0);
    c.hit.kind = kind_name(c.kind);
    c.hit.path = row.text(2);
    c.hit.line = row.integer(3);
    c.hit.end_line = row.integer(4);
    c.hit.scope = row.text(5);
    c.hit.signature = row.text(6);
    if (!row.is_null(7) && row.integer(7) >= 0 &&
        row.integer(7) < static_cast<std::int64_t>(kLanguageCount)) {
        c.hit.language = language_name(static_cast<Language>(row.integer(7)));
    }
    c.file_id = row.integer(8);
    return c;
}

std::optional<std::int64_t> name_id(Database& db, std::string_view name) {
    Statement row = db.prepare("SELECT id FROM names WHERE name=?1");
    if (!row.bind(1, name).step()) return std::nullopt;
    return row.integer(0);
}

// The smallest text greater than every text beginning with `prefix` ("" when there is none).
std::string prefix_end(std::string prefix) {
    while (!prefix.empty()) {
        if (static_cast<unsigned char>(prefix.back()) != 0xFF) {
            prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
            return prefix;
        }
        prefix.pop_back();
    }
    return prefix;
}

std::vector<std::string> path_parts(std::string_view path) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = path.find('/', start);
        const std::size_t end = slash == std::string_view::npos ? path.size() : slash;
        if (end > start) parts.emplace_back(path.substr(start, end - start));
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    return parts;
}

// Steps between the directories of two files: up from one to the common one, down to the other.
std::size_t path_distance(std::string_view a, std::string_view b) {
    auto pa = path_parts(a), pb = path_parts(b);
    if (!pa.empty()) pa.pop_back();
    if (!pb.empty()) pb.pop_back();
    std::size_t common = 0;
    while (common < pa.size() && common < pb.size() && pa[common] == pb[common]) ++common;
    return pa.size() + pb.size() - 2 * common;
}

std::string_view stem_of(std::string_view file) {
    const std::size_t dot = file.find('.');
    return dot == std::string_view::npos || dot == 0 ? file : file.substr(0, dot);
}

// The module an import names, as path components: "os.path", "./util/text", "pkg/sub",
// "crate::io::Read" and "<sys/stat.h>" all come apart into the names of directories and files.
std::vector<std::string> import_parts(std::string_view name) {
    std::string text(name);
    for (const char* ext : {".h", ".hpp", ".hh", ".hxx", ".js", ".jsx", ".ts", ".tsx", ".mjs",
                            ".py", ".go", ".rs", ".java"}) {
        if (text.ends_with(ext)) {
            text.resize(text.size() - std::string_view(ext).size());
            break;
        }
    }
    std::vector<std::string> parts;
    std::string part;
    for (const char c : text) {
        if (c == '/' || c == '.' || c == ':' || c == '\\' || c == '<' || c == '>' || c == '"' ||
            c == '\'') {
            if (!part.empty()) parts.push_back(std::move(part));
            part.clear();
        } else {
            part += c;
        }
    }
    if (!part.empty()) parts.push_back(std::move(part));
    return parts;
}

// Whether a file at `path` is what one of the imports names: its name without extension is the
// import's last part (or its directory is, for index.js, mod.rs, __init__.py and the like), or
// one of the parts of a package path (Java and Go name packages, not files).
bool imported_by(std::string_view path, const std::vector<std::vector<std::string>>& imports) {
    const auto parts = path_parts(path);
    if (parts.empty()) return false;
    const std::string stem(stem_of(parts.back()));
    const std::string dir = parts.size() > 1 ? parts[parts.size() - 2] : "";
    const bool is_index = stem == "index" || stem == "mod" || stem == "__init__" || stem == "lib";
    for (const auto& import : imports) {
        if (import.empty()) continue;
        const std::string& last = import.back();
        if (last == stem || (is_index && last == dir)) return true;
        // A package import (Go, Java): the file's directory is the last part or the one before
        // (a class name follows the package in Java).
        if (!dir.empty() &&
            (last == dir || (import.size() > 1 && import[import.size() - 2] == dir))) {
            return true;
        }
    }
    return false;
}

// The imports of the file at `path`, from its references of kind import.
std::vector<std::vector<std::string>> imports_of(Database& db, std::string_view path) {
    std::vector<std::vector<std::string>> imports;
    Statement file = db.prepare("SELECT id, names FROM files WHERE path=?1");
    if (!file.bind(1, path).step()) return imports;
    const std::int64_t file_id = file.integer(0);
    const std::vector<std::int64_t> ids = unpack_ids(file.blob(1));
    Statement import = db.prepare(
        "SELECT n.name FROM refs AS r JOIN names AS n ON n.id = r.name_id "
        "WHERE r.name_id=?1 AND r.file_id=?2 AND r.kind=?3 LIMIT 1");
    for (const std::int64_t id : ids) {
        import.bind(1, id)
            .bind(2, file_id)
            .bind(3, static_cast<std::int64_t>(ReferenceKind::import));
        if (import.step()) imports.push_back(import_parts(import.text(0)));
        import.reset();
    }
    return imports;
}

// Whether the file is a test, an example, a fixture or someone else's code kept in the tree:
// the definition a person means is seldom there when another one exists.
bool is_aside(std::string_view path) {
    static constexpr std::string_view kDirectories[] = {
        "test",   "tests",       "testdata",     "testing",   "__tests__",
        "spec",   "specs",       "example",      "examples",  "fixtures",
        "vendor", "third_party", "node_modules", "benchmark", "benchmarks"};
    const auto parts = path_parts(path);
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        for (const auto dir : kDirectories) {
            if (parts[i] == dir) return true;
        }
    }
    if (parts.empty()) return false;
    const std::string_view file = parts.back();
    const std::string_view stem = stem_of(file);
    return stem.starts_with("test_") || stem.ends_with("_test") || stem.ends_with("_tests") ||
           file.find(".test.") != std::string_view::npos ||
           file.find(".spec.") != std::string_view::npos || stem.ends_with("Test") ||
           stem.ends_with("Tests");
}

// Orders candidates by closeness to `near`: the same file, then files it imports, then by path
// distance; then code before tests and examples, functions and types before details, shallower
// paths first; otherwise as they came (a stable sort).
template <typename T, typename PathOf, typename KindOf>
void rank_near(Database& db, std::vector<T>& items, const std::optional<std::string>& near,
               PathOf path_of, KindOf kind_of) {
    std::vector<std::vector<std::string>> imports;
    if (near) imports = imports_of(db, *near);
    struct Key {
        int place;
        std::size_t distance;
        int aside;
        int detail;
        std::size_t depth;
    };
    std::unordered_map<const T*, Key> keys;
    for (const T& item : items) {
        const std::string& path = path_of(item);
        Key key{2, 0, is_aside(path) ? 1 : 0, is_primary(kind_of(item)) ? 0 : 1,
                static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'))};
        if (near) {
            key.place = path == *near ? 0 : imported_by(path, imports) ? 1 : 2;
            key.distance = path_distance(path, *near);
        }
        keys.emplace(&item, key);
    }
    std::vector<std::pair<Key, T>> keyed;
    keyed.reserve(items.size());
    for (T& item : items) keyed.emplace_back(keys.at(&item), std::move(item));
    std::stable_sort(keyed.begin(), keyed.end(), [&](const auto& a, const auto& b) {
        if (a.first.place != b.first.place) return a.first.place < b.first.place;
        if (a.first.distance != b.first.distance) return a.first.distance < b.first.distance;
        if (a.first.aside != b.first.aside) return a.first.aside < b.first.aside;
        if (a.first.detail != b.first.detail) return a.first.detail < b.first.detail;
        return a.first.depth < b.first.depth;
    });
    items.clear();
    for (auto& [key, item] : keyed) items.push_back(std::move(item));
}

// The last part of a qualified name, and the qualifier before it ("" when there is none).
std::pair<std::string, std::string> split_qualified(const std::string& name) {
    const std::size_t colons = name.rfind("::");
    const std::size_t dot = name.rfind('.');
    std::size_t cut = std::string::npos, width = 0;
    if (colons != std::string::npos && (dot == std::string::npos || colons > dot)) {
        cut = colons;
        width = 2;
    } else if (dot != std::string::npos) {
        cut = dot;
        width = 1;
    }
    if (cut == std::string::npos || cut == 0 || cut + width >= name.size()) return {name, ""};
    std::string qualifier = name.substr(0, cut);
    for (std::size_t at; (at = qualifier.find("::")) != std::string::npos;) {
        qualifier.replace(at, 2, ".");
    }
    return {name.substr(cut + width), qualifier};
}

// The name as written, else its last part: a use is recorded under the bare name
// (`Parser.parse` is used as `parse`), unless the name holds dots itself (a Go package).
std::optional<std::int64_t> used_name_id(Database& db, const std::string& qualified) {
    if (auto id = name_id(db, qualified)) return id;
    return name_id(db, split_qualified(qualified).first);
}

bool scope_ends_with(std::string_view scope, std::string_view qualifier) {
    if (!scope.ends_with(qualifier)) return false;
    return scope.size() == qualifier.size() || scope[scope.size() - qualifier.size() - 1] == '.';
}

}  // namespace

Hits<SymbolHit> search_symbols(Database& db, const SearchQuery& q) {
    Hits<SymbolHit> hits;
    if (q.query.empty() || q.limit == 0) return hits;
    Transaction read(db, false);
    std::unordered_set<std::int64_t> seen_names;
    std::vector<Candidate> found;
    const std::size_t wanted = q.limit + 1;

    std::string filter;
    if (q.kind) filter += " AND d.kind=?2";
    if (q.path_prefix && !q.path_prefix->empty()) {
        filter += prefix_end(*q.path_prefix).empty() ? " AND f.path>=?3"
                                                     : " AND f.path>=?3 AND f.path<?4";
    }
    Statement defs = db.prepare(std::string(kDefColumns) + "WHERE d.name_id=?1" + filter +
                                " LIMIT " + std::to_string(kDefinitionsPerName));
    // The definitions of one tier's names, ranked within the tier.
    auto take = [&](const std::vector<std::int64_t>& ids) {
        std::vector<Candidate> tier;
        for (const std::int64_t id : ids) {
            if (!seen_names.insert(id).second) continue;
            defs.bind(1, id);
            if (q.kind) defs.bind(2, static_cast<std::int64_t>(*q.kind));
            if (q.path_prefix && !q.path_prefix->empty()) {
                defs.bind(3, *q.path_prefix);
                if (const std::string end = prefix_end(*q.path_prefix); !end.empty())
                    defs.bind(4, end);
            }
            while (defs.step()) tier.push_back(read_candidate(defs));
            defs.reset();
        }
        std::stable_sort(tier.begin(), tier.end(), [](const Candidate& a, const Candidate& b) {
            const bool pa = is_primary(a.kind), pb = is_primary(b.kind);
            if (pa != pb) return pa;
            if (a.hit.name.size() != b.hit.name.size())
                return a.hit.name.size() < b.hit.name.size();
            if (a.hit.name != b.hit.name) return a.hit.name < b.hit.name;
            if (a.hit.path != b.hit.path) return a.hit.path < b.hit.path;
            return a.hit.line < b.hit.line;
        });
        for (Candidate& c : tier) {
            if (found.size() >= wanted) break;
            found.push_back(std::move(c));
        }
    };
    auto ids_of = [&](Statement& stmt) {
        std::vector<std::int64_t> ids;
        while (stmt.step()) ids.push_back(stmt.integer(0));
        return ids;
    };

    const std::string folded = fold_case(q.query);
    if (auto id = name_id(db, q.query)) take({*id});
    if (found.size() < wanted) {
        Statement same = db.prepare("SELECT id FROM names WHERE name=?1 COLLATE NOCASE LIMIT ?2");
        same.bind(1, folded).bind(2, kNamesPerTier);
        take(ids_of(same));
    }
    if (found.size() < wanted) {
        const std::string end = prefix_end(folded);
        Statement prefix = db.prepare(
            end.empty()
                ? "SELECT id FROM names WHERE name>=?1 COLLATE NOCASE ORDER BY length(name) LIMIT "
                  "?2"
                : "SELECT id FROM (SELECT id, name FROM names WHERE name>=?1 COLLATE NOCASE AND "
                  "name<?3 COLLATE NOCASE LIMIT 5000) ORDER BY length(name) LIMIT ?2");
        prefix.bind(1, folded).bind(2, kNamesPerTier);
        if (!end.empty()) prefix.bind(3, end);
        take(ids_of(prefix));
    }
    const std::vector<std::string> words = name_words(q.query);
    if (found.size() < wanted && !words.empty()) {
        std::string sql;
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (i > 0) sql += " INTERSECT ";
            sql += "SELECT name_id FROM name_words WHERE word>=?" + std::to_string(2 * i + 1) +
                   " AND word<?" + std::to_string(2 * i + 2);
        }
        Statement by_words =
            db.prepare("SELECT n.id FROM names AS n WHERE n.id IN (" + sql +
                       ") ORDER BY length(n.name) LIMIT " + std::to_string(kNamesPerTier));
        for (std::size_t i = 0; i < words.size(); ++i) {
            by_words.bind(static_cast<int>(2 * i + 1), words[i]);
            by_words.bind(static_cast<int>(2 * i + 2), prefix_end(words[i]));
        }
        take(ids_of(by_words));
    }
    if (found.size() < wanted) {
        Statement substring = db.prepare(
            "SELECT id FROM names WHERE instr(lower(name), ?1) > 0 ORDER BY length(name) LIMIT ?2");
        substring.bind(1, folded).bind(2, kNamesPerTier);
        take(ids_of(substring));
    }

    hits.truncated = found.size() > q.limit;
    if (hits.truncated) found.resize(q.limit);
    for (Candidate& c : found) hits.results.push_back(std::move(c.hit));
    return hits;
}

Hits<SymbolHit> find_definitions(Database& db, const std::string& qualified,
                                 const std::optional<std::string>& near, std::size_t limit) {
    Hits<SymbolHit> hits;
    Transaction read(db, false);
    auto [name, qualifier] = split_qualified(qualified);
    std::optional<std::int64_t> id = name_id(db, qualified);
    if (id) qualifier.clear();  // a name that holds dots itself (a Go package, a module)
    if (!id) id = name_id(db, name);
    if (!id) return hits;
    Statement rows = db.prepare(std::string(kDefColumns) + "WHERE d.name_id=?1 LIMIT " +
                                std::to_string(kDefinitionsPerName));
    rows.bind(1, *id);
    std::vector<Candidate> found;
    while (rows.step()) {
        Candidate c = read_candidate(rows);
        if (qualifier.empty() || scope_ends_with(c.hit.scope, qualifier))
            found.push_back(std::move(c));
    }
    std::sort(found.begin(), found.end(), [](const Candidate& a, const Candidate& b) {
        if (a.hit.path != b.hit.path) return a.hit.path < b.hit.path;
        return a.hit.line < b.hit.line;
    });
    rank_near(
        db, found, near, [](const Candidate& c) -> const std::string& { return c.hit.path; },
        [](const Candidate& c) { return c.kind; });
    hits.truncated = found.size() > limit;
    if (hits.truncated) found.resize(limit);
    for (Candidate& c : found) hits.results.push_back(std::move(c.hit));
    return hits;
}

namespace {

// The scope-qualified names of definitions, by id.
std::unordered_map<std::int64_t, std::string> qualified_names(Database& db,
                                                              const std::set<std::int64_t>& ids) {
    std::unordered_map<std::int64_t, std::string> names;
    Statement def = db.prepare(
        "SELECT d.scope, n.name FROM defs AS d JOIN names AS n ON n.id = d.name_id WHERE d.id=?1");
    for (const std::int64_t id : ids) {
        def.bind(1, id);
        if (def.step()) {
            const std::string scope(def.text(0));
            names.emplace(id, scope.empty() ? std::string(def.text(1))
                                            : scope + "." + std::string(def.text(1)));
        }
        def.reset();
    }
    return names;
}

std::unordered_map<std::int64_t, std::string> file_paths(Database& db,
                                                         const std::set<std::int64_t>& ids) {
    std::unordered_map<std::int64_t, std::string> paths;
    Statement file = db.prepare("SELECT path FROM files WHERE id=?1");
    for (const std::int64_t id : ids) {
        if (file.bind(1, id).step()) paths.emplace(id, std::string(file.text(0)));
        file.reset();
    }
    return paths;
}

}  // namespace

Hits<ReferenceHit> find_references(Database& db, const std::string& qualified,
                                   const std::optional<std::string>& near, std::size_t limit) {
    Hits<ReferenceHit> hits;
    Transaction read(db, false);
    const std::optional<std::int64_t> id = used_name_id(db, qualified);
    if (!id) return hits;
    struct Row {
        std::int64_t file_id, line, column, kind;
        std::optional<std::int64_t> in;
    };
    std::vector<Row> rows;
    std::set<std::int64_t> files, defs;
    Statement refs = db.prepare(
        "SELECT file_id, line, col, kind, in_def FROM refs WHERE name_id=?1 LIMIT 100000");
    refs.bind(1, *id);
    while (refs.step()) {
        Row row{refs.integer(0), refs.integer(1), refs.integer(2), refs.integer(3), std::nullopt};
        if (!refs.is_null(4)) row.in = refs.integer(4);
        files.insert(row.file_id);
        rows.push_back(row);
    }
    const auto paths = file_paths(db, files);
    std::vector<ReferenceHit> found;
    std::vector<std::int64_t> in_ids;
    for (const Row& row : rows) {
        ReferenceHit hit;
        hit.path = paths.count(row.file_id) ? paths.at(row.file_id) : "";
        hit.line = row.line;
        hit.column = row.column;
        hit.kind = kind_name(static_cast<ReferenceKind>(row.kind));
        found.push_back(std::move(hit));
        in_ids.push_back(row.in.value_or(-1));
    }
    // Ranked, then only the kept ones get their enclosing definition's name.
    std::vector<std::pair<ReferenceHit, std::int64_t>> paired;
    for (std::size_t i = 0; i < found.size(); ++i)
        paired.emplace_back(std::move(found[i]), in_ids[i]);
    std::stable_sort(paired.begin(), paired.end(), [](const auto& a, const auto& b) {
        if (a.first.path != b.first.path) return a.first.path < b.first.path;
        if (a.first.line != b.first.line) return a.first.line < b.first.line;
        return a.first.column < b.first.column;
    });
    rank_near(
        db, paired, near, [](const auto& p) -> const std::string& { return p.first.path; },
        [](const auto&) { return DefinitionKind::function; });
    hits.truncated = paired.size() > limit;
    if (hits.truncated) paired.resize(limit);
    for (const auto& [hit, in] : paired) {
        if (in >= 0) defs.insert(in);
    }
    const auto names = qualified_names(db, defs);
    for (auto& [hit, in] : paired) {
        if (in >= 0 && names.count(in)) hit.in = names.at(in);
        hits.results.push_back(std::move(hit));
    }
    return hits;
}

Hits<CallerHit> find_callers(Database& db, const std::string& qualified,
                             const std::optional<std::string>& near, std::size_t limit) {
    Hits<CallerHit> hits;
    Transaction read(db, false);
    const std::optional<std::int64_t> id = used_name_id(db, qualified);
    if (!id) return hits;
    // Grouped and joined to the file's path in SQL; only the callers kept are looked up whole, so
    // a name called from thousands of places costs one pass over its calls.
    Statement groups = db.prepare(
        "SELECT g.in_def, g.calls, g.first_line, f.path FROM (SELECT file_id, in_def, "
        "count(*) AS calls, min(line) AS first_line FROM refs WHERE name_id=?1 AND kind=?2 "
        "GROUP BY file_id, in_def) AS g JOIN files AS f ON f.id = g.file_id");
    groups.bind(1, *id).bind(2, static_cast<std::int64_t>(ReferenceKind::call));
    struct Group {
        CallerHit hit;
        std::optional<std::int64_t> def;
        bool aside = false;
    };
    std::vector<Group> found;
    while (groups.step()) {
        Group g;
        if (!groups.is_null(0)) g.def = groups.integer(0);
        g.hit.calls = groups.integer(1);
        g.hit.line = groups.integer(2);
        g.hit.path = groups.text(3);
        g.aside = is_aside(g.hit.path);
        found.push_back(std::move(g));
    }
    // Most calls first, tests and examples after the code; with `near`, closeness comes first.
    std::stable_sort(found.begin(), found.end(), [](const Group& a, const Group& b) {
        if (a.aside != b.aside) return b.aside;
        if (a.hit.calls != b.hit.calls) return a.hit.calls > b.hit.calls;
        if (a.hit.path != b.hit.path) return a.hit.path < b.hit.path;
        return a.hit.line < b.hit.line;
    });
    if (near) {
        rank_near(
            db, found, near, [](const Group& g) -> const std::string& { return g.hit.path; },
            [](const Group&) { return DefinitionKind::function; });
    }
    hits.truncated = found.size() > limit;
    if (hits.truncated) found.resize(limit);
    Statement def = db.prepare(std::string(kDefColumns) + "WHERE d.id=?1");
    for (Group& g : found) {
        if (g.def) {
            def.bind(1, *g.def);
            if (def.step()) {
                Candidate c = read_candidate(def);
                g.hit.line = c.hit.line;
                g.hit.caller = std::move(c.hit);
            }
            def.reset();
        }
        hits.results.push_back(std::move(g.hit));
    }
    return hits;
}

}  // namespace code_index
