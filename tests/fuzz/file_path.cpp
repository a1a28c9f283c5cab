// extract_file_path on arbitrary hook input, in a repository that holds links out of it, a link
// loop and a file in place of a directory: whatever it returns lies at or below the repository.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cli_hooks/command/file_path.hpp"
#include "support/json.hpp"

namespace {

std::string repo;

void must(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char pattern[] = "/tmp/orvane-fuzz-path-XXXXXX";
    must(::mkdtemp(pattern) != nullptr);
    const std::string root = pattern;
    repo = root + "/repo";
    must(::mkdir(repo.c_str(), 0755) == 0);
    must(::mkdir((root + "/outside").c_str(), 0755) == 0);
    must(::mkdir((repo + "/src").c_str(), 0755) == 0);
    must(::symlink("../outside", (repo + "/out").c_str()) == 0);
    must(::symlink("/", (repo + "/root").c_str()) == 0);
    must(::symlink("loop", (repo + "/loop").c_str()) == 0);
    must(::symlink("src", (repo + "/in").c_str()) == 0);
    must(::close(::creat((repo + "/file").c_str(), 0644)) == 0);
    must(::chdir(repo.c_str()) == 0);
    ::unsetenv("ORVANE_HOOK_DEBUG");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    support::Json input;
    try {
        input = support::parse_json(bytes);
    } catch (const std::exception&) {
        // Not JSON: the bytes are the path itself, when they are text at all.
        input = support::Json::object().set("file_path", std::string(bytes));
        try {
            support::to_json_text(input);
        } catch (const std::exception&) {
            return 0;
        }
    }
    if (!input.is_object()) return 0;
    std::optional<std::string> path;
    try {
        path = cli_hooks::extract_file_path(input);
    } catch (const support::TypeError&) {
        return 0;  // a "tool_input" that is not an object: the guard's business
    }
    if (!path) return 0;
    if (*path != repo && !path->starts_with(repo + "/")) std::abort();
    const std::string relative = cli_hooks::get_relative_path(*path);
    if (relative.starts_with("/") || relative == ".." || relative.starts_with("../")) std::abort();
    return 0;
}
