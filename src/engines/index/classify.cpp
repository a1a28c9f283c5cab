#include "engines/index/classify.hpp"

#include <algorithm>
#include <array>
#include <cstring>

#include "engines/index/words.hpp"

namespace code_index {

namespace {

constexpr std::array<std::string_view, kFileStates> kStateNames = {
    "indexed",   "large",  "binary",     "minified",   "generated",
    "timed_out", "failed", "unreadable", "unsupported"};

// As git: a NUL byte in the first 8000 bytes makes a file binary.
constexpr std::size_t kBinaryProbe = 8000;
// Minified code: on average longer lines than anyone writes by hand, in a file big enough for
// the average to mean something.
constexpr std::size_t kMinifiedLineBytes = 300;
constexpr std::size_t kMinifiedMinBytes = 4096;
// A generator's mark stands in the first few lines.
constexpr std::size_t kHeaderLines = 5;

bool ends_with_any(std::string_view name, std::initializer_list<std::string_view> endings) {
    return std::any_of(endings.begin(), endings.end(),
                       [&](std::string_view e) { return name.ends_with(e); });
}

bool says_generated(std::string_view content) {
    std::size_t end = 0;
    for (std::size_t line = 0; line < kHeaderLines && end < content.size(); ++line) {
        const std::size_t next = content.find('\n', end);
        end = next == std::string_view::npos ? content.size() : next + 1;
    }
    const std::string head = fold_case(content.substr(0, std::min<std::size_t>(end, 2048)));
    if (head.find("@generated") != std::string::npos) return true;
    return head.find("generated") != std::string::npos &&
           (head.find("do not edit") != std::string::npos ||
            head.find("don't edit") != std::string::npos);
}

}  // namespace

std::string_view state_name(FileState state) {
    const auto i = static_cast<std::size_t>(state);
    return i < kStateNames.size() ? kStateNames[i] : "unknown";
}

std::optional<FileState> skip_reason(std::string_view path, std::string_view content) {
    if (content.size() > static_cast<std::size_t>(kMaxFileBytes)) return FileState::large;
    if (std::memchr(content.data(), '\0', std::min(content.size(), kBinaryProbe)) != nullptr) {
        return FileState::binary;
    }
    const std::string_view name = path.substr(path.find_last_of('/') + 1);
    if (ends_with_any(name, {".min.js", ".min.mjs", ".min.cjs", "-min.js", ".bundle.js"})) {
        return FileState::minified;
    }
    if (content.size() >= kMinifiedMinBytes) {
        const auto lines =
            static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n')) + 1;
        if (content.size() / lines > kMinifiedLineBytes) return FileState::minified;
    }
    if (says_generated(content)) return FileState::generated;
    return std::nullopt;
}

}  // namespace code_index
