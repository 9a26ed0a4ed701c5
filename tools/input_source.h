// Where `reelfx render` and `reelfx sheet` take their frames from: the
// built-in clip, a still (repeated when a video is written), a video file,
// a numbered image sequence, or standard input read as it arrives.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "tools/builtin_clip.h"
#include "tools/params.h"
#include "tools/render.h"
#include "tools/video_reader.h"

namespace reelfx::tool {

struct Source {
    enum class Kind { Clip, Still, Video } kind = Kind::Clip;
    std::string name;  // for messages
    Picture still;     // ARGB
    std::unique_ptr<VideoReader> reader;
    ClipSettings clip;  // size of the built-in clip; rate and length of generated frames
    int32_t width = 0;
    int32_t height = 0;
    std::vector<double> times;  // every frame's time; empty for a stream
    Rational frameRate;
    Rational timeBase;
    Rational sampleAspect;
    int64_t next = 0;  // generated frames handed out so far

    bool generated() const { return kind != Kind::Video; }
    bool streamed() const { return kind == Kind::Video && reader->info().streamed; }
};

// Throws UsageError for options that do not fit the input and
// std::runtime_error for input that cannot be read.
Source openSource(const RenderRequest& rq);

// The next frame of the source as `fourcc` words; false at the end. With
// `leaveDecoded` a video's frame stays in the decoder's layout (see
// VideoReader::next); generated frames are words either way.
bool nextFrame(Source& s, uint32_t fourcc, DecodedFrame& out, const PacketSink& others,
               bool leaveDecoded = false);

// How many frames lie in `span`. A stream's frames are foretold from its
// frame rate, which needs the span's end; without one the count is unknown.
std::optional<size_t> framesInSpan(const Source& s, const Span& span);

}  // namespace reelfx::tool
