// Watches ROOT and reports what changes, for the end-to-end tests (each build's own watcher, the
// Windows one under Wine) and scripts/bench-watch.
//
//   watch_tree ROOT [UNWANTED_DIR...]   runs the script on standard input, one command a line:
//     write PATH [TEXT] | mkdir PATH | rename FROM TO | remove PATH   a change, made here
//     expect PATH...   prints "changes: ..." once all of them arrived (or after 10 s) and nothing
//                      more did for a while, sorted; "changes: overflow" when events were lost
//   watch_tree --bench ROOT             prints the set-up time, the latency from a write to its
//                                       report, and the CPU time spent waiting while nothing
//                                       changes
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "platform/tree_watch.hpp"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double cpu_ms() {
    return 1000.0 * static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

int run_script(const std::string& root, const std::set<std::string>& unwanted) {
    platform::TreeWatcher watcher(
        root, [&](std::string_view dir) { return !unwanted.contains(std::string(dir)); }, 100000);
    std::printf("watching: %s\n", watcher.description().c_str());
    std::fflush(stdout);
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string command, a, b;
        words >> command >> a;
        std::getline(words >> std::ws, b);
        const fs::path path = fs::path(root) / fs::path(a);
        if (command == "write") {
            write(path, b);
        } else if (command == "mkdir") {
            fs::create_directories(path);
        } else if (command == "rename") {
            fs::rename(path, fs::path(root) / fs::path(b));
        } else if (command == "remove") {
            fs::remove_all(path);
        } else if (command == "expect") {
            std::set<std::string> expected{a};
            for (std::istringstream rest(b); rest >> a;) expected.insert(a);
            std::set<std::string> seen;
            bool overflow = false;
            const auto deadline = Clock::now() + 10s;
            while (!overflow &&
                   !std::includes(seen.begin(), seen.end(), expected.begin(), expected.end()) &&
                   Clock::now() < deadline) {
                const platform::TreeChanges changes = watcher.wait(200ms);
                seen.insert(changes.paths.begin(), changes.paths.end());
                overflow = overflow || changes.overflow;
            }
            // Late arrivals belong to this step too, not to the next one.
            for (platform::TreeChanges more; !(more = watcher.wait(300ms)).paths.empty();) {
                seen.insert(more.paths.begin(), more.paths.end());
            }
            // After a loss, what did arrive is beside the point.
            std::printf("changes:");
            if (overflow) seen = {"overflow"};
            for (const std::string& path : seen) std::printf(" %s", path.c_str());
            std::printf("\n");
            std::fflush(stdout);
        } else {
            std::fprintf(stderr, "watch_tree: unknown command: %s\n", line.c_str());
            return 2;
        }
    }
    return 0;
}

int bench(const std::string& root) {
    std::vector<std::string> directories;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(root))) {
        if (entry.is_directory()) {
            directories.push_back(fs::relative(entry.path(), fs::path(root)).generic_string());
        }
    }
    const auto start = Clock::now();
    platform::TreeWatcher watcher(
        root, [](std::string_view) { return true; }, 1'000'000);
    const double setup = ms_since(start);
    std::printf("setup: %.1f ms (%s)\n", setup, watcher.description().c_str());

    std::vector<double> latencies;
    for (std::size_t i = 0; i < 100 && !directories.empty(); ++i) {
        const std::string file =
            directories[(i * 7919) % directories.size()] + "/bench" + std::to_string(i) + ".c";
        const auto written = Clock::now();
        write(fs::path(root) / fs::path(file), "int x;\n");
        for (bool found = false; !found && ms_since(written) < 5000;) {
            const platform::TreeChanges changes = watcher.wait(1s);
            found =
                std::find(changes.paths.begin(), changes.paths.end(), file) != changes.paths.end();
        }
        latencies.push_back(ms_since(written));
        fs::remove(fs::path(root) / fs::path(file));
        while (!watcher.wait(30ms).paths.empty()) {
        }
    }
    std::sort(latencies.begin(), latencies.end());
    if (!latencies.empty()) {
        std::printf("write to report: median %.1f ms, 90th %.1f ms, max %.1f ms (%zu writes)\n",
                    latencies[latencies.size() / 2], latencies[latencies.size() * 9 / 10],
                    latencies.back(), latencies.size());
    }
    const double cpu = cpu_ms();
    watcher.wait(2s);
    std::printf("idle: %.1f ms of CPU in 2 s\n", cpu_ms() - cpu);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY);  // "\n" as it is
#endif
    try {
        if (argc == 3 && std::string(argv[1]) == "--bench") return bench(argv[2]);
        if (argc >= 2 && argv[1][0] != '-') return run_script(argv[1], {argv + 2, argv + argc});
        std::fprintf(stderr,
                     "usage: watch_tree ROOT [UNWANTED_DIR...] | watch_tree --bench ROOT\n");
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "watch_tree: %s\n", e.what());
        return 1;
    }
}
