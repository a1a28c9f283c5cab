#include "app/cli.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "cli_hooks/hooks.hpp"
#include "host/commands/index_options.hpp"
#include "host/commands/options.hpp"
#include "host/commands/text_check.hpp"
#include "host/install/install.hpp"
#include "host/mcp/server.hpp"
#include "platform/io.hpp"
#include "protocol/host_commands.hpp"

namespace app {

namespace {

namespace commands = host::commands;

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

// One line on standard error, then `status`.
int report_parse_error(CLI::App& app, const CLI::ParseError& e, int status) {
    if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        return app.exit(e);  // --help and --version print on standard output
    }
    const std::string path = command_path(app);
    std::string message = e.what();
    std::replace(message.begin(), message.end(), '\n', ' ');
    try {
        platform::write_stderr(path + ": error: " + message + " (see '" + path + " --help')\n");
    } catch (...) {
    }
    return status;
}

// CLI11 reads "--name=" as "--name" alone and then takes the next argument for its value, whatever
// that is: "--target= --purpose=p" would store the target "--purpose=p". Given as "--name" and an
// empty argument instead, the value is the empty text that was written, which the option's own
// check takes or refuses. Only options are rewritten, never the value of an option given apart
// (a prompt may well read "--x="). Empty when no argument asks for it, as in every hook run.
std::vector<std::string> empty_values_kept(CLI::App& app, int argc, char** argv) {
    auto empty_value = [](std::string_view arg) {
        return arg.size() > 3 && arg.back() == '=' && arg.starts_with("--") &&
               arg.find('=') == arg.size() - 1;
    };
    std::vector<std::string> out;
    if (std::none_of(argv + 1, argv + argc, empty_value)) return out;
    CLI::App* command = &app;
    for (int i = 0; i < argc; ++i) {
        const std::string_view arg = argv[i];
        out.emplace_back(arg);
        if (i == 0) continue;
        if (arg == "--") {
            out.insert(out.end(), argv + i + 1, argv + argc);
            break;
        }
        if (!arg.starts_with("--")) {
            const auto sub = command->get_subcommands(
                [&](const CLI::App* candidate) { return candidate->get_name() == arg; });
            if (!sub.empty()) command = sub.front();
            continue;
        }
        const CLI::Option* option =
            command->get_option_no_throw(std::string(arg.substr(0, arg.find('='))));
        if (option == nullptr || option->get_items_expected_max() == 0) continue;
        if (empty_value(arg)) {
            out.back().pop_back();
            out.emplace_back();
        } else if (arg.find('=') == std::string_view::npos) {
            const int values =
                std::min(option->get_type_size_min(), option->get_items_expected_min());
            for (int k = 0; k < values && i + 1 < argc; ++k) out.emplace_back(argv[++i]);
        }
    }
    return out;
}

// An empty target, scope or session names nothing.
CLI::Validator not_empty() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            return text.empty() ? "an empty value is not allowed" : "";
        },
        "");
}

// A whole number from 0 to 999999999, checked before CLI11 converts it (which would clamp
// a larger one silently). Built when a host command registers, never at start-up.
CLI::Validator count_validator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            if (text.empty() || text.size() > 9 ||
                text.find_first_not_of("0123456789") != std::string::npos) {
                return "'" + text + "' is not a whole number from 0 to 999999999";
            }
            return "";
        },
        "");
}

// Text the store keeps must be text it can show again (see text_check.hpp).
CLI::Validator text_validator() {
    return CLI::Validator([](std::string& text) { return commands::text_error(text); }, "");
}

template <typename T>
CLI::Option* optional_option(CLI::App* app, const char* name, std::optional<T>& target,
                             const char* help) {
    CLI::Option* option = app->add_option_function<T>(
        name, [&target](const T& value) { target = value; }, help);
    if constexpr (std::is_same_v<T, std::string>) option->check(text_validator());
    return option;
}

// The host commands: the store's answers to the hooks (query understand, conversation ...) and
// serve's diagnosis.
class HostCommands {
  public:
    // Registers the command named `only`, or all of them when it is empty; of `conversation`, only
    // the subcommand named `sub` when there is one by that name.
    HostCommands(CLI::App& app, std::string_view only, std::string_view sub) {
        if (only.empty() || only == "query") add_query(app);
        if (only.empty() || only == "conversation") add_conversation(app, sub);
        if (only.empty() || only == "serve") {
            serve_ = app.add_subcommand(
                "serve",
                "Diagnose the store and the code index: where they are, whether they answer, "
                "what they hold");
        }
        if (only.empty() || only == "mcp") {
            mcp_ = app.add_subcommand(
                "mcp", "Serve the understand and remember tools to an agent (MCP on standard I/O)");
            mcp_->footer(
                "A Model Context Protocol server on standard input and output, for an agent to "
                "start.\nIt serves the store of the directory it runs in. install-hooks registers "
                "it.");
        }
        if (only.empty() || only == "install-hooks") add_install(app);
        if (only.empty() || only == "index") add_index(app);
    }

