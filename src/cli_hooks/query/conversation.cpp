#include "cli_hooks/query/conversation.hpp"

#include <vector>

#include "cli_hooks/query/runner.hpp"
#include "protocol/host_commands.hpp"
#include "support/json.hpp"
#include "support/text.hpp"
#include "support/utf8.hpp"

namespace cli_hooks {

namespace {

constexpr std::size_t kMaxGoals = 3;
constexpr std::size_t kGoalLength = 200;
constexpr std::size_t kMaxActivity = 5;
constexpr std::size_t kMaxFiles = 10;

// The member as a list: missing gives an empty one, another kind cannot be summarised.
const Json& list_member(const Json& object, std::string_view key) {
    static const Json empty = Json::array();
    const Json* value = support::member(object, key);
    if (!support::truthy(value)) return empty;
    if (value->is_array()) return *value;
    throw support::TypeError("'" + std::string(key) + "' is a " + support::type_name(*value) +
                             ", not a list");
}

const std::string& text_of(const Json& value, std::string_view what) {
    if (!value.is_string()) {
        throw support::TypeError(std::string(what) + " is a " + support::type_name(value) +
                                 ", not a text");
    }
    return value.as_string();
}

}  // namespace

std::optional<std::string> get_conversation_context() {
    const auto sessions_data =
        _run_query_json(protocol::SessionList::command(), protocol::SessionList::kTimeLimitSeconds);
    if (!support::truthy(sessions_data)) return std::nullopt;
    const Json& sessions = list_member(*sessions_data, protocol::SessionList::kSessions);
    if (sessions.empty()) return std::nullopt;
    const Json* id = support::member(sessions[0], protocol::SessionList::kId);
    if (!support::truthy(id)) return std::nullopt;
    const std::string& session_id = text_of(*id, "session id");

    const auto context_data = _run_query_json(protocol::Context::command(session_id),
                                              protocol::Context::kTimeLimitSeconds);
    if (!support::truthy(context_data)) return std::nullopt;

    std::vector<std::string> sections;
    const Json& goals = list_member(*context_data, protocol::Context::kGoals);
    if (!goals.empty()) {
        sections.emplace_back("### Session Goals");
        for (std::size_t i = 0; i < goals.size() && i < kMaxGoals; ++i) {
            const std::string& goal = text_of(goals[i], "goal");
            std::string line = std::to_string(i + 1) + ". ";
            line += support::cut_code_points(goal, kGoalLength);
            if (support::code_point_count(goal) > kGoalLength) line += "...";
            sections.push_back(std::move(line));
        }
    }
    const Json& recent = list_member(*context_data, protocol::Context::kRecentActivity);
    if (!recent.empty()) {
        sections.emplace_back("\n### Recent Activity");
        for (std::size_t i = 0; i < recent.size() && i < kMaxActivity; ++i) {
            sections.push_back("- " + support::plain_text(recent[i]));
        }
    }
    const Json& files = list_member(*context_data, protocol::Context::kFilesInvolved);
    if (!files.empty()) {
        std::string line = "\n### Files Worked On: ";
        for (std::size_t i = 0; i < files.size() && i < kMaxFiles; ++i) {
            if (i > 0) line += ", ";
            line += text_of(files[i], "file");
        }
        sections.push_back(std::move(line));
    }
    if (sections.empty()) return std::nullopt;

    return support::join(sections, "\n");
}

}  // namespace cli_hooks
