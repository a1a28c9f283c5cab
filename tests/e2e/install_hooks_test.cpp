// install-hooks: each agent's file written, merged with the user's own, idempotent, undone
// exactly, and never written when it cannot be read as JSON or lies behind a link.
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "harness.hpp"
#include "support/json.hpp"

namespace e2e {
namespace {

using support::Json;
using Hook = std::tuple<std::string, std::string, std::string>;  // event, matcher, command

// The program as the written files name it: in a hook command (with forward slashes on Windows,
// which the agents' shells take) and as the MCP server's command, in JSON.
const std::string kBin = [] {
    std::string path = native(binary());
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}();
const std::string kJsonBin = [] {
    std::string escaped;
    for (const char c : native(binary())) escaped += c == '\\' ? "\\\\" : std::string(1, c);
    return escaped;
}();

struct AgentCase {
    std::string agent;
    std::string hooks_file;  // relative to the repository
    std::string mcp_file;    // relative to the repository, or to the home directory after "~/"
    std::vector<Hook> hooks;
    std::string user_hooks;  // a file of the user's own, in the agent's shape
    std::string user_mcp;
};

std::vector<AgentCase> agent_cases() {
    return {
        {"claude",
         ".claude/settings.json",
         ".mcp.json",
         {{"SessionStart", "startup|resume", "session-start"},
          {"SessionStart", "compact", "restore-compact"},
          {"PreToolUse", "Read", "check-cache"},
          {"PreToolUse", "Grep|Glob", "suggest-tamblo"},
          {"PostToolUse", "Edit|Write|MultiEdit", "refresh-cache"},
          {"PostToolUse", "", "log-conversation --type tool"},
          {"UserPromptSubmit", "", "log-conversation --type user"},
          {"SessionEnd", "", "finalize"}},
         R"({"permissions": {"allow": ["Read", "WebFetch"]}, "hooks": {"PreToolUse": [{"matcher": )"
         R"("Bash", "hooks": [{"type": "command", "command": "./check.sh"}]}], "Stop": [{"hooks": )"
         R"([{"type": "command", "command": "say done"}]}]}, "model": "x"})",
         R"({"mcpServers": {"other": {"command": "other-server"}}})"},
        {"copilot",
         ".github/hooks/orvane-tamblo.json",
         ".mcp.json",
         {{"userPromptSubmitted", "", "log-conversation --type user --agent copilot"},
          {"sessionEnd", "", "finalize --agent copilot"}},
         R"({"version": 1, "hooks": {"sessionEnd": [{"type": "command", "bash": "./bye.sh"}]},)"
         R"( "note": "mine"})",
         "{\n    \"mcpServers\": {}\n}\n"},
        {"cursor",
         ".cursor/hooks.json",
         ".cursor/mcp.json",
         {{"beforeSubmitPrompt", "", "log-conversation --type user --agent cursor"},
          {"postToolUse", "", "log-conversation --type tool --agent cursor"},
          {"sessionEnd", "", "finalize --agent cursor"}},
         R"({"version": 1, "hooks": {"beforeSubmitPrompt": [{"command": "./audit.sh"}], )"
         R"("afterFileEdit": [{"command": "./fmt.sh"}]}})",
         R"({"mcpServers": {"db": {"command": "db-mcp", "args": ["--ro"]}}})"},
        {"windsurf",
         ".windsurf/hooks.json",
         "~/.codeium/windsurf/mcp_config.json",
         {{"pre_user_prompt", "", "inject-context --agent windsurf"}},
         R"({"hooks": {"pre_user_prompt": [{"command": "./guard.sh", "show_output": false}], )"
         R"("post_write_code": [{"command": "./fmt.sh"}]}})",
         R"({"mcpServers": {"é-server": {"command": "x"}}})"},
    };
}

// Every hook command in a hook file of any agent's shape, in file order.
std::vector<Hook> hooks_in(const Json& doc) {
    std::vector<Hook> out;
    for (const auto& [event, list] : doc.find("hooks")->members()) {
        for (const Json& entry : list.elements()) {
            if (const Json* inner = entry.find("hooks")) {
                const Json* matcher = entry.find("matcher");
                for (const Json& h : inner->elements()) {
                    out.emplace_back(event, matcher ? matcher->as_string() : "",
                                     h.find("command")->as_string());
                }
            } else {
                const Json* command = entry.find("command");
                out.emplace_back(event, "", (command ? command : entry.find("bash"))->as_string());
            }
        }
    }
    return out;
}

// The files and folders below `dir`, one a line, in order.
std::string tree(const fs::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) {
        names.push_back(fs::relative(entry.path(), dir).string() + "\n");
    }
    std::sort(names.begin(), names.end());
    std::string out;
    for (const std::string& name : names) out += name;
    return out;
}

// Where Claude Code and Copilot read the skill, in the repository or under the home directory.
const std::string kSkill = ".claude/skills/tamblo/SKILL.md";
const std::string kSkillText = read_file(SKILL_SOURCE);

class InstallHooks : public HookTest {
  protected:
    // Wine keeps %USERPROFILE% at its prefix's own profile, whatever the environment says, so the
    // tests that write there on Windows take turns and leave it as they found it.
    void SetUp() override {
        HookTest::SetUp();
        if (!windows_build()) return;
        const fs::path users = wine_drive_c() / "users";
        for (const auto& user : fs::directory_iterator(users)) {
            if (fs::exists(user.path() / "AppData") && user.path().filename() != "Public") {
                home_ = user.path();
            }
        }
        lock_ = ::open((users.parent_path() / "home.lock").c_str(), O_CREAT | O_RDWR, 0644);
        ::flock(lock_, LOCK_EX);
        clear_home();
    }
    void TearDown() override {
        if (lock_ >= 0) {
            clear_home();
            ::close(lock_);
        }
        HookTest::TearDown();
    }
    void clear_home() const {
        for (const char* name : {".claude", ".claude.json", ".codeium", ".copilot"})
            fs::remove_all(home() / name);
    }
    fs::path home() const { return windows_build() ? home_ : root_ / "home"; }