    int run() const {
        if (parsed(understand_)) return commands::cmd_query_understand(understand_options_);
        if (parsed(log_turn_)) return commands::cmd_log_turn(log_turn_options_);
        if (parsed(finalize_)) return commands::cmd_finalize(finalize_options_);
        if (parsed(list_)) return commands::cmd_list(list_options_);
        if (parsed(context_)) {
            commands::ContextOptions options = context_options_;
            for (const auto& extra : context_->remaining()) options.ids.push_back(extra);
            return commands::cmd_context(options);
        }
        if (parsed(serve_)) return commands::cmd_serve();
        if (parsed(mcp_)) return host::mcp::run_mcp_server();
        if (parsed(install_)) return host::install::cmd_install_hooks(install_options_);
        if (parsed(index_)) return commands::cmd_index(index_options_);
        if (parsed(search_)) return commands::cmd_query_search(search_options_);
        if (parsed(symbol_)) return commands::cmd_query_symbol(symbol_options_);
        return 0;
    }

  private:
    static bool parsed(const CLI::App* command) { return command != nullptr && command->parsed(); }

    void add_query(CLI::App& app) {
        CLI::App* query =
            app.add_subcommand(protocol::name::query, "Ask the repository's AI cache");
        query->require_subcommand(1);
        understand_ =
            query->add_subcommand(protocol::name::understand,
                                  "Store, recall or summarise the cached understanding of files");
        auto& o = understand_options_;
        understand_->add_option(protocol::option::action, o.action, "store, recall or stats")
            ->required()
            ->check(CLI::IsMember({"store", protocol::Recall::kAction, protocol::Stats::kAction}));
        optional_option(understand_, protocol::option::target, o.target,
                        "The file (or other target)")
            ->check(not_empty());
        optional_option(understand_, "--scope", o.scope, "The target's scope (default: file)")
            ->check(not_empty());
        optional_option(understand_, "--importance", o.importance,
                        "high, medium or low (default: medium)");
        understand_->get_option("--importance")->check(CLI::IsMember({"high", "medium", "low"}));
        optional_option(understand_, "--purpose", o.purpose, "What the target is for");
        understand_->add_option("--key-point", o.key_points, "A key point (repeatable)")
            ->allow_extra_args(false)
            ->check(text_validator());
        understand_->add_option("--gotcha", o.gotchas, "A gotcha (repeatable)")
            ->allow_extra_args(false)
            ->check(text_validator());
        understand_->add_flag("--auto-generated", o.auto_generated,
                              "Mark the entry as the indexer's, not an agent's analysis");
        optional_option(understand_, protocol::option::limit, o.limit,
                        "stats: list at most this many entries (default: 50)");
        understand_->get_option(protocol::option::limit)
            ->check(count_validator())
            ->type_name("COUNT");
        understand_->add_flag(protocol::option::include_fresh, o.include_fresh,
                              "stats: list fresh entries too, after the stale ones");
        add_search(query);
        add_symbol(query);
    }

    void add_search(CLI::App* query) {
        search_ = query->add_subcommand("search", "Find definitions in the code index by name");
        auto& s = search_options_;
        search_->add_option("--action", s.action, "symbols")
            ->required()
            ->check(CLI::IsMember({"symbols"}));
        optional_option(search_, "--query", s.query,
                        "A name, a prefix, part of one, or its words (getUser finds get_user)");
        optional_option(search_, "--kind", s.kind,
                        "Only definitions of this kind (function, class, ...)");
        optional_option(search_, "--path", s.path, "Only files whose path starts with this");
        optional_option(search_, "--limit", s.limit, "At most this many (default: 50)");
        search_->get_option("--limit")->check(count_validator())->type_name("COUNT");
        search_->footer(
            "Answers one JSON object: {\"results\": [...], \"truncated\": ...}. "
            "Needs the index (orvane-tamblo index).");
    }

