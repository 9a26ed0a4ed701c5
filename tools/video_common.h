// What the video reader, the video writer and the render loop share: frame
// rates, colour descriptions, stream names and a picture scaler. No FFmpeg
// header leaks out of this file or of the reader's and writer's headers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/host.h"

struct AVStream;
struct AVFrame;

namespace reelfx::tool {

// A frame in FFmpeg's own layout, owned (freed with av_frame_free).
struct AvFrameFree {
    void operator()(AVFrame* f) const;
};
using AvFrameRef = std::unique_ptr<AVFrame, AvFrameFree>;

struct Rational {
    int32_t num = 0;
    int32_t den = 1;
    bool known() const { return num > 0 && den > 0; }
};

// The colour description of YUV pixels, as FFmpeg's enumeration codes
// (2 = unspecified); `fullRange` for JPEG-range YUV.
struct ColourTags {
    int32_t space = 2;
    int32_t primaries = 2;
    int32_t transfer = 2;
    bool fullRange = false;
};
// What RGB pictures (PNG, the built-in clip) become when encoded as YUV, and
// what the module's own AYUV conversion produces.
ColourTags rgbSourceTags();
ColourTags moduleAyuvTags();

// Stamps made to run forward, as a muxer needs them: a stamp at or before
// the last one (a clip joined to another whose stamps start again) or more
// than `maxGap` after it is moved to follow the last by `step`, and the
// stamps after it move with it.
struct SteadyStamps {
    int64_t offset = 0;
    int64_t last = 0;
    bool started = false;
    int64_t moves = 0;  // how many times the stamps were moved
    int64_t next(int64_t stamp, int64_t step, int64_t maxGap) {
        int64_t t = stamp + offset;
        if (started && (t <= last || t - last > maxGap)) {
            offset += last + step - t;
            t = last + step;
            ++moves;
        }
        started = true;
        last = t;
        return t;
    }
};

int32_t streamIndex(const AVStream* stream);
std::string streamCodecName(const AVStream* stream);

// Resizes ARGB words (bicubic).
Picture scaleArgb(const Picture& argb, int32_t width, int32_t height);

}  // namespace reelfx::tool