    // Without the first index, which only the tests of the index want.
    static std::vector<std::string> install_args(const std::string& agent,
                                                 std::vector<std::string> extra = {}) {
        std::vector<std::string> args = {"install-hooks", "--agent", agent, "--no-index"};
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    }
    // This build is the orvane-tamblo on PATH, as for a user who installed it.
    static RunOptions installed(RunOptions options = {}) {
        options.env["PATH"] = fs::path(binary()).parent_path().string() + ":/usr/bin:/bin";
        return options;
    }
    HookRun install(const std::string& agent, std::vector<std::string> extra = {}) {
        return run(install_args(agent, std::move(extra)), installed());
    }
    fs::path place(const std::string& file) const {
        return file.starts_with("~/") ? home() / file.substr(2) : repo_ / file;
    }
    std::string content(const std::string& file) const { return read_file(place(file)); }
    void put(const std::string& file, const std::string& text) const {
        fs::create_directories(place(file).parent_path());
        write_file(place(file), text);
    }

    fs::path home_;
    int lock_ = -1;
};

TEST_F(InstallHooks, EmptyRepositoryGetsEachAgentsEventsAndServer) {
    for (const AgentCase& c : agent_cases()) {
        SCOPED_TRACE(c.agent);
        const HookRun r = install(c.agent);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        std::vector<Hook> expected;
        for (const auto& [event, matcher, invocation] : c.hooks) {
            expected.emplace_back(event, matcher, kBin + " hooks " + invocation);
        }
        const Json doc = support::parse_json(content(c.hooks_file));
        EXPECT_EQ(hooks_in(doc), expected);
        if (c.agent == "copilot" || c.agent == "cursor") {
            EXPECT_EQ(*doc.find("version"), Json(1));
        }
        if (c.agent == "claude") {
            EXPECT_EQ(to_json_text(*doc.find("hooks")->find("SessionEnd")),
                      R"([{"hooks": [{"type": "command", "command": ")" + kBin +
                          R"( hooks finalize"}]}])");
        }
        if (c.agent == "windsurf") {
            EXPECT_EQ(
                *doc.find("hooks")->find("pre_user_prompt")->elements()[0].find("show_output"),
                Json(true));
        }
        EXPECT_EQ(content(c.mcp_file),
                  "{\n  \"mcpServers\": {\n    \"orvane-tamblo\": {\n"
                  "      \"command\": \"" +
                      kJsonBin +
                      "\",\n      \"args\": [\n"
                      "        \"mcp\"\n      ]\n    }\n  }\n}\n");
        EXPECT_FALSE(fs::exists(place(c.hooks_file + ".bak")));
        EXPECT_EQ(fs::exists(repo_ / kSkill), c.agent == "claude" || c.agent == "copilot");

        const std::string hooks_before = content(c.hooks_file);
        const HookRun again = install(c.agent);
        EXPECT_EQ(again.status, 0);
        EXPECT_EQ(content(c.hooks_file), hooks_before);
        EXPECT_FALSE(fs::exists(place(c.hooks_file + ".bak"))) << "a no-op writes no backup";
        EXPECT_NE(again.out.find(c.hooks_file + ": already as wanted, not changed"),
                  std::string::npos)
            << again.out;

        // The repository as it was: no backup of a file that held only our entries, no folder
        // made for one, so git status shows nothing.
        const HookRun undo = install(c.agent, {"--uninstall"});
        EXPECT_EQ(undo.status, 0) << undo.err;
        EXPECT_EQ(tree(repo_), "");
        EXPECT_FALSE(fs::exists(home() / ".codeium"));
    }
}

