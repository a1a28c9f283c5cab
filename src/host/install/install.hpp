#pragma once

#include <string>

namespace host::install {

struct InstallOptions {
    std::string agent;
    std::string scope = "project";
    bool dry_run = false;
    bool uninstall = false;
};

// Writes (or, with `uninstall`, takes out) the agent's hooks and our MCP server in that agent's
// configuration files, merging with what is there, and our skill where the agent reads skills.
// Prints what it did on standard output and problems on standard error; returns the exit status.
int cmd_install_hooks(const InstallOptions& options);

}  // namespace host::install
