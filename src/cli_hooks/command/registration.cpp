#include "cli_hooks/command/registration.hpp"

#include <CLI/CLI.hpp>

#include "cli_hooks/command/dispatch.hpp"

namespace cli_hooks {

namespace {

constexpr const char* agent_help =
    "AI agent type: claude, copilot, cursor, windsurf (default: claude)";
constexpr const char* inject_agent_help =
    "AI agent type: claude, copilot, cursor, windsurf (default: windsurf)";

}  // namespace

HooksCommand::HooksCommand(CLI::App& subparsers, std::span<const HookSpec> hooks,
                           std::string_view only)
    : subcommands_(hooks.size(), nullptr), agents_(hooks.size()) {
    hooks_ =
        subparsers.add_subcommand("hooks", "AI agent hook handlers (used by hook configurations)");
    // The description doubles as the line in the top-level command list; the rest goes below.
    hooks_->footer(
        "Native hook handlers for AI coding agents: each reads one JSON object from standard "
        "input\nand writes its response to standard output (one JSON line, or plain text for "
        "Windsurf).\nRun 'orvane-tamblo hooks <hook> --help' for a hook's options.");
    hooks_->require_subcommand(0, 1);
    for (std::size_t i = 0; i < hooks.size(); ++i) {
        const HookSpec& hook = hooks[i];
        if (!only.empty() && hook.name != only) continue;
        CLI::App* sub = hooks_->add_subcommand(std::string(hook.name), hook.help);
        if (hook.name == "log-conversation") {
            sub->add_option("--type", turn_type_, "Turn type: user or tool")
                ->required()
                ->check(CLI::IsMember({"user", "tool"}))
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        }
        agents_[i] = hook.agent_default;
        const bool is_inject = hook.name == "inject-context";
        // A repeated option takes its last value, as parsers conventionally do: a parse error
        // would lose the hook's run.
        sub->add_option("--agent", agents_[i], is_inject ? inject_agent_help : agent_help)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        subcommands_[i] = sub;
    }
}

bool HooksCommand::chosen() const {
    return hooks_->parsed();
}

HookArgs HooksCommand::args() const {
    HookArgs args;
    for (std::size_t i = 0; i < subcommands_.size(); ++i) {
        if (subcommands_[i] != nullptr && subcommands_[i]->parsed()) {
            args.hook_command = subcommands_[i]->get_name();
            args.agent = agents_[i];
            if (!turn_type_.empty()) args.turn_type = turn_type_;
        }
    }
    return args;
}

}  // namespace cli_hooks
