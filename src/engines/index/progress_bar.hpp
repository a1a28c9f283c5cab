#pragma once

#include <chrono>

#include "engines/index/indexer.hpp"

namespace code_index {

// Files done of the total, the rate and the time left, redrawn on one line of a terminal's
// standard error at most ten times a second; nothing at all when standard error is no terminal.
class ProgressBar {
  public:
    ProgressBar();
    ~ProgressBar() { finish(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void update(const IndexProgress& progress);
    // Wipes the bar, so that what follows starts on a clean line.
    void finish();

  private:
    using Clock = std::chrono::steady_clock;
    bool enabled_;
    bool drawn_ = false;
    Clock::time_point started_, last_;
};

}  // namespace code_index
