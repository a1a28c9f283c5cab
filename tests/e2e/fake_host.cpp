// Stands in for the `orvane-tamblo` host on PATH during end-to-end tests, built for the program's
// own platform.
//
// Every call appends its arguments (argv[1..]) to $FAKE_HOST_SCENARIO/calls.log, each argument
// followed by \x1f and each call by \x1e, so arguments may hold line feeds. It then answers from
// files named after the call's key: "query-understand-<action>" for `query understand
// --action=<action>`, else the first two arguments joined by "-" ("conversation-list"):
//   <key>.stdout  written to standard output (default: nothing)
//   <key>.stderr  written to standard error
//   <key>.rc      exit status (default 1: the index service is down)
//   <key>.sleep   seconds to sleep before answering; <key>.woke is created once they are over
//   <key>.flood   a byte count written to both standard output and standard error first
//   <key>.grandchild  seconds a grandchild sleeps while holding the output pipes open; it then
//                     appends a line to grandchild.log, unless it was killed first.
//                     <key>.pids receives "<own pid> <grandchild's pid>" once both run
#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "protocol/host_commands.hpp"

namespace {

std::string dir;

bool read_file(const std::string& name, std::string& out) {
    std::ifstream in(dir + "/" + name, std::ios::binary);
    out.assign(std::istreambuf_iterator<char>(in), {});
    return static_cast<bool>(in);
}

void append_file(const std::string& name, const std::string& data) {
    std::ofstream(dir + "/" + name, std::ios::binary | std::ios::app) << data;
}

void sleep_for(const std::string& seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(seconds.c_str())));
}

void write_pids(const std::string& key, long child, long grandchild) {
    const std::string pids = dir + "/" + key + ".pids";
    std::ofstream(pids + ".tmp") << child << ' ' << grandchild << '\n';
    std::rename((pids + ".tmp").c_str(), pids.c_str());  // whole, or not there
}

#ifdef _WIN32
void write_all(int fd, std::string_view data) {
    const HANDLE h = GetStdHandle(fd == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    std::size_t off = 0;
    while (off < data.size()) {
        DWORD n = 0;
        if (!WriteFile(h, data.data() + off, static_cast<DWORD>(data.size() - off), &n, nullptr)) {
            return;
        }
        off += n;
    }
}

// This same program again, inheriting the output pipes, as the grandchild.
void start_grandchild(const std::string& seconds, const std::string& key) {
    SetEnvironmentVariableA("FAKE_HOST_GRANDCHILD", seconds.c_str());
    wchar_t self[32768];
    GetModuleFileNameW(nullptr, self, 32768);
    wchar_t command_line[] = L"grandchild";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (CreateProcessW(self, command_line, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                       &info)) {
        write_pids(key, GetCurrentProcessId(), info.dwProcessId);
        CloseHandle(info.hThread);
        CloseHandle(info.hProcess);
    }
    SetEnvironmentVariableA("FAKE_HOST_GRANDCHILD", nullptr);
}
#else
void write_all(int fd, std::string_view data) {
    std::size_t off = 0;
    while (off < data.size()) {
        const ssize_t n = ::write(fd, data.data() + off, data.size() - off);
        if (n <= 0) return;
        off += static_cast<std::size_t>(n);
    }
}

void start_grandchild(const std::string& seconds, const std::string& key) {
    const pid_t grandchild = ::fork();
    if (grandchild == 0) {
        sleep_for(seconds);
        append_file("grandchild.log", "woke\n");
        _exit(0);
    }
    write_pids(key, ::getpid(), grandchild);
}
#endif

int run(const std::vector<std::string>& args) {
    const char* scenario = std::getenv("FAKE_HOST_SCENARIO");
    if (scenario == nullptr) return 3;
    dir = scenario;
    if (const char* seconds = std::getenv("FAKE_HOST_GRANDCHILD")) {
        sleep_for(seconds);
        append_file("grandchild.log", "woke\n");
        return 0;
    }

    std::string record;
    for (std::size_t i = 1; i < args.size(); ++i) record += args[i] + '\x1f';
    record += '\x1e';
    append_file("calls.log", record);

    std::string key = "unknown";
    if (args.size() > 2) key = args[1] + '-' + args[2];
    const std::string action = protocol::joined(protocol::option::action, "");
    if (key == std::string(protocol::name::query) + '-' + protocol::name::understand &&
        args.size() > 3 && args[3].starts_with(action)) {
        key += '-' + args[3].substr(action.size());
    }

    std::string value;
    if (read_file(key + ".grandchild", value)) start_grandchild(value, key);
    if (read_file(key + ".sleep", value)) {
        sleep_for(value);
        append_file(key + ".woke", "");
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

}  // namespace

#ifdef _WIN32
// The arguments as UTF-8, an unpaired surrogate encoded on its own, so that the log shows exactly
// what the caller passed.
static std::string utf8(const wchar_t* arg) {
    std::string out;
    for (const wchar_t* p = arg; *p != 0; ++p) {
        char32_t cp = static_cast<char16_t>(*p);
        if (cp >= 0xD800 && cp < 0xDC00 && p[1] >= 0xDC00 && p[1] < 0xE000) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<char16_t>(*++p) - 0xDC00);
        }
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += {static_cast<char>(0xC0 | (cp >> 6)), static_cast<char>(0x80 | (cp & 0x3F))};
        } else if (cp < 0x10000) {
            out +=
                {static_cast<char>(0xE0 | (cp >> 12)), static_cast<char>(0x80 | ((cp >> 6) & 0x3F)),
                 static_cast<char>(0x80 | (cp & 0x3F))};
        } else {
            out += {static_cast<char>(0xF0 | (cp >> 18)),
                    static_cast<char>(0x80 | ((cp >> 12) & 0x3F)),
                    static_cast<char>(0x80 | ((cp >> 6) & 0x3F)),
                    static_cast<char>(0x80 | (cp & 0x3F))};
        }
    }
    return out;
}

extern "C" int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> args;
    for (int i = 0; i < argc; ++i) args.push_back(utf8(argv[i]));
    return run(args);
}
#else
int main(int argc, char** argv) {
    return run(std::vector<std::string>(argv, argv + argc));
}
#endif
