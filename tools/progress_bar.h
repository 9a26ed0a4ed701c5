// A one-line progress bar on standard error: frames, speed and time left,
// fitted to the terminal's width. Without a known total (streamed input) it
// shows frames, speed and time so far.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace reelfx::tool {

class ProgressBar {
public:
    // Draws only when `enabled` (standard error is a terminal and not
    // --quiet); `totalFrames` 0 or less when the total is not known.
    ProgressBar(int64_t totalFrames, bool enabled);
    ~ProgressBar();
    void update(int64_t framesDone);
    void finish();

private:
    void draw(bool force);

    int64_t total_;
    int64_t done_ = 0;
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDraw_;
};

// The bar's text for a known state, without terminal control characters:
// a bar `width` characters wide between brackets, then the counts; no bar
// when `total` is 0 or less.
std::string progressLine(int64_t done, int64_t total, double seconds, int32_t width);
// The same fitted into `columns` terminal columns (at most columns - 1
// characters, so the cursor never wraps): the bar shrinks, up to 30 wide,
// and goes when fewer than 5 would be left for it.
std::string fittedProgressLine(int64_t done, int64_t total, double seconds, int32_t columns);

bool stderrIsTerminal();
// Columns of the terminal on standard error; 80 when it does not say.
int32_t terminalColumns();

}  // namespace reelfx::tool