    void add_symbol(CLI::App* query) {
        symbol_ = query->add_subcommand(
            "symbol", "Where a name is defined, referenced or called, from the code index");
        auto& s = symbol_options_;
        symbol_->add_option("--action", s.action, "definition, references or callers")
            ->required()
            ->check(CLI::IsMember({"definition", "references", "callers"}));
        optional_option(symbol_, "--name", s.name,
                        "The name (Class.method narrows a definition by its scope)");
        optional_option(symbol_, "--path", s.path,
                        "A file to answer for: its own definitions and those it imports first");
        optional_option(symbol_, "--limit", s.limit, "At most this many (default: 50)");
        symbol_->get_option("--limit")->check(count_validator())->type_name("COUNT");
        symbol_->footer(
            "Answers one JSON object: {\"results\": [...], \"truncated\": ...}. "
            "Needs the index (orvane-tamblo index).");
    }

    void add_index(CLI::App& app) {
        index_ = app.add_subcommand("index", "Build or refresh the code index of this repository");
        index_->add_flag("--rebuild", index_options_.rebuild,
                         "Build it anew instead of refreshing what changed");
        index_->add_flag("--json", index_options_.json,
                         "One JSON object instead of a line of text");
        index_->footer(
            "Indexes the files git would track (honouring every .gitignore, .git/info/exclude and\n"
            "your global excludes) into memory/codebase-index/index.db: definitions and "
            "references\n"
            "for the query search and query symbol commands. A refresh parses only what changed.");
    }

    void add_conversation(CLI::App& app, std::string_view sub) {
        CLI::App* conversation = app.add_subcommand(protocol::name::conversation,
                                                    "Record and recall agent conversations");
        conversation->require_subcommand(1);
        // The hooks' log-turn runs at every prompt and tool use: each subcommand's options cost
        // about as much to register as the turn costs to store.
        const bool all =
            sub != "log-turn" && sub != "finalize" && sub != "list" && sub != "context";
        if (all || sub == "log-turn") add_log_turn(conversation);
        if (all || sub == "finalize") add_finalize(conversation);
        if (all || sub == "list") add_list(conversation);
        if (all || sub == "context") add_context(conversation);
    }

    void add_log_turn(CLI::App* conversation) {
        log_turn_ =
            conversation->add_subcommand(protocol::name::log_turn, "Append a turn to a session");
        auto& t = log_turn_options_;
        optional_option(log_turn_, protocol::option::session_id, t.session_id,
                        "The session (default: the most recent active one of the last day)")
            ->check(not_empty());
        log_turn_->add_option(protocol::option::type, t.type, "user or tool")
            ->required()
            ->check(CLI::IsMember({protocol::LogTurn::kUser, protocol::LogTurn::kTool}));
        optional_option(log_turn_, protocol::option::prompt, t.prompt, "user: the prompt");
        optional_option(log_turn_, protocol::option::tool_name, t.tool_name,
                        "tool: the tool's name");
        optional_option(log_turn_, protocol::option::tool_input, t.tool_input,
                        "tool: its input, JSON text");
        optional_option(log_turn_, protocol::option::tool_result, t.tool_result,
                        "tool: its result, JSON text");
    }

    void add_finalize(CLI::App* conversation) {
        finalize_ = conversation->add_subcommand(protocol::name::finalize, "End a session");
        auto& f = finalize_options_;
        optional_option(finalize_, protocol::option::session_id, f.session_id,
                        "The session (default: the most recent active one)")
            ->check(not_empty());
        finalize_->add_option(protocol::option::status, f.status, "completed or compacted")
            ->required()
            ->check(
                CLI::IsMember({protocol::Finalize::kCompleted, protocol::Finalize::kCompacted}));
    }

    void add_list(CLI::App* conversation) {
        list_ = conversation->add_subcommand(protocol::name::list,
                                             "List recent sessions, most recent first");
        auto& l = list_options_;
        list_
            ->add_option(protocol::option::days, l.days,
                         "Sessions active within this many days (default: 7)")
            ->check(count_validator())
            ->type_name("COUNT");
        list_
            ->add_option(protocol::option::status, l.status,
                         "active (open or compacted), completed, compacted or all (default)")
            ->check(
                CLI::IsMember({protocol::SessionList::kActive, "completed", "compacted", "all"}));
        list_->add_flag(protocol::option::json, l.json, "One JSON object instead of a table");
    }

    void add_context(CLI::App* conversation) {
        context_ = conversation->add_subcommand(protocol::name::context,
                                                "A session's goals, recent activity and files");
        auto& c = context_options_;
        context_->add_option("ID", c.ids, "The session")->expected(1)->type_name("");
        context_
            ->add_option(protocol::option::strategy, c.strategy,
                         "How to summarise (default: balanced)")
            ->check(CLI::IsMember({protocol::Context::kBalanced}));
        context_->add_flag(protocol::option::json, c.json, "One JSON object instead of text");
        // A session id may begin with "-"; it arrives among the extras.
        context_->allow_extras();
    }

