#include <cmath>
#include <cstdio>

#include "engines/index/database.hpp"
#include "engines/index/indexer.hpp"
#include "engines/index/progress_bar.hpp"
#include "engines/index/symbols.hpp"
#include "host/commands/index_options.hpp"
#include "host/commands/json_writer.hpp"
#include "host/commands/report.hpp"
#include "support/text.hpp"

namespace host::commands {

namespace {

constexpr const char* kIndex = "orvane-tamblo index";
constexpr const char* kSearch = "orvane-tamblo query search";
constexpr const char* kSymbol = "orvane-tamblo query symbol";
// Enough to answer a question, small enough for a model's context.
constexpr std::int64_t kDefaultLimit = 50;

constexpr const char* kNoIndex =
    "no code index in this repository yet; build it with `orvane-tamblo index`";

using code_index::FileState;

using support::grouped;

std::string plural(std::int64_t n, const char* one, const char* many) {
    return grouped(n) + " " + (n == 1 ? one : many);
}

constexpr FileState kSkipped[] = {FileState::large,     FileState::binary,    FileState::minified,
                                  FileState::generated, FileState::timed_out, FileState::failed,
                                  FileState::unreadable};

std::string summary_line(const code_index::IndexSummary& s) {
    const auto files = [&](FileState state) { return s.files[static_cast<std::size_t>(state)]; };
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f", s.seconds);
    std::string line =
        s.built ? "Indexed " + plural(files(FileState::indexed), "source file", "source files") +
                      " in " + seconds + " s: "
                : "Refreshed the index in " + std::string(seconds) + " s (" + grouped(s.parsed) +
                      " parsed, " + grouped(s.removed) + " removed, " + grouped(s.unchanged) +
                      " unchanged): " +
                      plural(files(FileState::indexed), "source file", "source files") + ", ";
    line += plural(s.definitions, "definition", "definitions") + ", " +
            plural(s.references, "reference", "references");
    std::string skipped;
    std::int64_t total_skipped = 0;
    for (const FileState state : kSkipped) {
        if (files(state) == 0) continue;
        total_skipped += files(state);
        skipped += (skipped.empty() ? "" : ", ") + grouped(files(state)) + " " +
                   std::string(code_index::state_name(state));
    }
    if (total_skipped > 0) line += "; skipped " + grouped(total_skipped) + " (" + skipped + ")";
    return line + ".\n";
}

std::string summary_json(const code_index::IndexSummary& s) {
    const auto files = [&](FileState state) { return s.files[static_cast<std::size_t>(state)]; };
    JsonWriter out;
    out.begin_object().key("files").value(files(FileState::indexed));
    out.key("parsed").value(s.parsed).key("unchanged").value(s.unchanged);
    out.key("removed").value(s.removed).key("skipped").begin_object();
    for (const FileState state : kSkipped) {
        out.key(code_index::state_name(state)).value(files(state));
    }
    out.end_object().key("other_files").value(files(FileState::unsupported));
    out.key("definitions").value(s.definitions).key("references").value(s.references);
    out.key("seconds").value(std::round(s.seconds * 1000) / 1000).key("rebuilt").value(s.built);
    out.end_object();
    return out.finish();
}

void write_symbol(JsonWriter& out, const code_index::SymbolHit& hit) {
    out.key("name").value(hit.name).key("kind").value(hit.kind).key("path").value(hit.path);
    out.key("line").value(hit.line).key("end_line").value(hit.end_line);
    out.key("scope").value(hit.scope).key("signature").value(hit.signature);
    out.key("language").value(hit.language);
}

// The open index, or nullopt after reporting that there is none.
template <typename Body>
int with_index(const char* command, Body&& body) {
    return guarded(command, [&] {
        auto index = code_index::IndexDatabase::open(".", code_index::IndexDatabase::Access::read);
        if (!index) return report_error(command, kNoIndex, kFailureStatus);
        return body(index->db());
    });
}

}  // namespace

int cmd_index(const IndexCommandOptions& o) {
    return guarded(kIndex, [&] {
        code_index::ProgressBar bar;
        code_index::IndexOptions options;
        options.rebuild = o.rebuild;
        options.progress = [&](const code_index::IndexProgress& p) { bar.update(p); };
        const code_index::IndexSummary summary = code_index::update_index(".", options);
        bar.finish();
        return answer(kIndex, o.json ? summary_json(summary) : summary_line(summary));
    });
}

int cmd_query_search(const SearchOptions& o) {
    if (!o.query || o.query->empty()) {
        return usage_error(kSearch, "--action=symbols needs a non-empty --query");
    }
    std::optional<code_index::DefinitionKind> kind;
    if (o.kind) {
        kind = code_index::known_definition_kind(*o.kind);
        if (!kind) return usage_error(kSearch, "--kind: unknown kind '" + *o.kind + "'");
    }
    return with_index(kSearch, [&](code_index::Database& db) {
        code_index::SearchQuery query{*o.query, kind, o.path,
                                      static_cast<std::size_t>(o.limit.value_or(kDefaultLimit))};
        const auto hits = code_index::search_symbols(db, query);
        JsonWriter out;
        out.begin_object().key("results").begin_array();
        for (const auto& hit : hits.results) {
            out.begin_object();
            write_symbol(out, hit);
            out.end_object();
        }
        out.end_array().key("truncated").value(hits.truncated).end_object();
        return answer(kSearch, out.finish());
    });
}

int cmd_query_symbol(const SymbolOptions& o) {
    if (!o.name || o.name->empty()) {
        return usage_error(kSymbol, "--action=" + o.action + " needs a non-empty --name");
    }
    const auto limit = static_cast<std::size_t>(o.limit.value_or(kDefaultLimit));
    return with_index(kSymbol, [&](code_index::Database& db) {
        JsonWriter out;
        out.begin_object().key("results").begin_array();
        bool truncated = false;
        if (o.action == "definition") {
            const auto hits = code_index::find_definitions(db, *o.name, o.path, limit);
            for (const auto& hit : hits.results) {
                out.begin_object();
                write_symbol(out, hit);
                out.end_object();
            }
            truncated = hits.truncated;
        } else if (o.action == "references") {
            const auto hits = code_index::find_references(db, *o.name, o.path, limit);
            for (const auto& hit : hits.results) {
                out.begin_object().key("path").value(hit.path).key("line").value(hit.line);
                out.key("column").value(hit.column).key("kind").value(hit.kind);
                out.key("in").value(hit.in).end_object();
            }
            truncated = hits.truncated;
        } else {
            const auto hits = code_index::find_callers(db, *o.name, o.path, limit);
            for (const auto& hit : hits.results) {
                out.begin_object();
                if (hit.caller) {
                    write_symbol(out, *hit.caller);
                } else {
                    // Calls at the top level of a file, outside every definition.
                    out.key("name")
                        .value(std::optional<std::string>())
                        .key("kind")
                        .value("top-level");
                    out.key("path").value(hit.path).key("line").value(hit.line);
                }
                out.key("calls").value(hit.calls).end_object();
            }
            truncated = hits.truncated;
        }
        out.end_array().key("truncated").value(truncated).end_object();
        return answer(kSymbol, out.finish());
    });
}

}  // namespace host::commands
