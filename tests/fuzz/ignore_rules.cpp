// Ignore files come with the repository, so anything may be in them: arbitrary pattern text,
// then a NUL and paths to decide, one a line (a few fixed ones when there is no NUL), read and
// matched with and without case folding. Only a crash, a sanitizer finding or a hang fails.
#include <cstdint>
#include <string_view>

#include "engines/index/ignore_rules.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = bytes.find('\0');
    const std::string_view rules = bytes.substr(0, nul);
    std::string_view paths =
        nul == bytes.npos ? "a\nsrc/main.c\nA/B/c.O\n.git/x\nx/y/z/w/v" : bytes.substr(nul + 1);
    const code_index::IgnoreList exact(rules, false), folded(rules, true);
    while (!paths.empty()) {
        const std::size_t end = paths.find('\n');
        const std::string_view path = paths.substr(0, end);
        paths.remove_prefix(end == paths.npos ? paths.size() : end + 1);
        for (const bool directory : {false, true}) {
            exact.decide(path, directory);
            folded.decide(path, directory);
        }
    }
    return 0;
}
