#include "host/cli.hpp"

#include <CLI/CLI.hpp>

#include "cli_hooks/hooks.hpp"
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

int report_parse_error(CLI::App& app, const CLI::ParseError& e) {
    if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        return app.exit(e);  // --help and --version print on standard output
    }
    const std::string path = command_path(app);
    try {
        platform::write_stderr(path + ": error: " + e.what() + "\nRun '" + path +
                               " --help' for usage.\n");
    } catch (...) {
    }
    return 2;
}

}  // namespace

int run(int argc, char** argv) {
    platform::prepare_standard_streams();

    CLI::App app("Index a repository for AI coding agents and serve their hooks.", "orvane-tamblo");
    app.set_version_flag("--version", "orvane-tamblo " ORVANE_VERSION);
    app.require_subcommand(1);
    const auto hooks = cli_hooks::add_hooks_subparser(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return report_parse_error(app, e);
    }
    if (hooks->chosen()) return cli_hooks::cmd_hooks(hooks->args());
    return 0;
}

}  // namespace host
