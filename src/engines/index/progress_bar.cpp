#include "engines/index/progress_bar.hpp"

#include <cmath>
#include <cstdio>
#include <string>

#include "platform/io.hpp"
#include "platform/terminal.hpp"
#include "support/text.hpp"

namespace code_index {

namespace {

std::string clock_text(double seconds) {
    const auto s = static_cast<long>(std::lround(std::max(seconds, 0.0)));
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
    return text;
}

void write(const std::string& text) {
    try {
        platform::write_stderr(text);
    } catch (...) {
    }
}

}  // namespace

ProgressBar::ProgressBar() : enabled_(platform::stderr_is_terminal()), started_(Clock::now()) {}

void ProgressBar::finish() {
    if (drawn_) write("\r\033[K");
    drawn_ = false;
}

void ProgressBar::update(const IndexProgress& p) {
    if (!enabled_ || p.total == 0) return;
    const auto now = Clock::now();
    if (drawn_ && now - last_ < std::chrono::milliseconds(100) && p.done < p.total) return;
    last_ = now;
    const double elapsed = std::chrono::duration<double>(now - started_).count();
    const double rate = elapsed > 0.2 ? static_cast<double>(p.done) / elapsed : 0;
    constexpr int kWidth = 24;
    const int filled = static_cast<int>(kWidth * p.done / p.total);
    std::string line = "\rindexing [" + std::string(static_cast<std::size_t>(filled), '#') +
                       std::string(static_cast<std::size_t>(kWidth - filled), '.') + "] " +
                       support::grouped(p.done) + "/" + support::grouped(p.total) + " files";
    if (rate > 0) {
        line += "  " + support::grouped(std::llround(rate)) + " files/s  " +
                clock_text(static_cast<double>(p.total - p.done) / rate) + " left";
    }
    write(line + "\033[K");
    drawn_ = true;
}

}  // namespace code_index
