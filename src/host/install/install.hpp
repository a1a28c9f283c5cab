#pragma once

#include <string>

namespace host::install {

struct InstallOptions {
    std::string agent;
    std::string scope = "project";
    bool dry_run = false;
    bool uninstall = false;
    bool no_index = false;  // leave the code index to `orvane-tamblo index`
};

// Writes (or, with `uninstall`, takes out) the agent's hooks and our MCP server in that agent's
// configuration files, merging with what is there, and our skill where the agent reads skills;
// then, for a project, builds or refreshes the code index. Prints what it did on standard output
// and problems on standard error; returns the exit status.
int cmd_install_hooks(const InstallOptions& options);

}  // namespace host::install