    void add_install(CLI::App& app) {
        install_ = app.add_subcommand(
            "install-hooks", "Connect the hooks and the MCP server to an agent's configuration");
        auto& i = install_options_;
        install_
            ->add_option("--agent", i.agent,
                         "Agent to configure: claude, copilot, cursor, windsurf")
            ->required()
            ->check(CLI::IsMember({"claude", "copilot", "cursor", "windsurf"}));
        install_
            ->add_option("--scope", i.scope,
                         "project (this repository, the default) or user (your home directory)")
            ->check(CLI::IsMember({"project", "user"}));
        install_->add_flag("--dry-run", i.dry_run,
                           "Print what would be written and change nothing");
        install_->add_flag("--uninstall", i.uninstall,
                           "Take out exactly what install-hooks put in (the code index stays)");
        install_->add_flag("--no-index", i.no_index,
                           "Do not build the code index now (orvane-tamblo index builds it later)");
        install_->footer(
            "Merges into the files that are there: your own entries stay as they are, in their\n"
            "order; a file that is not valid JSON is left alone. The previous file is kept as\n"
            "<file>.bak. Commands name this program by its absolute path. Claude Code and\n"
            "Copilot also get the tamblo skill in .claude/skills/tamblo/ (a SKILL.md of your own\n"
            "there is left alone). In a project, the code index is then built or brought up to\n"
            "date (memory/codebase-index/index.db), with a progress bar on a terminal.");
    }

    CLI::App* mcp_ = nullptr;
    CLI::App* install_ = nullptr;
    host::install::InstallOptions install_options_;
    CLI::App* understand_ = nullptr;
    CLI::App* log_turn_ = nullptr;
    CLI::App* finalize_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* context_ = nullptr;
    CLI::App* serve_ = nullptr;
    CLI::App* index_ = nullptr;
    CLI::App* search_ = nullptr;
    CLI::App* symbol_ = nullptr;
    commands::IndexCommandOptions index_options_;
    commands::SearchOptions search_options_;
    commands::SymbolOptions symbol_options_;
    commands::UnderstandOptions understand_options_;
    commands::LogTurnOptions log_turn_options_;
    commands::FinalizeOptions finalize_options_;
    commands::ListOptions list_options_;
    commands::ContextOptions context_options_;
};

}  // namespace

int run(int argc, char** argv) {
    platform::prepare_standard_streams();

    CLI::App app("Index a repository for AI coding agents and serve their hooks.", "orvane-tamblo");
    app.set_version_flag("--version", "orvane-tamblo " ORVANE_VERSION);
    app.require_subcommand(1);
    // A run builds the parser of the command it names only: a hook run, which the agent waits
    // for, never pays for the host commands' options. Anything else (no command, --help, a
    // misspelling) gets the whole parser, so that help and errors list every command.
    const std::string_view first = argc > 1 ? argv[1] : "";
    const bool hook_run = first == "hooks";
    const bool host_run = first == "query" || first == "conversation" || first == "serve" ||
                          first == "mcp" || first == "install-hooks" || first == "index";
    std::unique_ptr<cli_hooks::HooksCommand> hooks;
    std::unique_ptr<HostCommands> host_commands;
    if (!host_run) hooks = cli_hooks::add_hooks_subparser(app, argc, argv);
    if (!hook_run) {
        host_commands = std::make_unique<HostCommands>(app, host_run ? first : std::string_view(),
                                                       argc > 2 ? argv[2] : "");
    }

    try {
        const std::vector<std::string> rewritten = empty_values_kept(app, argc, argv);
        if (rewritten.empty()) {
            app.parse(argc, argv);
        } else {
            std::vector<const char*> args;
            for (const std::string& arg : rewritten) args.push_back(arg.c_str());
            app.parse(static_cast<int>(args.size()), args.data());
        }
    } catch (const CLI::ParseError& e) {
        // Claude Code reads a hook's status 2 as "block this tool call", and Cursor denies it:
        // a hook name this build does not know (from a newer release's configuration) would
        // block every read. Status 1 shows as a hook error and lets the agent go on.
        return report_parse_error(app, e, hook_run ? 1 : 2);
    }
    if (hooks && hooks->chosen()) return cli_hooks::cmd_hooks(hooks->args());
    if (host_commands) return host_commands->run();
    return 0;
}

}  // namespace app
