#include <optional>

#include "engines/index/database.hpp"
#include "engines/index/indexer.hpp"
#include "engines/index/outline.hpp"
#include "engines/store/store.hpp"
#include "host/commands/options.hpp"
#include "host/commands/report.hpp"
#include "platform/clock.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/io.hpp"
#include "platform/path.hpp"
#include "platform/process.hpp"
#include "platform/process_id.hpp"
#include "support/text.hpp"

namespace host::commands {

// These commands are the store's front end.
using namespace ::store;

namespace {

constexpr const char* kServe = "orvane-tamblo serve";

struct Diagnosis {
    std::string text;
    bool ok = true;

    void line(const char* what, const std::string& detail) {
        std::string label(what);
        label.resize(10, ' ');
        text += label + detail + "\n";
    }
    void problem(const char* what, const std::string& detail) {
        line(what, "PROBLEM: " + detail);
        ok = false;
    }
};

std::string count(std::int64_t n, const char* one, const char* many = nullptr) {
    return support::grouped(n) + " " + (n == 1 ? one : many ? many : std::string(one) + "s");
}

void diagnose_store(Diagnosis& d) {
    try {
        const StoreLocation where = locate_store(".", false);
        d.line("store", where.db_path.empty() ? platform::join_path(where.root, kStoreDisplayPath)
                                              : where.db_path);
    } catch (const std::exception& e) {
        d.problem("store", e.what());
        return;
    }
    try {
        Store store = Store::open(Store::Access::read);
        if (!store.exists()) {
            d.line("database", "none yet; the first write creates it");
            return;
        }
        const StoreCounts counts = store.counts();
        d.line("database",
               "opens and answers (schema version " + std::to_string(store.schema_version()) + ")");
        d.line("contents", count(counts.understandings, "understanding") + ", " +
                               count(counts.sessions, "session") + " with " +
                               count(counts.turns, "turn") + ", " +
                               count(counts.memories, "memory", "memories"));
    } catch (const std::exception& e) {
        d.problem("database", e.what());
    }
}

// "2026-11-24 10:31 (5 min ago)": when, and how long ago at a glance.
std::string moment(std::int64_t epoch_ms) {
    const double seconds = static_cast<double>(epoch_ms) / 1000.0;
    std::string text = platform::local_time_at(seconds, "%Y-%m-%d %H:%M");
    const auto ago = static_cast<std::int64_t>(platform::epoch_seconds() - seconds);
    if (ago < 0) return text;
    if (ago < 60) return text + " (just now)";
    if (ago < 3600) return text + " (" + std::to_string(ago / 60) + " min ago)";
    if (ago < 2 * 86400) return text + " (" + std::to_string(ago / 3600) + " h ago)";
    return text + " (" + std::to_string(ago / 86400) + " days ago)";
}

constexpr code_index::FileState kSkipped[] = {
    code_index::FileState::large,     code_index::FileState::binary,
    code_index::FileState::minified,  code_index::FileState::generated,
    code_index::FileState::timed_out, code_index::FileState::failed,
    code_index::FileState::unreadable};

std::string files_text(const code_index::IndexSummary& s) {
    const auto files = [&](code_index::FileState state) {
        return s.files[static_cast<std::size_t>(state)];
    };
    std::string text = count(files(code_index::FileState::indexed), "source file") + " indexed";
    std::string skipped;
    std::int64_t total = 0;
    for (const code_index::FileState state : kSkipped) {
        if (files(state) == 0) continue;
        total += files(state);
        skipped += (skipped.empty() ? "" : ", ") + support::grouped(files(state)) + " " +
                   std::string(code_index::state_name(state));
    }
    if (total > 0) text += ", " + support::grouped(total) + " skipped (" + skipped + ")";
    const std::int64_t other = files(code_index::FileState::unsupported);
    if (other > 0) text += ", " + count(other, "other file") + " known by path only";
    return text;
}

// The MCP server keeps the index current while an agent's session runs, and says so in it.
std::string keeper_text(code_index::Database& db) {
    const auto keeper = code_index::read_keeper(db);
    if (!keeper || keeper->pid <= 0) {
        return "none has run; the MCP server keeps the index current while an agent's session "
               "runs";
    }
    const std::string pid = "(pid " + std::to_string(keeper->pid) + ")";
    if (!platform::process_running(keeper->pid)) {
        return "none running: the last MCP server " + pid +
               " has ended; the next one, or `orvane-tamblo index`, brings the index up to date";
    }
    std::string text = "the MCP server " + pid + " keeps it current";
    if (keeper->since_ms > 0) text += " since " + moment(keeper->since_ms);
    if (!keeper->watching.empty()) text += ": " + keeper->watching;
    return text;
}

void diagnose_index(Diagnosis& d) {
    bool located = false;
    try {
        const code_index::IndexLocation where = code_index::locate_index(".", false);
        if (!where.exists) {
            d.line("index", "none yet; build it with `orvane-tamblo index`");
            return;
        }
        d.line("index", where.db_path);
        located = true;
        auto index = code_index::IndexDatabase::open(".", code_index::IndexDatabase::Access::read);
        if (!index) {
            d.line("files", "none: the index vanished while it was read");
            return;
        }
        const code_index::IndexSummary contents = code_index::index_contents(index->db());
        d.line("files", files_text(contents));
        d.line("symbols", count(contents.definitions, "definition") + ", " +
                              count(contents.references, "reference"));
        const std::int64_t refreshed = code_index::refreshed_at(index->db());
        d.line("refreshed", refreshed > 0 ? moment(refreshed) : "never");
        d.line("keeper", keeper_text(index->db()));
    } catch (const std::exception& e) {
        d.problem(located ? "files" : "index", e.what());
    }
}

// Whether the orvane-tamblo that the hooks find through PATH is this program: a hook run by an
// agent reaches the store only through it.
void diagnose_path(Diagnosis& d) {
    const auto found = platform::find_program("orvane-tamblo");
    if (!found) {
        d.problem("hooks",
                  "no orvane-tamblo on PATH, so the hooks cannot reach the store; install it "
                  "there or link it (see the README)");
        return;
    }
    std::string self;
    try {
        self = platform::executable_path();
    } catch (const std::exception& e) {
        d.problem("hooks", std::string("the hooks run ") + *found + "; " + e.what());
        return;
    }
    if (platform::same_file(*found, self)) {
        d.line("hooks", "the hooks run " + *found + ", this program");
        return;
    }
    std::optional<std::string> theirs, ours;
    try {
        theirs = platform::read_regular_file(*found);
        ours = platform::read_regular_file(self);
    } catch (const std::exception&) {
    }
    if (theirs && ours && *theirs == *ours) {
        d.line("hooks", "the hooks run " + *found + ", a copy of this program");
    } else {
        d.problem("hooks",
                  "the hooks run " + *found + ", another program than this one (" + self + ")");
    }
}

}  // namespace

int cmd_serve() {
    Diagnosis d;
    d.line("service", "embedded in orvane-tamblo: the hooks run it from PATH, nothing to start");
    diagnose_store(d);
    diagnose_index(d);
    diagnose_path(d);
    const int written = answer(kServe, d.text);
    if (written != 0) return written;
    return d.ok ? 0 : kFailureStatus;
}

}  // namespace host::commands
