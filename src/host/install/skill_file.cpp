#include "host/install/skill_file.hpp"

#include "host/install/hook_config.hpp"
#include "platform/atomic_file.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"

namespace host::install {

namespace {

// The start of the line our copy carries; the rest of the line may change between releases.
constexpr std::string_view kOursMark = "\n<!-- Installed by orvane-tamblo install-hooks,";
// Far more than the skill takes: anything larger is not ours.
constexpr std::size_t kMaxSkillBytes = 1 << 20;

}  // namespace

SkillChange plan_skill(const ConfigTarget& target, bool uninstall) {
    SkillChange change;
    change.target = target;
    try {
        check_directories(target);
        switch (platform::path_kind(target.path)) {
            case platform::PathKind::missing:
                if (!uninstall) change.action = Action::write;
                return change;
            case platform::PathKind::regular:
                break;
            case platform::PathKind::symlink:
                change.left_alone = "is a symbolic link";
                return change;
            default:
                change.left_alone = "is not a regular file";
                return change;
        }
        const auto bytes = platform::read_plain_file(target.path, kMaxSkillBytes);
        if (!bytes || bytes->find(kOursMark) == std::string::npos) {
            change.left_alone = "was not written by orvane-tamblo";
            return change;
        }
        if (uninstall) {
            change.action = Action::remove;
        } else if (*bytes != skill_text()) {
            change.action = Action::write;
            change.replacing = true;
        }
        // The user's way of saying "leave this alone", as for the configuration files.
        if (change.action != Action::none && platform::is_read_only(target.path)) {
            throw ConfigError(target.shown + " is read-only; it was left as it is");
        }
    } catch (const ConfigError&) {
        throw;
    } catch (const std::exception& e) {
        throw ConfigError(target.shown + ": " + e.what() + "; it was left as it is");
    }
    return change;
}

void apply_skill(const SkillChange& change) {
    const ConfigTarget& target = change.target;
    switch (change.action) {
        case Action::none:
        case Action::restore:
            return;
        case Action::write:
            platform::remove_stale_temporaries(target.path);
            make_directories(target);
            platform::replace_file_synced(target.path, skill_text());
            return;
        case Action::remove:
            platform::remove_stale_temporaries(target.path);
            platform::delete_file(target.path);
            remove_emptied_directories(target);
            return;
    }
}

}  // namespace host::install
