// The tree watcher through the system's own notifications (inotify here): what a change reports,
// where it never looks, and how it gives way when watches run short.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/tree_watch.hpp"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Paths = std::set<std::string>;

void put(const fs::path& path, const std::string& content = "x") {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

class TreeWatch : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-watch-XXXXXX";
        top_ = ::mkdtemp(pattern);
        repo_ = top_ / "repo";
        put(repo_ / "a.c");
        put(repo_ / "src/b.c");
        put(repo_ / "skip/s.c");
        put(top_ / "outside/x.c");
        fs::create_directory_symlink(top_ / "outside", repo_ / "out");
    }
    void TearDown() override { fs::remove_all(top_); }

    platform::TreeWatcher& watcher(std::size_t max_watches = 1000) {
        watcher_.emplace(
            repo_.string(),
            [this](std::string_view dir) { return !unwanted_.contains(std::string(dir)); },
            max_watches);
        return *watcher_;
    }

    // What arrives until everything `expected` has (or a generous deadline passes) and then
    // nothing more for a while.
    Paths seen(const Paths& expected) {
        Paths paths;
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!std::includes(paths.begin(), paths.end(), expected.begin(), expected.end()) &&
               std::chrono::steady_clock::now() < deadline) {
            const platform::TreeChanges changes = watcher_->wait(200ms);
            EXPECT_FALSE(changes.overflow);
            paths.insert(changes.paths.begin(), changes.paths.end());
        }
        for (;;) {
            const platform::TreeChanges changes = watcher_->wait(100ms);
            if (changes.paths.empty()) return paths;
            paths.insert(changes.paths.begin(), changes.paths.end());
        }
    }

    fs::path top_, repo_;
    std::set<std::string> unwanted_{"skip"};
    std::optional<platform::TreeWatcher> watcher_;
};

struct Step {
    std::function<void(const fs::path& repo, const fs::path& outside)> change;
    Paths expected;
};

TEST_F(TreeWatch, ReportsEachChangeOnceByItsPath) {
    const std::vector<std::pair<std::string, std::vector<Step>>> cases = {
        {"file created, changed, removed",
         {{[](auto& r, auto&) { put(r / "new.c"); }, {"new.c"}},
          {[](auto& r, auto&) { put(r / "src/b.c", "changed"); }, {"src/b.c"}},
          {[](auto& r, auto&) { fs::remove(r / "a.c"); }, {"a.c"}}}},
        {"file renamed into another directory",
         {{[](auto& r, auto&) { fs::rename(r / "a.c", r / "src/a.c"); }, {"a.c", "src/a.c"}}}},
        {"directory renamed: its files are reported and watched under the new name",
         {{[](auto& r, auto&) { fs::rename(r / "src", r / "lib"); }, {"lib", "lib/b.c", "src"}},
          {[](auto& r, auto&) { put(r / "lib/c.c"); }, {"lib/c.c"}}}},
        {"new directories with files, the files landing before any watch",
         {{[](auto& r, auto&) { put(r / "n/m/f.c"); }, {"n", "n/m", "n/m/f.c"}},
          {[](auto& r, auto&) { put(r / "n/m/g.c"); }, {"n/m/g.c"}}}},
        {"directory removed, and moved out of the tree",
         {{[](auto& r, auto&) { fs::remove_all(r / "skip"); }, {"skip"}},
          {[](auto& r, auto& o) { fs::rename(r / "src", o / "src"); }, {"src"}},
          {[](auto& r, auto& o) {
               put(o / "src/q.c");
               put(r / "a.c", "sentinel");
           },
           {"a.c"}}}},
        {"nothing through a link, nothing inside an unwanted directory",
         {{[](auto& r, auto& o) {
               put(o / "y.c");
               put(r / "out/z.c");
               put(r / "skip/t.c");
               fs::create_directory(r / "skip/deeper");
               put(r / "a.c", "sentinel");
           },
           {"a.c"}}}},
    };
    for (const auto& [name, steps] : cases) {
        SCOPED_TRACE(name);
        TearDown();
        SetUp();
        ASSERT_TRUE(watcher().native()) << watcher_->description();
        for (const Step& step : steps) {
            step.change(repo_, top_ / "outside");
            EXPECT_EQ(seen(step.expected), step.expected);
        }
    }
}

TEST_F(TreeWatch, RewatchFollowsTheCallersNewRules) {
    watcher();
    EXPECT_EQ(watcher_->description(), "inotify, 2 directories");
    unwanted_ = {"src"};
    watcher_->rewatch("");
    EXPECT_EQ(watcher_->description(), "inotify, 2 directories");
    put(repo_ / "src/b.c", "changed");
    put(repo_ / "skip/s.c", "changed");
    EXPECT_EQ(seen({"skip/s.c"}), Paths{"skip/s.c"});
}

TEST_F(TreeWatch, GivesWayToARescanWhenWatchesRunShort) {
    // Three directories to watch (the root, src and a new one) against a budget of two.
    for (const bool at_start : {true, false}) {
        SCOPED_TRACE(at_start ? "at start" : "while watching");
        TearDown();
        SetUp();
        if (at_start) fs::create_directory(repo_ / "d");
        watcher(2);
        if (!at_start) {
            EXPECT_TRUE(watcher_->native());
            fs::create_directory(repo_ / "d");
            EXPECT_TRUE(watcher_->wait(10s).overflow);
        }
        EXPECT_FALSE(watcher_->native());
        EXPECT_EQ(watcher_->description(), "periodic rescan: more than 2 directories to watch");
        EXPECT_TRUE(watcher_->wait(1ms).overflow);  // each period: look at everything
    }
}

TEST_F(TreeWatch, LostEventsAskForARescanAndWatchingGoesOn) {
    std::ifstream limit("/proc/sys/fs/inotify/max_queued_events");
    std::size_t queued = 0;
    if (!(limit >> queued) || queued > 100'000) GTEST_SKIP() << "inotify's queue is too long";
    watcher();
    // Two events each (made, closed), and a directory made among them.
    for (std::size_t i = 0; i < queued / 2 + 100; ++i) put(repo_ / ("f" + std::to_string(i)));
    fs::create_directory(repo_ / "late");
    bool overflow = false;
    for (int i = 0; i < 100 && !overflow; ++i) overflow = watcher_->wait(200ms).overflow;
    EXPECT_TRUE(overflow);
    EXPECT_TRUE(watcher_->native());
    put(repo_ / "late/f.c");
    EXPECT_EQ(seen({"late/f.c"}), Paths{"late/f.c"});
}

TEST_F(TreeWatch, StopEndsTheWaitNowAndLater) {
    watcher();
    std::thread stopper([this] {
        std::this_thread::sleep_for(50ms);
        watcher_->stop();
    });
    const platform::TreeChanges changes = watcher_->wait(24h);
    stopper.join();
    EXPECT_TRUE(changes.paths.empty());
    put(repo_ / "a.c", "changed");
    EXPECT_TRUE(watcher_->wait(24h).paths.empty());
}

}  // namespace
