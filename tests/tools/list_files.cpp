// Prints what the repository walk finds under ROOT, sorted, one "path size mtime" line each
// (mtime in whole seconds), then
// "unreadable: N" when directories could not be read. With --count, only the number of files.
// The end-to-end tests run it for the Windows build under Wine; scripts/bench-walk times it.
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "engines/index/walk.hpp"

int main(int argc, char** argv) {
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY);  // "\n" as it is
#endif
    const bool count_only = argc == 3 && std::strcmp(argv[1], "--count") == 0;
    if (argc != 2 && !count_only) {
        std::fprintf(stderr, "usage: list_files [--count] ROOT\n");
        return 2;
    }
    try {
        code_index::RepositoryFilter filter(argv[argc - 1]);
        std::vector<std::string> lines;
        std::int64_t files = 0, unreadable = 0;
        code_index::walk_repository(
            filter,
            [&](code_index::RepoFile&& file) {
                ++files;
                if (!count_only)
                    lines.push_back(file.path + " " + std::to_string(file.size) + " " +
                                    std::to_string(file.mtime_ns / 1000000000));
            },
            &unreadable);
        std::sort(lines.begin(), lines.end());
        if (count_only) lines.push_back(std::to_string(files));
        if (unreadable > 0) lines.push_back("unreadable: " + std::to_string(unreadable));
        for (const std::string& line : lines) std::printf("%s\n", line.c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "list_files: %s\n", e.what());
        return 1;
    }
    return 0;
}
