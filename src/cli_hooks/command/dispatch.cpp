#include "cli_hooks/command/dispatch.hpp"

#include <exception>
#include <string>

#include "cli_hooks/command/debug_log.hpp"
#include "platform/io.hpp"

namespace cli_hooks {

namespace {

// The product's own usage line, word for word: it names nine of the eleven hooks (not
// refresh-cache and suggest-tamblo); `hooks --help` lists all of them from the hook table.
constexpr const char* kUsage =
    "Usage: orvane-tamblo hooks {session-start|restore-compact|check-cache|remind-store|"
    "persist-learnings|save-compact|inject-context|log-conversation|finalize}\n";

void report_failure(std::string_view hook_cmd, std::string_view description) {
    std::string name(hook_cmd);
    _hook_debug_log("hook " + name + " EXCEPTION: " + std::string(description));
    try {
        platform::write_stderr("orvane-tamblo hook " + name +
                               " error: " + std::string(description) + "\n");
    } catch (...) {
        // Nowhere left to report to; the status still says the hook is fine.
    }
}

// Runs `handler`; any failure it lets escape becomes one line on standard error and status 0.
int _run_guarded(std::string_view hook_cmd, HookHandler handler, const HookArgs& args) {
    try {
        const int rc = handler(args);
        _hook_debug_log("hook " + std::string(hook_cmd) + " returned rc=" + std::to_string(rc));
        return rc;
    } catch (const std::exception& e) {
        report_failure(hook_cmd, e.what());
    } catch (...) {
        report_failure(hook_cmd, "unknown error");
    }
    return 0;
}

}  // namespace

int dispatch_hook(const HookArgs& args, std::span<const HookSpec> hooks) {
    const auto& hook_cmd = args.hook_command;
    _hook_debug_log("cmd_hooks called: hook_cmd=" + (hook_cmd ? *hook_cmd : std::string("None")));
    if (hook_cmd && !hook_cmd->empty()) {
        for (const auto& hook : hooks) {
            if (hook.name == *hook_cmd) {
                return _run_guarded(*hook_cmd, hook.handler, args);
            }
        }
    }
    try {
        platform::write_stdout(kUsage);
    } catch (...) {
        // The status already tells the caller no hook ran.
    }
    return 1;
}

}  // namespace cli_hooks
