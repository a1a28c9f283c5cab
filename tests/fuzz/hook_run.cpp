// Whole hook runs on arbitrary standard input. The first byte picks the hook and the agent, the
// rest is the hook's standard input. No host answers (PATH names an empty directory), the
// repository is indexed so the nudge reads and writes its state file, and standard output goes
// to /dev/null. Whatever the input, the run returns normally with status 0.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cli_hooks/command/args.hpp"
#include "cli_hooks/hooks.hpp"

namespace {

constexpr std::array<const char*, 4> kAgents = {"claude", "copilot", "cursor", "windsurf"};

int stdin_fd = -1;

void must(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char pattern[] = "/tmp/orvane-fuzz-hook-XXXXXX";
    must(::mkdtemp(pattern) != nullptr);
    const std::string root = pattern;
    const std::string repo = root + "/repo";
    for (const std::string& dir :
         {repo, repo + "/memory", repo + "/memory/codebase-index", root + "/empty"}) {
        must(::mkdir(dir.c_str(), 0755) == 0);
    }
    must(::close(::creat((repo + "/memory/codebase-index/index.db").c_str(), 0644)) == 0);
    must(::chdir(repo.c_str()) == 0);
    ::setenv("PATH", (root + "/empty").c_str(), 1);
    // A log directory that does not exist: records are dropped instead of piling up.
    ::setenv("ORVANE_TAMBLO_LOG_DIR", (root + "/no-logs").c_str(), 1);
    ::unsetenv("ORVANE_HOOK_DEBUG");
    const int null_fd = ::open("/dev/null", O_WRONLY);
    must(null_fd >= 0 && ::dup2(null_fd, STDOUT_FILENO) >= 0);
    ::close(null_fd);
    stdin_fd = ::memfd_create("stdin", 0);
    must(stdin_fd >= 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const unsigned pick = data[0];
    must(::ftruncate(stdin_fd, 0) == 0);
    must(::pwrite(stdin_fd, data + 1, size - 1, 0) == static_cast<ssize_t>(size - 1));
    // A descriptor of its own each run, so that the run reads from the start.
    const int in = ::open(("/proc/self/fd/" + std::to_string(stdin_fd)).c_str(), O_RDONLY);
    must(in >= 0 && ::dup2(in, STDIN_FILENO) >= 0);
    ::close(in);

    cli_hooks::HookArgs args;
    const auto hooks = cli_hooks::hook_table();
    args.hook_command = std::string(hooks[pick % hooks.size()].name);
    args.agent = kAgents[(pick / hooks.size()) % kAgents.size()];
    args.turn_type = (pick & 0x80) ? "tool" : "user";
    if (cli_hooks::cmd_hooks(args) != 0) std::abort();
    return 0;
}
