#include "host/install/hook_config.hpp"

#include <algorithm>
#include <array>

namespace host::install {

using support::Json;

namespace {

constexpr std::string_view kServersKey = "mcpServers";
// The members a hook entry of any agent names its command with.
constexpr std::array<std::string_view, 3> kCommandKeys{"command", "bash", "powershell"};

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// The first word of a POSIX shell command line with its quotes taken off; `rest` is what follows.
std::string first_word(std::string_view line, std::string_view& rest) {
    std::string word;
    std::size_t i = 0;
    while (i < line.size() && is_blank(line[i])) ++i;
    if (i < line.size() && line[i] == '&') {  // PowerShell's call operator
        ++i;
        while (i < line.size() && is_blank(line[i])) ++i;
    }
    for (; i < line.size() && !is_blank(line[i]); ++i) {
        const char c = line[i];
        if (c == '\'') {
            const std::size_t end = line.find('\'', i + 1);
            if (end == std::string_view::npos) break;
            word.append(line.substr(i + 1, end - i - 1));
            i = end;
        } else if (c == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\' && i + 1 < line.size()) ++i;
                word += line[i];
            }
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
        } else {
            word += c;
        }
    }
    rest = line.substr(std::min(i, line.size()));
    return word;
}

std::string_view base_name(std::string_view path) {
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string single_blanks(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (is_blank(c)) {
            if (!out.empty() && out.back() != ' ') out += ' ';
        } else {
            out += c;
        }
    }
    if (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

std::string_view matcher_of(const Json& group) {
    const Json* matcher = group.find("matcher");
    if (matcher == nullptr || !matcher->is_string()) return {};
    // Claude Code treats a missing matcher, "" and "*" alike: every tool.
    return matcher->as_string() == "*" ? std::string_view{}
                                       : std::string_view(matcher->as_string());
}

std::optional<std::string> invocation_of(const Json& entry, std::string_view key) {
    if (!entry.is_object()) return std::nullopt;
    const Json* command = entry.find(key);
    if (command == nullptr || !command->is_string()) return std::nullopt;
    return hooks_invocation(command->as_string());
}

// Whether `invocation` at `event` (with `matcher`) is one of the agent's hooks.
bool is_ours(const AgentSpec& agent, std::string_view event, std::string_view matcher,
             const std::optional<std::string>& invocation) {
    if (!invocation) return false;
    for (const HookEntry& hook : agent.hooks) {
        if (hook.event == event && hook.matcher == matcher && hook.invocation == *invocation) {
            return true;
        }
    }
    return false;
}

bool flat_entry_is_ours(const AgentSpec& agent, std::string_view event, const Json& entry) {
    for (std::string_view key : kCommandKeys) {
        if (is_ours(agent, event, {}, invocation_of(entry, key))) return true;
    }
    return false;
}

std::string_view write_key(HookShape shape) {
    return shape == HookShape::copilot ? "bash" : "command";
}

Json without_member(const Json& object, std::string_view key) {
    Json out = Json::object();
    for (const auto& [name, value] : object.members()) {
        if (name != key) out.set(name, value);
    }
    return out;
}

Json object_member(const Json& object, std::string_view key, std::string_view where) {
    const Json* value = object.find(key);
    if (value == nullptr) return Json::object();
    if (!value->is_object())
        throw ConfigError("has " + std::string(where) + " that is not an object");
    return *value;
}

Json new_entry(const AgentSpec& agent, const HookEntry& hook, const std::string& command) {
    switch (agent.shape) {
        case HookShape::claude: {
            Json group = Json::object();
            if (!hook.matcher.empty()) group.set("matcher", hook.matcher);
            Json inner = Json::object().set("type", "command").set("command", command);
            return group.set("hooks", Json::array({inner}));
        }
        case HookShape::copilot:
            return Json::object().set("type", "command").set("bash", command);
        case HookShape::cursor:
            return Json::object().set("command", command);
        case HookShape::windsurf: {
            Json entry = Json::object().set("command", command);
            if (hook.show_output) entry.set("show_output", true);
            return entry;
        }
    }
    return Json::object();
}

// Points an entry of ours that is already in `entry` at `command`; false when there is none.
bool refresh_entry(Json& entry, const AgentSpec& agent, const HookEntry& hook,
                   const std::string& command, HookCounts& counts) {
    if (!entry.is_object()) return false;
    if (agent.shape != HookShape::claude) {
        for (std::string_view key : kCommandKeys) {
            const auto invocation = invocation_of(entry, key);
            if (!invocation || *invocation != hook.invocation) continue;
            if (key != write_key(agent.shape) || entry.find(key)->as_string() != command) {
                entry.set(std::string(key), command);
                ++counts.updated;
            }
            return true;
        }
        return false;
    }
    if (matcher_of(entry) != hook.matcher) return false;
    const Json* inner = entry.find("hooks");
    if (inner == nullptr || !inner->is_array()) return false;
    Json hooks = *inner;
    for (Json& item : hooks.elements()) {
        const auto invocation = invocation_of(item, "command");
        if (!invocation || *invocation != hook.invocation) continue;
        if (item.find("command")->as_string() != command) {
            item.set("command", command);
            entry.set("hooks", hooks);
            ++counts.updated;
        }
        return true;
    }
    return false;
}

bool is_any_our_command(const Json& value) {
    if (value.is_array()) {
        for (const Json& item : value.elements()) {
            if (is_any_our_command(item)) return true;
        }
    } else if (value.is_object()) {
        for (const auto& [key, member] : value.members()) {
            const bool command_key =
                std::find(kCommandKeys.begin(), kCommandKeys.end(), key) != kCommandKeys.end();
            if (command_key && member.is_string() && hooks_invocation(member.as_string())) {
                return true;
            }
            if (is_any_our_command(member)) return true;
        }
    }
    return false;
}

}  // namespace

std::optional<std::string> hooks_invocation(std::string_view command) {
    std::string_view rest;
    const std::string program = first_word(command, rest);
    const std::string_view name = base_name(program);
    if (name != "orvane-tamblo" && name != "orvane-tamblo.exe") return std::nullopt;
    std::string words = single_blanks(rest);
    if (!words.starts_with("hooks ")) return std::nullopt;
    return words.substr(6);
}

Json add_hooks(const Json& doc, const AgentSpec& agent, std::string_view program_word,
               HookCounts& counts) {
    if (!doc.is_object()) throw ConfigError("holds a JSON value that is not an object");
    Json out = doc;
    if (out.empty() && (agent.shape == HookShape::copilot || agent.shape == HookShape::cursor)) {
        out.set("version", 1);
    }
    Json hooks = object_member(doc, "hooks", "\"hooks\"");
    for (const HookEntry& hook : agent.hooks) {
        const std::string command =
            std::string(program_word) + " hooks " + std::string(hook.invocation);
        Json list = Json::array();
        if (const Json* existing = hooks.find(hook.event)) {
            if (!existing->is_array()) {
                throw ConfigError("has \"" + std::string(hook.event) +
                                  "\" under \"hooks\" that is not a list");
            }
            list = *existing;
        }
        bool found = false;
        for (Json& entry : list.elements()) {
            if (refresh_entry(entry, agent, hook, command, counts)) {
                found = true;
                break;
            }
        }
        if (!found) {
            list.push_back(new_entry(agent, hook, command));
            ++counts.added;
        }
        hooks.set(std::string(hook.event), list);
    }
    return out.set("hooks", hooks);
}

Json remove_hooks(const Json& doc, const AgentSpec& agent, HookCounts& counts) {
    if (!doc.is_object()) return doc;
    const Json* hooks = doc.find("hooks");
    if (hooks == nullptr || !hooks->is_object()) return doc;
    const int before = counts.removed;
    Json kept_events = Json::object();
    for (const auto& [event, list] : hooks->members()) {
        if (!list.is_array()) {
            kept_events.set(event, list);
            continue;
        }
        Json kept = Json::array();
        bool touched = false;
        for (const Json& entry : list.elements()) {
            if (agent.shape != HookShape::claude) {
                if (flat_entry_is_ours(agent, event, entry)) {
                    ++counts.removed;
                    touched = true;
                } else {
                    kept.push_back(entry);
                }
                continue;
            }
            const Json* inner = entry.is_object() ? entry.find("hooks") : nullptr;
            if (inner == nullptr || !inner->is_array()) {
                kept.push_back(entry);
                continue;
            }
            Json kept_inner = Json::array();
            for (const Json& item : inner->elements()) {
                if (is_ours(agent, event, matcher_of(entry), invocation_of(item, "command"))) {
                    ++counts.removed;
                    touched = true;
                } else {
                    kept_inner.push_back(item);
                }
            }
            if (kept_inner.size() == inner->size()) {
                kept.push_back(entry);
            } else if (!kept_inner.empty()) {
                Json group = entry;
                kept.push_back(group.set("hooks", kept_inner));
            }
        }
        if (touched && kept.empty()) continue;
        kept_events.set(event, kept);
    }
    if (counts.removed == before) return doc;
    if (kept_events.empty()) return without_member(doc, "hooks");
    Json out = doc;
    return out.set("hooks", kept_events);
}

bool runs_our_hooks(const Json& doc) {
    return is_any_our_command(doc);
}

Json add_mcp_server(const Json& doc, std::string_view program, bool& changed) {
    if (!doc.is_object()) throw ConfigError("holds a JSON value that is not an object");
    Json servers = object_member(doc, kServersKey, "\"mcpServers\"");
    Json entry = Json::object();
    if (const Json* existing = servers.find(kServerName); existing && existing->is_object()) {
        entry = *existing;
    }
    const Json before = entry;
    entry.set("command", program).set("args", Json::array({"mcp"}));
    changed = !(entry == before) || servers.find(kServerName) == nullptr;
    servers.set(std::string(kServerName), entry);
    Json out = doc;
    return out.set(std::string(kServersKey), servers);
}

Json remove_mcp_server(const Json& doc, bool& changed) {
    changed = false;
    if (!has_mcp_server(doc)) return doc;
    changed = true;
    const Json servers = without_member(*doc.find(kServersKey), kServerName);
    if (servers.empty()) return without_member(doc, kServersKey);
    Json out = doc;
    return out.set(std::string(kServersKey), servers);
}

bool has_mcp_server(const Json& doc) {
    if (!doc.is_object()) return false;
    const Json* servers = doc.find(kServersKey);
    return servers != nullptr && servers->is_object() && servers->find(kServerName) != nullptr;
}

Json without_empty_parts(const Json& doc) {
    if (!doc.is_object()) return doc;
    Json out = doc;
    if (const Json* hooks = doc.find("hooks"); hooks && hooks->is_object()) {
        Json kept = Json::object();
        for (const auto& [event, list] : hooks->members()) {
            if (!(list.is_array() && list.empty())) kept.set(event, list);
        }
        out = kept.empty() ? without_member(out, "hooks") : out.set("hooks", kept);
    }
    if (const Json* servers = out.find(kServersKey);
        servers && servers->is_object() && servers->empty()) {
        out = without_member(out, kServersKey);
    }
    return out;
}

}  // namespace host::install
