#include "tools/progress_bar.h"

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

}  // namespace

bool stderrIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

std::string progressLine(int64_t done, int64_t total, double seconds, int32_t width) {
    const double share =
        total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0)
                  : 0.0;
    const auto filled = static_cast<int32_t>(share * width);
    std::string bar = "[" + std::string(static_cast<size_t>(filled), '#') +
                      std::string(static_cast<size_t>(width - filled), '.') + "]";
    const double fps = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
    char tail[96];
    std::snprintf(tail, sizeof tail, " %lld/%lld frames %5.1f fps", static_cast<long long>(done),
                  static_cast<long long>(total), fps);
    std::string line = bar + tail;
    if (fps > 0 && done < total) {
        line += "  " + clock(static_cast<double>(total - done) / fps) + " left";
    } else if (done >= total) {
        line += "  " + clock(seconds) + " total";
    }
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
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && done < total_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
    lastDraw_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    std::fprintf(stderr, "\r%s\033[K", progressLine(done, total_, seconds, 30).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::finish() {
    update(total_);
    if (drawn_) std::fputs("\n", stderr);
    drawn_ = false;
}

}  // namespace reelfx::tool
