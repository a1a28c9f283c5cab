#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engines/store/freshness.hpp"

namespace fs = std::filesystem;
using store::FreshnessCheck;

// Batches large enough for the helper threads, one after the other: every answer must be the
// one a single check of that file gives, whoever took it.
TEST(FreshnessChecker, BatchesSharedWithHelpersAnswerAsOneCheckEach) {
    char pattern[] = "/tmp/orvane-fresh-XXXXXX";
    const fs::path root = ::mkdtemp(pattern);
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
    std::vector<std::string> targets;
    for (int i = 0; i < 1500; ++i) {
        const std::string target = "d" + std::to_string(i % 40) + "/f" + std::to_string(i);
        fs::create_directories(root / target.substr(0, target.find('/')));
        std::ofstream(root / target) << i;
        fs::last_write_time(root / target, old);
        targets.push_back(target);
    }
    std::vector<store::FileRecord> records;
    for (const auto& target : targets) {
        records.push_back(*store::capture_file(root.string(), target));
    }
    const std::int64_t stored_at_ms =  // now: long after the files' times
        std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::system_clock::now().time_since_epoch())
            .count();
    for (int i = 0; i < 1500; i += 7) std::ofstream(root / targets[i], std::ios::app) << "edit";
    for (int i = 3; i < 1500; i += 11) fs::remove(root / targets[i]);

    store::FreshnessChecker checker(root.string());
    for (const std::size_t size : {600, 900, 100}) {
        std::vector<FreshnessCheck> checks;
        for (std::size_t i = 0; i < size; ++i) {
            checks.push_back({targets[i], records[i], stored_at_ms, true});
        }
        checker.check(checks, [] {});
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(checks[i].fresh,
                      store::still_fresh(root.string(), targets[i], records[i], stored_at_ms))
                << targets[i];
            ASSERT_EQ(checks[i].fresh, i % 7 != 0 && i % 11 != 3) << targets[i];
        }
    }
    fs::remove_all(root);
}