TEST_F(InstallHooks, UsersOwnEntriesStayInValueAndOrderAndComeBackExactly) {
    for (const AgentCase& c : agent_cases()) {
        SCOPED_TRACE(c.agent);
        put(c.hooks_file, c.user_hooks);
        put(c.mcp_file, c.user_mcp);
        const HookRun r = install(c.agent);
        ASSERT_EQ(r.status, 0) << r.err;

        const Json user = support::parse_json(c.user_hooks);
        const Json now = support::parse_json(content(c.hooks_file));
        ASSERT_GE(now.members().size(), user.members().size());
        for (std::size_t i = 0; i < user.members().size(); ++i) {
            const auto& [key, value] = user.members()[i];
            EXPECT_EQ(now.members()[i].first, key);
            if (key != "hooks") {
                EXPECT_EQ(now.members()[i].second, value) << key;
            }
        }
        std::size_t ours = 0;
        for (const auto& [event, list] : user.find("hooks")->members()) {
            const Json& merged = *now.find("hooks")->find(event);
            for (std::size_t i = 0; i < list.size(); ++i) EXPECT_EQ(merged[i], list[i]) << event;
            ours += merged.size() - list.size();
        }
        EXPECT_EQ(hooks_in(now).size(), hooks_in(user).size() + c.hooks.size());
        EXPECT_LE(ours, c.hooks.size());
        const Json servers = *support::parse_json(content(c.mcp_file)).find("mcpServers");
        const Json user_servers = *support::parse_json(c.user_mcp).find("mcpServers");
        EXPECT_EQ(servers.size(), user_servers.size() + 1);
        EXPECT_EQ(read_file(place(c.hooks_file + ".bak")), c.user_hooks);
        EXPECT_EQ(read_file(place(c.mcp_file + ".bak")), c.user_mcp);

        const std::string merged_text = content(c.hooks_file);
        EXPECT_EQ(install(c.agent).status, 0);
        EXPECT_EQ(content(c.hooks_file), merged_text);
        EXPECT_EQ(read_file(place(c.hooks_file + ".bak")), c.user_hooks);

        // Given back byte for byte, the files need their backups no more.
        const HookRun undo = install(c.agent, {"--uninstall"});
        EXPECT_EQ(undo.status, 0) << undo.err;
        EXPECT_EQ(content(c.hooks_file), c.user_hooks);
        EXPECT_EQ(content(c.mcp_file), c.user_mcp);
        EXPECT_FALSE(fs::exists(place(c.hooks_file + ".bak")));
        EXPECT_FALSE(fs::exists(place(c.mcp_file + ".bak")));
        fs::remove_all(repo_);
        fs::create_directories(repo_);
        clear_home();
    }
}

