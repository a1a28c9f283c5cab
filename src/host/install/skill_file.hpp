#pragma once

#include <string>
#include <string_view>

#include "host/install/config_file.hpp"

namespace host::install {

// The tamblo skill as this program carries it (generated from skill/SKILL.md).
std::string_view skill_text();

// What to do with the skill's file. The file is ours when it holds the line that says
// install-hooks wrote it; anything else there is the user's and stays as it is.
struct SkillChange {
    ConfigTarget target;
    Action action = Action::none;  // none, write or remove
    bool replacing = false;        // writing over an earlier copy of ours
    std::string left_alone;        // why the file there is not ours ("is a symbolic link"), if so
};

// What installing the skill at `target` (or, with `uninstall`, taking it out) takes. Throws
// ConfigError when a directory on the way is a link, or when our copy is marked read-only.
SkillChange plan_skill(const ConfigTarget& target, bool uninstall);

// Writes the skill atomically (making its folders), or removes it with the folders that held
// nothing else. Throws on failure.
void apply_skill(const SkillChange& change);

}  // namespace host::install
