#include "host/install/install.hpp"

#include <chrono>
#include <optional>
#include <vector>

#include "host/install/agents.hpp"
#include "host/install/config_file.hpp"
#include "host/install/first_index.hpp"
#include "host/install/hook_config.hpp"
#include "host/install/skill_file.hpp"
#include "platform/env.hpp"
#include "platform/file_info.hpp"
#include "platform/file_lock.hpp"
#include "platform/fs.hpp"
#include "platform/home.hpp"
#include "platform/io.hpp"
#include "platform/path.hpp"
#include "platform/process.hpp"
#include "platform/shell.hpp"
#include "platform/user_dirs.hpp"

namespace host::install {

using support::Json;

namespace {

constexpr const char* kPrefix = "orvane-tamblo install-hooks: ";

struct Places {
    std::string repo;
    std::optional<std::string> home;
    bool user_scope = false;
};

ConfigTarget repo_file(const Places& places, std::string_view relative) {
    return {platform::join_path(places.repo, relative), std::string(relative), places.repo};
}

ConfigTarget home_file(const Places& places, std::string_view relative) {
    if (!places.home) {
        throw ConfigError("no home directory is known (HOME is not set), so ~/" +
                          std::string(relative) + " cannot be found");
    }
    return {platform::join_path(*places.home, relative), "~/" + std::string(relative), ""};
}

ConfigTarget hooks_file(const Places& places, const AgentSpec& agent) {
    return places.user_scope ? home_file(places, agent.user_hooks)
                             : repo_file(places, agent.project_hooks);
}

ConfigTarget mcp_file(const Places& places, const AgentSpec& agent) {
    if (places.user_scope || agent.project_mcp.empty()) return home_file(places, agent.user_mcp);
    return repo_file(places, agent.project_mcp);
}

ConfigTarget skill_file(const Places& places, const AgentSpec& agent) {
    return places.user_scope ? home_file(places, agent.skill) : repo_file(places, agent.skill);
}

// The hook files of `agent` that hold orvane-tamblo's hooks, in either scope.
std::vector<std::string> files_running_our_hooks(const Places& places, const AgentSpec& agent,
                                                 bool with_local = false) {
    std::vector<ConfigTarget> candidates{repo_file(places, agent.project_hooks)};
    if (with_local) candidates.push_back(repo_file(places, ".claude/settings.local.json"));
    if (places.home) candidates.push_back(home_file(places, agent.user_hooks));
    std::vector<std::string> found;
    for (const ConfigTarget& target : candidates) {
        const auto doc = peek_config(target);
        if (doc && runs_our_hooks(*doc)) found.push_back(target.shown);
    }
    return found;
}

// Cursor and Copilot also run Claude Code's hooks, so our hooks in both places would run twice
// for one event there.
bool also_runs_claude_hooks(const AgentSpec& agent) {
    return agent.name == "cursor" || agent.name == "copilot";
}

std::string program_to_run() {
    const std::string self = platform::executable_path();
    const auto on_path = platform::find_program("orvane-tamblo");
    if (on_path && platform::same_file(*on_path, self)) return *on_path;
    if (!on_path) {
        platform::write_stderr(std::string(kPrefix) +
                               "warning: orvane-tamblo is not on PATH, and the hooks find "
                               "their host through PATH: put " +
                               self +
                               "'s directory on PATH, or install it (cmake "
                               "--install build)\n");
    } else {
        platform::write_stderr(std::string(kPrefix) + "warning: the orvane-tamblo on PATH is " +
                               *on_path + ", not this program (" + self +
                               "): the hooks will ask that one for their facts\n");
    }
    return self;
}

struct Step {
    LoadedConfig loaded;
    Change change;
    std::string what;  // what the change does, for the report
};

std::string describe_hooks(const HookCounts& counts, bool uninstall) {
    const int n = uninstall ? counts.removed : counts.added + counts.updated;
    std::string text = std::to_string(n) + (n == 1 ? " hook " : " hooks ");
    if (uninstall) return text + "removed";
    if (counts.updated == 0) return text + "added";
    if (counts.added == 0) return text + "pointed at this program";
    return std::to_string(counts.added) + " hooks added, " + std::to_string(counts.updated) +
           " pointed at this program";
}

std::string report_line(const Step& step) {
    const std::string& shown = step.loaded.target.shown;
    switch (step.change.action) {
        case Action::none:
            return shown + ": already as wanted, not changed";
        case Action::write:
            return shown + ": " + step.what +
                   (step.loaded.exists ? " (the previous file is kept as " + shown + ".bak)" : "");
        case Action::restore:
            return shown + ": " + step.what + "; the file is back as it was before";
        case Action::remove:
            return shown + ": " + step.what + "; removed the file, which held nothing else";
    }
    return shown;
}

std::string dry_run_text(const Step& step) {
    const std::string& shown = step.loaded.target.shown;
    switch (step.change.action) {
        case Action::none:
            return shown + ": already as wanted, nothing to change\n";
        case Action::remove:
            return "would remove " + shown + " (" + step.what + ")\n";
        default:
            return "would write " + shown + " (" + step.what + "):\n" + step.change.content;
    }
}

// Runs `change`, naming the file in a ConfigError it throws.
template <typename Change>
Json in_shape(const LoadedConfig& loaded, Change change) {
    try {
        return change();
    } catch (const ConfigError& e) {
        throw ConfigError(loaded.target.shown + " " + e.what() + "; it was left as it is");
    }
}

// Whether this agent's own hook file is wanted: Cursor and Copilot also run Claude Code's hooks, so
// where those run orvane-tamblo already, theirs are left out (with a note); Claude Code's are
// refused while theirs run it. Uninstalling always wants the file.
bool hooks_wanted(const InstallOptions& options, const AgentSpec& agent, const Places& places,
                  std::vector<std::string>& notes) {
    if (options.uninstall) return true;
    if (also_runs_claude_hooks(agent)) {
        const auto claude = files_running_our_hooks(places, *find_agent("claude"), true);
        if (!claude.empty()) {
            notes.push_back(
                std::string(agent.title) + " also runs the hooks in " + claude[0] +
                ", which already run orvane-tamblo, so " + hooks_file(places, agent).shown +
                " was left as it is: no hook runs twice. To give " + std::string(agent.title) +
                " hooks of its own instead, first run: orvane-tamblo install-hooks "
                "--agent claude --uninstall" +
                (places.user_scope ? " --scope user" : ""));
            return false;
        }
    }
    if (agent.name == "claude") {
        for (const AgentSpec& other : agents()) {
            if (!also_runs_claude_hooks(other)) continue;
            const auto theirs = files_running_our_hooks(places, other);
            if (theirs.empty()) continue;
            throw ConfigError(std::string(other.title) +
                              " runs the hooks in Claude Code's "
                              "settings too, and " +
                              theirs[0] +
                              " already runs orvane-tamblo: with both, each hook would run twice "
                              "there. Take those out first (orvane-tamblo install-hooks --agent " +
                              std::string(other.name) + " --uninstall" +
                              (theirs[0].starts_with("~/") ? " --scope user" : "") + ")");
        }
    }
    return true;
}

Step hooks_step(const InstallOptions& options, const AgentSpec& agent, const Places& places,
                const std::string& program) {
    LoadedConfig loaded = load_config(hooks_file(places, agent));
    HookCounts counts;
    const Json updated = in_shape(loaded, [&] {
        return options.uninstall
                   ? remove_hooks(loaded.doc, agent, counts)
                   : add_hooks(loaded.doc, agent, platform::shell_quote(program), counts);
    });
    Change change = plan_change(loaded, updated, options.uninstall, &runs_our_hooks);
    return {std::move(loaded), std::move(change), describe_hooks(counts, options.uninstall)};
}

// The MCP server's entry. Another agent may read the same file (Claude Code and Copilot share
// .mcp.json): uninstalling keeps the entry while that agent's installation runs our hooks.
Step mcp_step(const InstallOptions& options, const AgentSpec& agent, const Places& places,
              const std::string& program, std::vector<std::string>& notes) {
    LoadedConfig loaded = load_config(mcp_file(places, agent));
    bool changed = false;
    Json updated = loaded.doc;
    std::string what = "MCP server orvane-tamblo registered";
    if (!options.uninstall) {
        updated = in_shape(loaded, [&] { return add_mcp_server(loaded.doc, program, changed); });
    } else {
        std::string still_used_by;
        for (const AgentSpec& other : agents()) {
            if (other.name == agent.name) continue;
            if (mcp_file(places, other).path != loaded.target.path) continue;
            if (!files_running_our_hooks(places, other).empty()) still_used_by = other.title;
        }
        if (still_used_by.empty()) {
            updated = remove_mcp_server(loaded.doc, changed);
            what = "MCP server orvane-tamblo removed";
        } else if (has_mcp_server(loaded.doc)) {
            notes.push_back(loaded.target.shown + " keeps the MCP server orvane-tamblo: " +
                            still_used_by + "'s installation uses it too");
        }
    }
    Change change = plan_change(loaded, updated, options.uninstall, &has_mcp_server);
    return {std::move(loaded), std::move(change), what};
}

// The skill, for an agent that reads skills. Another agent may read the same copy (Copilot reads
// Claude Code's folder): uninstalling keeps it while that agent's hooks of the same scope run.
std::optional<SkillChange> skill_step(const InstallOptions& options, const AgentSpec& agent,
                                      const Places& places, std::vector<std::string>& notes) {
    if (agent.skill.empty()) return std::nullopt;
    const ConfigTarget target = skill_file(places, agent);
    if (options.uninstall) {
        for (const AgentSpec& other : agents()) {
            if (other.name == agent.name || other.skill.empty()) continue;
            if (skill_file(places, other).path != target.path) continue;
            const auto theirs = peek_config(hooks_file(places, other));
            if (!theirs || !runs_our_hooks(*theirs)) continue;
            check_directories(target);
            if (platform::path_kind(target.path) != platform::PathKind::missing) {
                notes.push_back(target.shown + " keeps the tamblo skill: " +
                                std::string(other.title) + "'s installation uses it too");
            }
            return std::nullopt;
        }
    }
    SkillChange change = plan_skill(target, options.uninstall);
    if (!change.left_alone.empty()) {
        notes.push_back(target.shown + " " + change.left_alone +
                        ", so it was left as it is: that skill is yours" +
                        (options.uninstall ? ""
                                           : "; to have orvane-tamblo's there, move it away "
                                             "and install again"));
        return std::nullopt;
    }
    return change;
}

struct Plan {
    std::vector<Step> steps;
    std::optional<SkillChange> skill;
};

// Builds every step before anything is written, so that one file we cannot use changes nothing.
Plan plan(const InstallOptions& options, const AgentSpec& agent, const Places& places,
          std::vector<std::string>& notes) {
    Plan plan;
    const bool with_hooks = hooks_wanted(options, agent, places, notes);
    const std::string program = options.uninstall ? std::string() : program_to_run();
    if (with_hooks) plan.steps.push_back(hooks_step(options, agent, places, program));
    plan.steps.push_back(mcp_step(options, agent, places, program, notes));
    plan.skill = skill_step(options, agent, places, notes);
    return plan;
}

std::string skill_report_line(const SkillChange& change) {
    const std::string& shown = change.target.shown;
    switch (change.action) {
        case Action::write:
            return shown + ": the tamblo skill " + (change.replacing ? "updated" : "installed");
        case Action::remove:
            return shown + ": the tamblo skill removed";
        default:
            return shown + ": already as wanted, not changed";
    }
}

std::string skill_dry_run_text(const SkillChange& change) {
    const std::string& shown = change.target.shown;
    switch (change.action) {
        case Action::write:
            return "would write " + shown + " (the tamblo skill)\n";
        case Action::remove:
            return "would remove " + shown + " (the tamblo skill)\n";
        default:
            return shown + ": already as wanted, nothing to change\n";
    }
}

// Installs take turns, whatever their repository and scope: the check that no hook runs twice
// reads what another agent's install writes, and a project install writes the user's files too
// (Windsurf's MCP servers). The lock file lives in the user's state directory, never in the
// repository, and the system lets go of it even when a run is killed.
void take_turns(std::optional<platform::FileLock>& lock) {
    constexpr auto kPatience = std::chrono::seconds(30);
    std::string path;
    try {
        const std::string dir =
            platform::join_path(platform::user_state_directory(), "orvane-tamblo");
        platform::create_directories(dir);
        path = platform::join_path(dir, "install.lock");
        lock.emplace(path);
        if (lock->lock(kPatience)) return;
    } catch (const std::exception& e) {
        throw ConfigError(std::string("cannot wait for other installs to finish: ") + e.what() +
                          "; nothing was written");
    }
    throw ConfigError("another install-hooks has been running for " +
                      std::to_string(kPatience.count()) + " s (it holds " + path +
                      "); nothing was written");
}

}  // namespace

int cmd_install_hooks(const InstallOptions& options) {
    const AgentSpec* agent = find_agent(options.agent);
    if (agent == nullptr) {
        platform::write_stderr(std::string(kPrefix) + "unknown agent " + options.agent + "\n");
        return 2;
    }
    try {
        Places places{platform::current_directory(), platform::home_directory(),
                      options.scope == "user"};
        std::optional<platform::FileLock> lock;
        if (!options.dry_run) take_turns(lock);
        std::vector<std::string> notes;
        const Plan planned = plan(options, *agent, places, notes);
        const bool index_wanted = !options.uninstall && !options.no_index && !places.user_scope;

        std::string out;
        if (options.dry_run) {
            for (const Step& step : planned.steps) out += dry_run_text(step);
            if (planned.skill) out += skill_dry_run_text(*planned.skill);
            if (index_wanted) out += first_index_dry_run_text();
        } else {
            out = std::string(agent->title) + (options.uninstall ? ", uninstalled" : "") + " (" +
                  options.scope + " scope):\n";
            for (const Step& step : planned.steps) {
                apply_change(step.loaded, step.change);
                out += "  " + report_line(step) + "\n";
            }
            if (planned.skill) {
                apply_skill(*planned.skill);
                out += "  " + skill_report_line(*planned.skill) + "\n";
            }
            if (!index_wanted) {
                out += index_left_alone_line(places.repo, places.user_scope, options.uninstall);
            }
        }
        for (const std::string& note : notes) {
            platform::write_stderr(std::string(kPrefix) + "note: " + note + "\n");
        }
        platform::write_stdout(out);
        if (index_wanted && !options.dry_run) {
            // Everything is installed: the index can take minutes, and other installs need not
            // wait for it.
            lock.reset();
            platform::write_stdout(build_first_index(places.repo));
        }
        return 0;
    } catch (const std::exception& e) {
        try {
            platform::write_stderr(std::string(kPrefix) + e.what() + "\n");
        } catch (...) {
        }
        return 1;
    }
}

}  // namespace host::install