TEST_F(InstallHooks, InvalidJsonIsRefusedAndNothingIsWritten) {
    for (const AgentCase& c : agent_cases()) {
        SCOPED_TRACE(c.agent);
        for (const std::string bad : {"{\"hooks\": ", "", "[1, 2]", "{\"hooks\": []}"}) {
            put(c.hooks_file, bad);
            const HookRun r = install(c.agent);
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err.rfind("orvane-tamblo install-hooks: " + c.hooks_file, 0), 0u) << r.err;
            EXPECT_NE(r.err.find("; it was left as it is\n"), std::string::npos) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
            EXPECT_EQ(content(c.hooks_file), bad);
            EXPECT_FALSE(fs::exists(place(c.hooks_file + ".bak")));
            EXPECT_FALSE(fs::exists(place(c.mcp_file))) << "no file is written when one is refused";
        }
    }
}

TEST_F(InstallHooks, NoHookRunsTwiceInAgentsThatAlsoRunClaudeCodesHooks) {
    ASSERT_EQ(install("claude").status, 0);
    const HookRun cursor = install("cursor");
    EXPECT_EQ(cursor.status, 0);
    EXPECT_FALSE(fs::exists(repo_ / ".cursor/hooks.json"));
    EXPECT_TRUE(fs::exists(repo_ / ".cursor/mcp.json"));
    EXPECT_EQ(cursor.err,
              "orvane-tamblo install-hooks: note: Cursor also runs the hooks in "
              ".claude/settings.json, which already run orvane-tamblo, so .cursor/hooks.json was "
              "left as it is: no hook runs twice. To give Cursor hooks of its own instead, first "
              "run: orvane-tamblo install-hooks --agent claude --uninstall\n");
    ASSERT_EQ(install("copilot").status, 0);
    EXPECT_FALSE(fs::exists(repo_ / ".github"));

    // Copilot and Claude Code share .mcp.json: taking one out keeps the server for the other.
    const std::string mcp = content(".mcp.json");
    const HookRun copilot_out = install("copilot", {"--uninstall"});
    EXPECT_EQ(copilot_out.err,
              "orvane-tamblo install-hooks: note: .mcp.json keeps the MCP server "
              "orvane-tamblo: Claude Code's installation uses it too\n"
              "orvane-tamblo install-hooks: note: .claude/skills/tamblo/SKILL.md keeps the tamblo "
              "skill: Claude Code's installation uses it too\n");
    EXPECT_EQ(content(".mcp.json"), mcp);
    EXPECT_TRUE(fs::exists(repo_ / kSkill));
    ASSERT_EQ(install("claude", {"--uninstall"}).status, 0);
    EXPECT_FALSE(fs::exists(repo_ / ".mcp.json"));

    // The other way round, Claude Code's hooks would double the ones Copilot already runs.
    ASSERT_EQ(install("copilot").status, 0);
    const HookRun claude = install("claude");
    expect_error(claude,
                 "orvane-tamblo install-hooks: GitHub Copilot runs the hooks in Claude Code's "
                 "settings too, and .github/hooks/orvane-tamblo.json already runs orvane-tamblo: "
                 "with both, each hook would run twice there. Take those out first (orvane-tamblo "
                 "install-hooks --agent copilot --uninstall)\n",
                 1);
    EXPECT_FALSE(fs::exists(repo_ / ".claude/settings.json"));
}

