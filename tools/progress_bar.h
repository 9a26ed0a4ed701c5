// A one-line progress bar on standard error: frames, speed and time left.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace reelfx::tool {

class ProgressBar {
public:
    // Draws only when `enabled` (standard error is a terminal and not --quiet).
    ProgressBar(int64_t totalFrames, bool enabled);
    ~ProgressBar();
    void update(int64_t framesDone);
    void finish();

private:
    int64_t total_;
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDraw_;
};

// The bar's text for a known state, without terminal control characters.
std::string progressLine(int64_t done, int64_t total, double seconds, int32_t width);

bool stderrIsTerminal();

}  // namespace reelfx::tool
