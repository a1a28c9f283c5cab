#pragma once

#include <sys/types.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

// True once `pid` no longer runs, within `limit`: gone, or a zombie waiting for whoever
// inherited it.
inline bool gone_soon(pid_t pid, std::chrono::milliseconds limit = std::chrono::seconds(2)) {
    using namespace std::chrono_literals;
    for (auto until = std::chrono::steady_clock::now() + limit;
         std::chrono::steady_clock::now() < until; std::this_thread::sleep_for(20ms)) {
        std::string line;
        if (!std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), line)) {
            return true;
        }
        if (line.compare(line.rfind(')') + 1, 3, " Z ") == 0) return true;
    }
    return false;
}