// Configuration holds secrets (an MCP server's token): each file and its backup stay exactly as
// private as they were, in either scope, and a file marked read-only is refused.
TEST_F(InstallHooks, FilesKeepTheirPermissionsAndReadOnlyOnesAreRefused) {
    // Permission bits and owners are POSIX's; Windows keeps access rules in ACLs, which these
    // tests cannot look at under Wine. Its read-only attribute is checked below.
    const std::vector<std::string> scopes =
        windows_build() ? std::vector<std::string>{} : std::vector<std::string>{"project", "user"};
    for (const std::string& scope : scopes) {
        for (const fs::perms mode : {fs::perms(0600), fs::perms(0640)}) {
            SCOPED_TRACE(scope + " " + std::to_string(static_cast<int>(mode)));
            const std::string hooks =
                scope == "user" ? "~/.claude/settings.json" : ".claude/settings.json";
            const std::string mcp = scope == "user" ? "~/.claude.json" : ".mcp.json";
            put(hooks, R"({"model": "x"})");
            put(mcp, R"({"mcpServers": {"gh": {"env": {"GITHUB_TOKEN": "secret"}}}})");
            for (const std::string& file : {hooks, mcp}) {
                fs::permissions(place(file), mode);
                if (::geteuid() == 0) {
                    ASSERT_EQ(::chown(place(file).c_str(), 1234, 1234), 0);
                }
            }
            ASSERT_EQ(install("claude", {"--scope", scope}).status, 0);
            for (const std::string& file : {hooks, mcp, hooks + ".bak", mcp + ".bak"}) {
                struct stat st {};
                ASSERT_EQ(::stat(place(file).c_str(), &st), 0) << file;
                EXPECT_EQ(st.st_mode & 07777, static_cast<unsigned>(mode)) << file;
                if (::geteuid() == 0) {
                    EXPECT_EQ(st.st_uid, 1234u) << file;
                }
            }
            fs::remove_all(repo_);
            fs::create_directories(repo_);
            clear_home();
        }
    }

    const std::string user_hooks = agent_cases()[0].user_hooks;
    put(".claude/settings.json", user_hooks);
    fs::permissions(repo_ / ".claude/settings.json", fs::perms(0444));
    expect_error(install("claude"),
                 "orvane-tamblo install-hooks: .claude/settings.json is read-only; it was left as "
                 "it is\n",
                 1);
    EXPECT_EQ(content(".claude/settings.json"), user_hooks);
    EXPECT_EQ(tree(repo_), ".claude\n.claude/settings.json\n");
}

// A run killed while it writes leaves a partial copy at most, no more readable than the file it
// copies, and the next run takes it away.
TEST_F(InstallHooks, KilledRunLeavesNoReadableCopyAndTheNextRunClearsIt) {
    const std::string settings = R"({"env": {"API_KEY": ")" + std::string(4000, 'k') + "\"}}";
    put(".claude/settings.json", settings);
    fs::permissions(repo_ / ".claude/settings.json", fs::perms(0600));
    const HookRun killed = run(install_args("claude"), installed({.file_size_limit = 1000}));
    EXPECT_EQ(killed.signal, SIGXFSZ);
    ASSERT_NE(tree(repo_ / ".claude"), "settings.json\n") << "the run was not killed mid-write";
    for (const auto& entry : fs::directory_iterator(repo_ / ".claude")) {
        if (windows_build()) break;  // no permission bits there
        EXPECT_EQ(entry.status().permissions() & fs::perms(077), fs::perms::none) << entry.path();
    }
    EXPECT_EQ(content(".claude/settings.json"), settings);

    ASSERT_EQ(install("claude").status, 0);
    EXPECT_EQ(tree(repo_ / ".claude"),
              "settings.json\nsettings.json.bak\nskills\nskills/tamblo\nskills/tamblo/SKILL.md\n");
    EXPECT_EQ(content(".claude/settings.json.bak"), settings);
}

