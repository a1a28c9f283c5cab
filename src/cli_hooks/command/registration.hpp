#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

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
    // Registers the hook named `only`, or all of them when it is empty.
    HooksCommand(CLI::App& subparsers, std::span<const HookSpec> hooks, std::string_view only);
    bool chosen() const;
    HookArgs args() const;

  private:
    CLI::App* hooks_;
    std::vector<CLI::App*> subcommands_;  // nullptr for a hook not registered
    std::vector<std::string> agents_;     // never resized after the options point into it
    std::string turn_type_;
};

}  // namespace cli_hooks
