#include <algorithm>

#include "host/commands/json_writer.hpp"
#include "host/commands/options.hpp"
#include "host/commands/report.hpp"
#include "engines/store/store.hpp"
#include "support/time_text.hpp"

namespace host::commands {

// These commands are the store's front end.
using namespace ::store;

namespace {

constexpr const char* kCommand = "orvane-tamblo query understand";
constexpr std::int64_t kDefaultLimit = 50;

// The first option given that `action` does not take, or nullptr.
const char* misplaced_option(const UnderstandOptions& o) {
    const bool store = o.action == "store";
    const bool stats = o.action == "stats";
    if (stats && o.target) return "--target";
    if (stats && o.scope) return "--scope";
    if (!store && o.importance) return "--importance";
    if (!store && o.purpose) return "--purpose";
    if (!store && !o.key_points.empty()) return "--key-point";
    if (!store && !o.gotchas.empty()) return "--gotcha";
    if (!store && o.auto_generated) return "--auto-generated";
    if (!stats && o.limit) return "--limit";
    if (!stats && o.include_fresh) return "--include-fresh";
    return nullptr;
}

int store_action(const UnderstandOptions& o) {
    Understanding u;
    u.target = *o.target;
    if (o.scope) u.scope = *o.scope;
    if (o.importance) u.importance = *o.importance;
    u.purpose = o.purpose;
    u.key_points = o.key_points;
    u.gotchas = o.gotchas;
    u.auto_generated = o.auto_generated;
    Store::open(Store::Access::write).store_understanding(u);
    JsonWriter out;
    out.begin_object().key("stored").value(true).key("target").value(u.target);
    out.key("scope").value(u.scope).end_object();
    return answer(kCommand, out.finish());
}

int recall_action(const UnderstandOptions& o) {
    const auto recalled = Store::open(Store::Access::read).recall_understanding(*o.target, o.scope);
    JsonWriter out;
    out.begin_object().key("found").value(recalled.has_value());
    if (recalled) {
        const Understanding& u = recalled->understanding;
        out.key("fresh").value(recalled->fresh).key("understanding").begin_object();
        out.key("target").value(u.target).key("scope").value(u.scope);
        out.key("importance").value(u.importance).key("purpose").value(u.purpose);
        out.key("key_points").strings(u.key_points).key("gotchas").strings(u.gotchas);
        out.key("auto_generated").value(u.auto_generated);
        out.key("stored_at").value(support::iso8601_utc(u.stored_at_ms)).end_object();
    }
    out.end_object();
    return answer(kCommand, out.finish());
}

int stats_action(const UnderstandOptions& o) {
    const auto limit = static_cast<std::size_t>(o.limit.value_or(kDefaultLimit));
    const UnderstandingStats stats =
        Store::open(Store::Access::read).understanding_stats(limit, o.include_fresh);
    // Scopes in the order of their first listed entry; entries keep the list's order.
    std::vector<std::string> scopes;
    for (const auto& entry : stats.entries) {
        if (std::find(scopes.begin(), scopes.end(), entry.scope) == scopes.end()) {
            scopes.push_back(entry.scope);
        }
    }
    JsonWriter out;
    out.begin_object().key("total").value(stats.total).key("by_scope").begin_object();
    for (const auto& scope : scopes) {
        out.key(scope).begin_object().key("entries").begin_array();
        for (const auto& entry : stats.entries) {
            if (entry.scope != scope) continue;
            out.begin_object().key("target").value(entry.target);
            out.key("importance").value(entry.importance).key("fresh").value(entry.fresh);
            out.end_object();
        }
        out.end_array().end_object();
    }
    out.end_object().end_object();
    return answer(kCommand, out.finish());
}

}  // namespace

int cmd_query_understand(const UnderstandOptions& o) {
    if (const char* option = misplaced_option(o)) {
        return usage_error(kCommand,
                           std::string(option) + " does not apply to --action=" + o.action);
    }
    if (o.action != "stats" && (!o.target || o.target->empty())) {
        return usage_error(kCommand, "--action=" + o.action + " needs a non-empty --target");
    }
    if (o.scope && o.scope->empty()) {
        return usage_error(kCommand, "--scope must not be empty");
    }
    if (o.action == "store") {
        return guarded_write(kCommand, "the understanding of " + *o.target + " is lost",
                             [&] { return store_action(o); });
    }
    return guarded(kCommand, [&] {
        if (o.action == "recall") return recall_action(o);
        return stats_action(o);
    });
}

}  // namespace host::commands