// Installs take turns: started together, Claude Code's and Cursor's never both put the hooks in,
// so that Cursor never runs each hook twice.
TEST_F(InstallHooks, SimultaneousInstallsNeverBothRunTheHooks) {
    std::vector<std::vector<std::string>> each;
    for (int i = 0; i < 10; ++i) {
        each.push_back(install_args("claude"));
        each.push_back(install_args("cursor"));
    }
    for (const HookRun& r : run_together(each, installed())) {
        EXPECT_TRUE(r.status == 0 || r.err.find("Take those out first") != std::string::npos)
            << r.status << " " << r.err;
    }
    EXPECT_NE(fs::exists(repo_ / ".claude/settings.json"), fs::exists(repo_ / ".cursor/hooks.json"))
        << tree(repo_);
}

TEST_F(InstallHooks, LinksInTheRepositoryAreNeverWrittenThrough) {
    const fs::path outside = root_ / "outside";
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, repo_ / ".claude");
    HookRun r = install("claude");
    expect_error(r,
                 "orvane-tamblo install-hooks: .claude is a symbolic link, which orvane-tamblo "
                 "does not follow in a repository, so .claude/settings.json was left as it is\n",
                 1);
    EXPECT_TRUE(fs::is_empty(outside));

    fs::remove(repo_ / ".claude");
    fs::create_directories(repo_ / ".cursor");
    write_file(outside / "hooks.json", "{}");
    fs::create_symlink(outside / "hooks.json", repo_ / ".cursor/hooks.json");
    r = install("cursor");
    expect_error(r,
                 "orvane-tamblo install-hooks: .cursor/hooks.json is a symbolic link, which "
                 "orvane-tamblo does not write through; it was left as it is\n",
                 1);
    EXPECT_EQ(read_file(outside / "hooks.json"), "{}");
}

