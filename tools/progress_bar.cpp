#include "tools/progress_bar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace reelfx::tool {

namespace {

std::string clock(double seconds) {
    const auto s = static_cast<long>(std::max(0.0, std::round(seconds)));
    char buf[32];
    std::snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
    return buf;
}

// The counts after the bar: " 5/10 frames   2.5 fps  0:02 left".
std::string counts(int64_t done, int64_t total, double seconds) {
    const double fps = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
    char buf[96];
    if (total <= 0) {
        std::snprintf(buf, sizeof buf, " %lld frames %5.1f fps  %s", static_cast<long long>(done),
                      fps, clock(seconds).c_str());
        return buf;
    }
    std::snprintf(buf, sizeof buf, " %lld/%lld frames %5.1f fps", static_cast<long long>(done),
                  static_cast<long long>(total), fps);
    std::string line = buf;
    if (fps > 0 && done < total) {
        line += "  " + clock(static_cast<double>(total - done) / fps) + " left";
    } else if (done >= total) {
        line += "  " + clock(seconds) + " total";
    }
    return line;
}

}  // namespace

bool stderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

int32_t terminalColumns() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

std::string progressLine(int64_t done, int64_t total, double seconds, int32_t width) {
    const std::string tail = counts(done, total, seconds);
    if (total <= 0) return tail.substr(1);
    const double share =
        std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0);
    const auto filled = static_cast<int32_t>(share * width);
    return "[" + std::string(static_cast<size_t>(filled), '#') +
           std::string(static_cast<size_t>(width - filled), '.') + "]" + tail;
}

std::string fittedProgressLine(int64_t done, int64_t total, double seconds, int32_t columns) {
    const auto room = static_cast<size_t>(std::max(1, columns - 1));
    const size_t tail = counts(done, total, seconds).size();
    const auto bar = static_cast<int32_t>(
        std::min<int64_t>(30, static_cast<int64_t>(room) - static_cast<int64_t>(tail) - 2));
    // Without room for a bar, the counts alone: "5/10 frames ...".
    std::string line = total > 0 && bar >= 5 ? progressLine(done, total, seconds, bar)
                                             : counts(done, total, seconds).substr(1);
    if (line.size() > room) line.resize(room);
    return line;
}

ProgressBar::ProgressBar(int64_t totalFrames, bool enabled)
    : total_(totalFrames),
      enabled_(enabled),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {}

ProgressBar::~ProgressBar() {
    if (drawn_) std::fputs("\n", stderr);
}

void ProgressBar::update(int64_t done) {
    done_ = done;
    draw(total_ > 0 && done >= total_);
}

void ProgressBar::draw(bool force) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && !force && now - lastDraw_ < std::chrono::milliseconds(100)) return;
    lastDraw_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    // The width is read on every draw: the window may have been resized.
    std::fprintf(stderr, "\r%s\033[K",
                 fittedProgressLine(done_, total_, seconds, terminalColumns()).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::finish() {
    if (total_ > 0) done_ = total_;
    draw(true);
    if (drawn_) std::fputs("\n", stderr);
    drawn_ = false;
}

}  // namespace reelfx::tool
