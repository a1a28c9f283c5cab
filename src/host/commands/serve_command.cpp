#include <optional>

#include "engines/store/store.hpp"
#include "host/commands/options.hpp"
#include "host/commands/report.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/io.hpp"
#include "platform/path.hpp"
#include "platform/process.hpp"

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
    return std::to_string(n) + " " + (n == 1 ? one : many ? many : std::string(one) + "s");
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
    diagnose_path(d);
    const int written = answer(kServe, d.text);
    if (written != 0) return written;
    return d.ok ? 0 : kFailureStatus;
}

}  // namespace host::commands
