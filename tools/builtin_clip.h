// The built-in clip: moving colour bars, gradients, fine detail, noise
// and text, so the tool works without any input file.
#pragma once

#include <cstdint>

#include "host/host.h"

namespace reelfx::tool {

struct ClipSettings {
    int32_t width = 640;
    int32_t height = 360;
    double fps = 25.0;
    double duration = 3.0;  // seconds
};

int32_t clipFrameCount(const ClipSettings& clip);
// Frame `frame` of the clip, opaque ARGB.
Picture makeClipFrame(const ClipSettings& clip, int32_t frame);

// Releases Cairo's and fontconfig's font caches; called once at exit so
// leak checkers see only our own allocations.
void releaseFontCaches();

}  // namespace reelfx::tool
