#pragma once

#include <array>
#include <memory>
#include <string>

#include "cli_hooks/command/args.hpp"
#include "cli_hooks/command/dispatch.hpp"

namespace CLI {
class App;
}

namespace cli_hooks {

// The `hooks` command as registered in the host's parser; after parsing it knows whether it was
// chosen and which arguments it was given.
class HooksCommand {
  public:
    explicit HooksCommand(CLI::App& subparsers);
    bool chosen() const;
    HookArgs args() const;

  private:
    CLI::App* hooks_;
    std::array<CLI::App*, kHookCount> subcommands_{};
    std::array<std::string, kHookCount> agents_;
    std::string turn_type_;
};

std::unique_ptr<HooksCommand> add_hooks_subparser(CLI::App& subparsers);

}  // namespace cli_hooks
