#include "host/mcp/target.hpp"

#include "platform/path.hpp"

namespace host::mcp {

namespace {

std::string joined(const std::vector<std::string>& parts, std::size_t from) {
    std::string out;
    for (std::size_t i = from; i < parts.size(); ++i) out += (out.empty() ? "" : "/") + parts[i];
    return out;
}

}  // namespace

std::string normalize_target(const std::string& root, const std::string& target) {
    const platform::PathParts parts = platform::split_path(target);
    if (parts.root.empty()) return parts.parts.empty() ? target : joined(parts.parts, 0);
    try {
        const auto base =
            platform::split_path(platform::normal_case(platform::canonical_path(root)));
        const auto full = platform::split_path(platform::canonical_path(target));
        const auto cased =
            platform::split_path(platform::normal_case(platform::canonical_path(target)));
        if (cased.root != base.root || cased.parts.size() <= base.parts.size()) return target;
        for (std::size_t i = 0; i < base.parts.size(); ++i) {
            if (cased.parts[i] != base.parts[i]) return target;
        }
        return joined(full.parts, base.parts.size());
    } catch (const std::exception&) {
        return target;
    }
}

}  // namespace host::mcp
