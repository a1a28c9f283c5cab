#include <algorithm>

#include "engines/store/store.hpp"
#include "host/commands/json_writer.hpp"
#include "host/commands/options.hpp"
#include "host/commands/report.hpp"
#include "host/commands/table.hpp"
#include "host/commands/text_check.hpp"
#include "protocol/host_commands.hpp"
#include "support/time_text.hpp"

namespace host::commands {

// These commands are the store's front end.
using namespace ::store;

namespace {

constexpr const char* kLogTurn = "orvane-tamblo conversation log-turn";
constexpr const char* kFinalize = "orvane-tamblo conversation finalize";
constexpr const char* kList = "orvane-tamblo conversation list";
constexpr const char* kContext = "orvane-tamblo conversation context";

// The first option that a turn of this type does not take, or nullptr.
const char* misplaced_turn_option(const LogTurnOptions& o) {
    if (o.type == "user") {
        if (o.tool_name) return "--tool-name";
        if (o.tool_input) return "--tool-input";
        if (o.tool_result) return "--tool-result";
    } else if (o.prompt) {
        return "--prompt";
    }
    return nullptr;
}

std::string list_table(const std::vector<SessionInfo>& sessions, std::int64_t days) {
    if (sessions.empty()) {
        return "No sessions in the last " + std::to_string(days) +
               (days == 1 ? " day.\n" : " days.\n");
    }
    Table table({"ID", "STATUS", "STARTED", "LAST ACTIVITY", "TURNS"});
    for (const auto& s : sessions) {
        table.add({s.id, s.status, local_minute(s.started_at_ms), local_minute(s.last_activity_ms),
                   std::to_string(s.turns)});
    }
    return table.text();
}

std::string context_text(const std::string& id, const SessionContext& c) {
    std::string text = "Session " + printable(id) + "\n\nGoals:\n";
    for (std::size_t i = 0; i < c.goals.size(); ++i) {
        text += "  " + std::to_string(i + 1) + ". " + printable(c.goals[i]) + "\n";
    }
    if (c.goals.empty()) text += "  (none)\n";
    text += "\nRecent activity (newest first):\n";
    for (const auto& line : c.recent_activity) text += "  - " + printable(line) + "\n";
    if (c.recent_activity.empty()) text += "  (none)\n";
    text += "\nFiles involved:\n";
    for (const auto& file : c.files_involved) text += "  " + printable(file) + "\n";
    if (c.files_involved.empty()) text += "  (none)\n";
    return text;
}

}  // namespace

int cmd_log_turn(const LogTurnOptions& o) {
    if (const char* option = misplaced_turn_option(o)) {
        return usage_error(kLogTurn, std::string(option) + " does not apply to --type " + o.type);
    }
    if (o.type == "user" && !o.prompt) {
        return usage_error(kLogTurn, "--type user needs --prompt");
    }
    if (o.type == "tool" && (!o.tool_name || o.tool_name->empty())) {
        return usage_error(kLogTurn, "--type tool needs a non-empty --tool-name");
    }
    if (o.session_id && o.session_id->empty()) {
        return usage_error(kLogTurn, "--session-id must not be empty");
    }
    return guarded_write(kLogTurn, "the turn is lost", [&] {
        Turn turn;
        if (o.type == "user") {
            turn.prompt = *o.prompt;
        } else {
            turn.type = TurnType::tool;
            turn.tool_name = *o.tool_name;
            turn.tool_input = o.tool_input;
            turn.tool_result = o.tool_result;
        }
        const std::string id = Store::open(Store::Access::write).log_turn(o.session_id, turn);
        JsonWriter out;
        out.begin_object().key("logged").value(true).key("session_id").value(id).end_object();
        return answer(kLogTurn, out.finish());
    });
}

int cmd_finalize(const FinalizeOptions& o) {
    if (o.session_id && o.session_id->empty()) {
        return usage_error(kFinalize, "--session-id must not be empty");
    }
    return guarded_write(kFinalize, "the session's end is not recorded", [&] {
        const auto id = Store::open(Store::Access::write).finalize_session(o.session_id, o.status);
        if (!id && o.session_id) {
            return report_error(kFinalize, "no session with the id '" + *o.session_id + "'",
                                kFailureStatus);
        }
        JsonWriter out;
        out.begin_object().key("finalized").value(id.has_value());
        if (id) out.key("session_id").value(*id).key("status").value(o.status);
        out.end_object();
        return answer(kFinalize, out.finish());
    });
}

int cmd_list(const ListOptions& o) {
    return guarded(kList, [&] {
        const std::optional<std::string> status =
            o.status == "all" ? std::nullopt : std::optional<std::string>(o.status);
        const auto sessions = Store::open(Store::Access::read).list_sessions(o.days, status);
        if (!o.json) return answer(kList, list_table(sessions, o.days));
        JsonWriter out;
        out.begin_object().key(protocol::SessionList::kSessions).begin_array();
        for (const auto& s : sessions) {
            out.begin_object()
                .key(protocol::SessionList::kId)
                .value(s.id)
                .key("status")
                .value(s.status);
            out.key("started_at").value(support::iso8601_utc(s.started_at_ms));
            out.key("last_activity").value(support::iso8601_utc(s.last_activity_ms));
            out.key("turns").value(s.turns).end_object();
        }
        out.end_array().end_object();
        return answer(kList, out.finish());
    });
}

int cmd_context(const ContextOptions& o) {
    if (o.ids.size() != 1) {
        return usage_error(kContext, o.ids.empty() ? "a session ID is required"
                                                   : "unexpected argument '" + o.ids[1] + "'");
    }
    const std::string& id = o.ids.front();
    if (const std::string error = text_error(id); !error.empty()) {
        return usage_error(kContext, "ID: " + error);
    }
    return guarded(kContext, [&] {
        const auto context = Store::open(Store::Access::read).session_context(id);
        if (!context)
            return report_error(kContext, "no session with the id '" + id + "'", kFailureStatus);
        if (!o.json) return answer(kContext, context_text(id, *context));
        JsonWriter out;
        out.begin_object().key(protocol::Context::kGoals).strings(context->goals);
        out.key(protocol::Context::kRecentActivity).strings(context->recent_activity);
        out.key(protocol::Context::kFilesInvolved).strings(context->files_involved).end_object();
        return answer(kContext, out.finish());
    });
}

}  // namespace host::commands
