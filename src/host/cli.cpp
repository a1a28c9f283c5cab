#include "host/cli.hpp"

#include <CLI/CLI.hpp>
#include <optional>
#include <string_view>

#include "cli_hooks/command/dispatch.hpp"
#include "cli_hooks/command/registration.hpp"
#include "host/install/install.hpp"
#include "host/mcp/server.hpp"
#include "platform/io.hpp"

namespace host {

namespace {

// "orvane-tamblo hooks log-conversation" for the deepest command the parser entered.
std::string command_path(CLI::App& app) {
    std::string path = app.get_name();
    CLI::App* current = &app;
    for (;;) {
        const auto chosen = current->get_subcommands();
        if (chosen.empty()) return path;
        current = chosen.front();
        path += ' ' + current->get_name();
    }
}

int report_usage_error(CLI::App& app, const std::string& message) {
    const std::string path = command_path(app);
    try {
        platform::write_stderr(path + ": error: " + message + "\nRun '" + path +
                               " --help' for usage.\n");
    } catch (...) {
    }
    return 2;
}

int report_parse_error(CLI::App& app, const CLI::ParseError& e) {
    if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        return app.exit(e);  // --help and --version print on standard output
    }
    return report_usage_error(app, e.what());
}

// The commands a person runs. A hook run, which an agent waits for, never builds them: each
// command costs its parser objects at every start.
struct HostCommands {
    CLI::App* mcp = nullptr;
    CLI::App* install = nullptr;
    install::InstallOptions install_options;

    explicit HostCommands(CLI::App& app) {
        mcp = app.add_subcommand(
            "mcp", "Serve the understand and remember tools to an agent (MCP on standard I/O)");
        mcp->footer(
            "A Model Context Protocol server on standard input and output, for an agent to "
            "start.\nIt serves the store of the directory it runs in. install-hooks registers it.");

        install = app.add_subcommand(
            "install-hooks", "Connect the hooks and the MCP server to an agent's configuration");
        install
            ->add_option("--agent", install_options.agent,
                         "Agent to configure: claude, copilot, cursor, windsurf")
            ->required();
        install->add_option("--scope", install_options.scope,
                            "project (this repository, the default) or user (your home directory)");
        install->add_flag("--dry-run", install_options.dry_run,
                          "Print what would be written and change nothing");
        install->add_flag("--uninstall", install_options.uninstall,
                          "Take out exactly what install-hooks put in");
        install->footer(
            "Merges into the files that are there: your own entries stay as they are, in their\n"
            "order; a file that is not valid JSON is left alone. The previous file is kept as\n"
            "<file>.bak. Commands name this program by its absolute path.");
    }

    // The chosen command's exit status, or nullopt when none of these was chosen.
    std::optional<int> run(CLI::App& app) {
        if (mcp->parsed()) return mcp::run_mcp_server();
        if (!install->parsed()) return std::nullopt;
        const std::string& scope = install_options.scope;
        if (scope != "project" && scope != "user") {
            return report_usage_error(app, "--scope: " + scope + " is not one of project, user");
        }
        const std::string& agent = install_options.agent;
        if (agent != "claude" && agent != "copilot" && agent != "cursor" && agent != "windsurf") {
            return report_usage_error(
                app, "--agent: " + agent + " is not one of claude, copilot, cursor, windsurf");
        }
        return install::cmd_install_hooks(install_options);
    }
};

}  // namespace

int run(int argc, char** argv) {
    platform::prepare_standard_streams();

    CLI::App app("Index a repository for AI coding agents and serve their hooks.", "orvane-tamblo");
    app.set_version_flag("--version", "orvane-tamblo " ORVANE_VERSION);
    app.require_subcommand(1);
    const auto hooks = cli_hooks::add_hooks_subparser(app);
    std::optional<HostCommands> host_commands;
    if (argc < 2 || std::string_view(argv[1]) != "hooks") host_commands.emplace(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return report_parse_error(app, e);
    }
    if (hooks->chosen()) return cli_hooks::cmd_hooks(hooks->args());
    if (host_commands) {
        if (auto status = host_commands->run(app)) return *status;
    }
    return 0;
}

}  // namespace host
