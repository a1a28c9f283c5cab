// Stands in for the `orvane-tamblo` host on PATH during end-to-end tests.
//
// Every call appends its arguments (argv[1..]) to $FAKE_HOST_SCENARIO/calls.log, each argument
// followed by \x1f and each call by \x1e, so arguments may hold line feeds. It then answers from
// files named after the call's key: "query-understand-<action>" for `query understand
// --action=<action>`, else the first two arguments joined by "-" ("conversation-list"):
//   <key>.stdout  written to standard output (default: nothing)
//   <key>.stderr  written to standard error
//   <key>.rc      exit status (default 1: the index service is down)
//   <key>.sleep   seconds to sleep before answering
//   <key>.flood   a byte count written to both standard output and standard error first
//   <key>.grandchild  seconds a forked grandchild sleeps while holding the output pipes open;
//                 <key>.pids then receives "<own pid> <grandchild's pid>" once both run
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

namespace {

std::string dir;

bool read_file(const std::string& name, std::string& out) {
    std::ifstream in(dir + "/" + name, std::ios::binary);
    if (!in) return false;
    std::stringstream ss;
    ss << in.rdbuf();
    out = ss.str();
    return true;
}

void write_all(int fd, std::string_view data) {
    std::size_t off = 0;
    while (off < data.size()) {
        const ssize_t n = ::write(fd, data.data() + off, data.size() - off);
        if (n <= 0) return;
        off += static_cast<std::size_t>(n);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const char* scenario = std::getenv("FAKE_HOST_SCENARIO");
    if (scenario == nullptr) return 3;
    dir = scenario;

    std::string record;
    for (int i = 1; i < argc; ++i) record += std::string(argv[i]) + '\x1f';
    record += '\x1e';
    std::ofstream(dir + "/calls.log", std::ios::binary | std::ios::app) << record;

    std::string key = "unknown";
    if (argc > 2) {
        key = argv[1];
        key += '-';
        key += argv[2];
    }
    if (key == "query-understand" && argc > 3) {
        const std::string_view action = argv[3];
        if (action.starts_with("--action=")) {
            key += '-';
            key += action.substr(9);
        }
    }

    std::string value;
    if (read_file(key + ".grandchild", value)) {
        const double seconds = std::atof(value.c_str());
        const pid_t grandchild = ::fork();
        if (grandchild == 0) {
            std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
            _exit(0);
        }
        const std::string pids = dir + "/" + key + ".pids";
        std::ofstream(pids + ".tmp") << ::getpid() << ' ' << grandchild << '\n';
        std::rename((pids + ".tmp").c_str(), pids.c_str());  // whole, or not there
    }
    if (read_file(key + ".sleep", value)) {
        std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(value.c_str())));
    }
    if (read_file(key + ".flood", value)) {
        // In pieces, stderr first, so that a reader draining only one pipe deadlocks, and
        // without holding the whole amount: the hook's memory is what gets measured.
        const std::string chunk(1 << 16, 'x');
        for (std::size_t left = std::strtoull(value.c_str(), nullptr, 10); left > 0;) {
            const std::size_t n = std::min(left, chunk.size());
            write_all(2, std::string_view(chunk).substr(0, n));
            write_all(1, std::string_view(chunk).substr(0, n));
            left -= n;
        }
    }
    if (read_file(key + ".stderr", value)) write_all(2, value);
    if (read_file(key + ".stdout", value)) write_all(1, value);
    int rc = 1;
    if (read_file(key + ".rc", value)) rc = std::atoi(value.c_str());
    return rc;
}
