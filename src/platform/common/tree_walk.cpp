#include "platform/common/tree_walk.hpp"

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/dir_list.hpp"
#include "platform/os_error.hpp"

namespace platform::tree_walk {

std::string child_path(std::string_view parent, std::string_view name) {
    std::string path(parent);
    if (!path.empty()) path += '/';
    return path.append(name);
}

std::string with_commas(std::size_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
    return digits;
}

void walk(const std::string& root, const std::string& relative, const Wanted& wanted,
          const std::function<bool(const std::string&)>& enter,
          const std::function<void(std::string&&)>& found) {
    // Depth first, from a stack rather than by recursion, as a repository may nest deep; a
    // directory stays open only while some of its subdirectories wait to be opened from it.
    struct Pending {
        std::shared_ptr<Directory> parent;
        std::string name, relative;
    };
    std::shared_ptr<Directory> start;
    try {
        start = std::make_shared<Directory>(root);
        for (std::size_t at = 0; at < relative.size();) {
            const std::size_t end = std::min(relative.find('/', at), relative.size());
            start = std::make_shared<Directory>(*start,
                                                std::string_view(relative).substr(at, end - at));
            at = end + 1;
        }
    } catch (const OsError&) {
        return;
    }
    std::vector<Pending> stack{{nullptr, "", relative}};
    while (!stack.empty()) {
        Pending next = std::move(stack.back());
        stack.pop_back();
        std::shared_ptr<Directory> directory;
        try {
            directory = next.parent ? std::make_shared<Directory>(*next.parent, next.name)
                                    : std::move(start);
        } catch (const OsError&) {
            continue;
        }
        next.parent.reset();
        if (!enter(next.relative)) continue;
        try {
            DirEntry entry;
            while (directory->next(entry)) {
                std::string path = child_path(next.relative, entry.name);
                if (entry.kind == EntryKind::directory && wanted(path)) {
                    stack.push_back({directory, std::string(entry.name), path});
                }
                if (found) found(std::move(path));
            }
        } catch (const OsError&) {
            // Listed in part: what was found stands.
        }
    }
}

}  // namespace platform::tree_walk
