#pragma once

#include <optional>
#include <string>

namespace code_index {

// The user's global excludes file, as git finds it: core.excludesFile from the user's own git
// configuration ($XDG_CONFIG_HOME/git/config, then ~/.gitconfig, which wins; include.path
// followed), a leading "~/" taken as the home directory, else $XDG_CONFIG_HOME/git/ignore
// (~/.config/git/ignore). A relative path is left as it is: git reads it from the repository's
// root. nullopt when neither a home directory nor $XDG_CONFIG_HOME is known. No configuration of
// the repository is read, so a cloned repository cannot choose the file.
std::optional<std::string> user_excludes_file();

}  // namespace code_index