TEST_F(InstallHooks, DryRunPrintsAndWritesNothing) {
    put(".cursor/hooks.json", R"({"version": 1})");
    const HookRun r = install("cursor", {"--dry-run"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "would write .cursor/hooks.json (3 hooks added):\n{\n  \"version\": 1,\n"
              "  \"hooks\": {\n    \"beforeSubmitPrompt\": [\n      {\n        \"command\": \"" +
                  kBin +
                  " hooks log-conversation --type user --agent cursor\"\n      }\n    ],\n"
                  "    \"postToolUse\": [\n      {\n        \"command\": \"" +
                  kBin +
                  " hooks log-conversation --type tool --agent cursor\"\n      }\n    ],\n"
                  "    \"sessionEnd\": [\n      {\n        \"command\": \"" +
                  kBin +
                  " hooks finalize --agent cursor\"\n      }\n    ]\n  }\n}\n"
                  "would write .cursor/mcp.json (MCP server orvane-tamblo registered):\n{\n"
                  "  \"mcpServers\": {\n    \"orvane-tamblo\": {\n      \"command\": \"" +
                  kJsonBin + "\",\n      \"args\": [\n        \"mcp\"\n      ]\n    }\n  }\n}\n");
    EXPECT_EQ(read_file(repo_ / ".cursor/hooks.json"), R"({"version": 1})");
    EXPECT_FALSE(fs::exists(repo_ / ".cursor/mcp.json"));
}

TEST_F(InstallHooks, UserScopeWritesUnderHomeAndWarnsWhenPathFindsAnotherProgram) {
    // The harness's PATH: the fake host comes first.
    const HookRun r = run({"install-hooks", "--agent", "claude", "--scope", "user"});
    EXPECT_EQ(r.status, 0);
    const std::string host_name = windows_build() ? "orvane-tamblo.exe" : "orvane-tamblo";
    EXPECT_EQ(r.err, "orvane-tamblo install-hooks: warning: the orvane-tamblo on PATH is " +
                         native(fs::path(fake_host_dir()) / host_name) + ", not this program (" +
                         native(binary()) + "): the hooks will ask that one for their facts\n");
    EXPECT_TRUE(fs::exists(home() / ".claude/settings.json"));
    EXPECT_TRUE(fs::exists(home() / ".claude.json"));
    EXPECT_FALSE(fs::exists(repo_ / ".claude"));

    const HookRun bad = run({"install-hooks", "--agent", "vim"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("--agent"), std::string::npos) << bad.err;
    EXPECT_NE(bad.err.find("vim"), std::string::npos) << bad.err;
}

// Copilot reads Claude Code's skills folder, in both scopes: one copy serves both agents, and goes
// with the last of them.
TEST_F(InstallHooks, SkillIsSharedByClaudeCodeAndCopilotInEitherScope) {
    for (const std::string scope : {"project", "user"}) {
        SCOPED_TRACE(scope);
        const std::string skill = (scope == "user" ? "~/" : "") + kSkill;
        const std::vector<std::string> in = {"--scope", scope};
        const std::vector<std::string> out = {"--scope", scope, "--uninstall"};
        const HookRun copilot = install("copilot", in);
        ASSERT_EQ(copilot.status, 0) << copilot.err;
        EXPECT_NE(copilot.out.find("  " + skill + ": the tamblo skill installed\n"),
                  std::string::npos)
            << copilot.out;
        EXPECT_EQ(content(skill), kSkillText);
        EXPECT_EQ(install("copilot", out).status, 0);
        EXPECT_FALSE(fs::exists(place(skill)));

        ASSERT_EQ(install("claude", in).status, 0);
        ASSERT_EQ(install("copilot", in).status, 0);
        EXPECT_NE(install("copilot", out)
                      .err.find("note: " + skill +
                                " keeps the tamblo skill: Claude Code's "
                                "installation uses it too\n"),
                  std::string::npos);
        EXPECT_EQ(content(skill), kSkillText);
        const HookRun claude = install("claude", out);
        EXPECT_NE(claude.out.find("  " + skill + ": the tamblo skill removed\n"), std::string::npos)
            << claude.out;
        EXPECT_EQ(tree(repo_), "");
        EXPECT_FALSE(fs::exists(home() / ".claude"));
    }
}

// A skill we did not write (it lacks our line) is the user's: never replaced nor removed. One of
// ours from an earlier release is brought up to date.
TEST_F(InstallHooks, UsersOwnSkillIsLeftAloneAndOursIsUpdated) {
    const std::string mine = "---\nname: tamblo\ndescription: my own\n---\nMine.\n";
    put(kSkill, mine);
    for (const std::vector<std::string>& extra : {std::vector<std::string>{}, {"--uninstall"}}) {
        const HookRun r = install("claude", extra);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out.find("SKILL.md"), std::string::npos) << r.out;
        EXPECT_EQ(r.err,
                  "orvane-tamblo install-hooks: note: .claude/skills/tamblo/SKILL.md was not "
                  "written by orvane-tamblo, so it was left as it is: that skill is yours" +
                      std::string(extra.empty() ? "; to have orvane-tamblo's there, move it "
                                                  "away and install again"
                                                : "") +
                      "\n");
        EXPECT_EQ(content(kSkill), mine);
    }
    if (!windows_build()) {
        fs::remove(repo_ / kSkill);
        fs::create_symlink(root_ / "elsewhere.md", repo_ / kSkill);
        EXPECT_NE(
            install("claude").err.find("SKILL.md is a symbolic link, so it was left as it is"),
            std::string::npos);
        EXPECT_FALSE(fs::exists(root_ / "elsewhere.md"));
    }

    fs::remove(repo_ / kSkill);
    std::string earlier = kSkillText;
    earlier.replace(earlier.find("# Working"), 9, "# Earlier");
    put(kSkill, earlier);
    const HookRun r = install("claude");
    EXPECT_NE(r.out.find("  .claude/skills/tamblo/SKILL.md: the tamblo skill updated\n"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(content(kSkill), kSkillText);
}

std::string git(const fs::path& repo, const std::string& args) {
    const std::string command =
        "git -C '" + repo.string() + "' -c user.name=t -c user.email=t@t " + args + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string out;
    char buffer[4096];
    while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) out.append(buffer, n);
    ::pclose(pipe);
    return out;
}

// Setting up a repository builds its first index; taking the installation out leaves the index,
// and git status as it was before.
TEST_F(InstallHooks, FirstIndexIsBuiltAtInstallAndStaysAfterUninstall) {
    git(repo_, "init -q");
    put("src/a.py", "def hello():\n    return world()\n\ndef world():\n    pass\n");
    git(repo_, "add -A");
    git(repo_, "commit -qm init");
    ASSERT_EQ(git(repo_, "status --porcelain"), "");

    const std::vector<std::string> claude = {"install-hooks", "--agent", "claude"};
    std::vector<std::string> dry = claude;
    dry.push_back("--dry-run");
    EXPECT_TRUE(run(dry, installed())
                    .out.ends_with("would write .claude/skills/tamblo/SKILL.md (the tamblo skill)\n"
                                   "would build the code index memory/codebase-index/index.db (or "
                                   "bring it up to date)\n"));
    expect_clean(run(claude, installed()),
                 "Claude Code (project scope):\n"
                 "  .claude/settings.json: 8 hooks added\n"
                 "  .mcp.json: MCP server orvane-tamblo registered\n"
                 "  .claude/skills/tamblo/SKILL.md: the tamblo skill installed\n"
                 "  memory/codebase-index/index.db: code index built, 1 source file, 2 "
                 "definitions, 1 reference\n");
    std::vector<std::string> undo = claude;
    undo.push_back("--uninstall");
    expect_clean(run(undo, installed()),
                 "Claude Code, uninstalled (project scope):\n"
                 "  .claude/settings.json: 8 hooks removed; removed the file, which held nothing "
                 "else\n"
                 "  .mcp.json: MCP server orvane-tamblo removed; removed the file, which held "
                 "nothing else\n"
                 "  .claude/skills/tamblo/SKILL.md: the tamblo skill removed\n"
                 "  memory/codebase-index/index.db: left as it is, with the rest of the "
                 "repository's data in memory/codebase-index (delete it yourself to drop it)\n");
    EXPECT_EQ(git(repo_, "status --porcelain"), "");
    EXPECT_FALSE(fs::exists(repo_ / ".claude"));
    EXPECT_TRUE(fs::exists(repo_ / "memory/codebase-index/index.db"));

    // An index that is not ours stays as it is, and so does the installation.
    write_file(repo_ / "memory/codebase-index/index.db", "my notes\n");
    const HookRun foreign = run(claude, installed());
    EXPECT_EQ(foreign.status, 0);
    EXPECT_EQ(foreign.err,
              "orvane-tamblo install-hooks: warning: the code index was not built: "
              "memory/codebase-index/index.db: file is not a database; the installation stands, "
              "and `orvane-tamblo index` builds the index later\n");
    EXPECT_TRUE(foreign.out.ends_with("skill installed\n")) << foreign.out;
    EXPECT_EQ(read_file(repo_ / "memory/codebase-index/index.db"), "my notes\n");

    fs::remove_all(repo_ / "memory");
    EXPECT_TRUE(install("claude").out.ends_with(
        "  memory/codebase-index/index.db: not built (--no-index); `orvane-tamblo index` builds "
        "it\n"));
    EXPECT_FALSE(fs::exists(repo_ / "memory"));
}

}  // namespace
}  // namespace e2e
