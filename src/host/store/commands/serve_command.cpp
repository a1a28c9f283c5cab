#include <optional>

#include "host/store/commands/options.hpp"
#include "host/store/commands/report.hpp"
#include "host/store/store.hpp"
#include "platform/fs.hpp"
#include "platform/io.hpp"
#include "platform/path.hpp"

namespace host::store::commands {

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

}  // namespace

int cmd_serve() {
    Diagnosis d;
    d.line("service", "embedded in orvane-tamblo: the hooks run it from PATH, nothing to start");
    diagnose_store(d);
    const int written = answer(kServe, d.text);
    if (written != 0) return written;
    return d.ok ? 0 : kFailureStatus;
}

}  // namespace host::store::commands
