#pragma once

#include <memory>

#include "cli_hooks/command/args.hpp"
#include "cli_hooks/command/dispatch.hpp"
#include "cli_hooks/command/registration.hpp"

namespace cli_hooks {

// The hook table in hooks.cpp is the one list of the eleven hooks, in registration order; these
// two hand it to the host's parser and to the dispatcher.

// Registers `hooks` and its eleven hooks in the host's parser. A hook run, which the agent waits
// for, registers only the hook it names when no other argument names a hook: the parse is then
// the same, at a fraction of the cost. Anything else gets every hook, for help and errors.
std::unique_ptr<HooksCommand> add_hooks_subparser(CLI::App& subparsers, int argc,
                                                  const char* const* argv);

// Runs the named hook inside the guard; the result is the process exit status.
int cmd_hooks(const HookArgs& args);

// The table itself, for the tests that run every hook.
std::span<const HookSpec> hook_table();

}  // namespace cli_hooks
