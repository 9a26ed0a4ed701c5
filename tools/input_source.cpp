#include "tools/input_source.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>

namespace reelfx::tool {

namespace {

namespace fs = std::filesystem;

// One picture read by FFmpeg's image readers rather than a clip.
bool isSingleImage(const VideoInfo& info) {
    const std::string& c = info.container;
    const bool pipe = c.size() > 5 && c.compare(c.size() - 5, 5, "_pipe") == 0;
    // Standard input is not counted ahead: an image there is one picture.
    if (info.streamed) return pipe;
    return (c == "image2" || pipe) && info.frameTimes.size() == 1;
}

}  // namespace

Source openSource(const RenderRequest& rq) {
    Source s;
    const FrameRate rate = rq.fps ? parseFrameRate(*rq.fps) : FrameRate{};
    const double fps = rate.value();
    const auto duration = rq.duration.value_or(3.0);
    if (!(duration > 0 && duration <= 36000))
        throw UsageError("--duration takes seconds from above 0 to 36000");
    s.clip.fps = fps;
    s.clip.duration = duration;
    if (rq.input.empty()) {
        s.kind = Source::Kind::Clip;
        s.name = "the built-in test clip";
        if (rq.size) {
            const Size size = parseSize(*rq.size);
            s.clip.width = size.width;
            s.clip.height = size.height;
        }
        s.width = s.clip.width;
        s.height = s.clip.height;
    } else {
        if (rq.size)
            throw UsageError("--size sets the size of the built-in test clip; it takes no INPUT");
        s.name = rq.input;
        const bool sequence = isImageSequence(rq.input);
        if (rq.input == "-") {
            if (isatty(STDIN_FILENO)) {
                throw UsageError(
                    "- reads YUV4MPEG2 video from standard input, which is a terminal; pipe "
                    "video in, as in: ffmpeg -i IN -f yuv4mpegpipe - | reelfx render EFFECT -");
            }
            s.name = "standard input";
        } else {
            std::error_code ec;
            if (fs::is_directory(rq.input, ec))
                throw std::runtime_error("cannot read " + rq.input + ": it is a folder");
        }
        s.kind = Source::Kind::Video;
        s.reader = std::make_unique<VideoReader>(
            rq.input, sequence && rq.fps ? Rational{rate.num, rate.den} : Rational{});
        // Still images FFmpeg reads (PNG, JPEG, BMP, TIFF, WebP, ...) are
        // written as a still, or repeated into a clip.
        if (isSingleImage(s.reader->info())) {
            DecodedFrame frame;
            if (!s.reader->next(frame, kFourccArgb)) {
                const std::string damage = s.reader->damage();
                throw std::runtime_error(s.name + " holds no picture that can be decoded" +
                                         (damage.empty() ? "" : " (" + damage + ")"));
            }
            s.kind = Source::Kind::Still;
            s.still = std::move(frame.picture);
            s.reader.reset();
        }
        if (s.kind == Source::Kind::Still) {
            s.width = s.still.width;
            s.height = s.still.height;
        } else {
            // An image sequence takes its frame rate from --fps.
            if (rq.duration || (rq.fps && !sequence)) {
                throw UsageError(
                    "--duration and --fps make a clip from a still or the built-in clip (--fps "
                    "also sets the rate of an image sequence); " +
                    s.name + " is a video");
            }
            const VideoInfo& info = s.reader->info();
            s.width = info.width;
            s.height = info.height;
            s.times = info.frameTimes;
            s.frameRate = info.frameRate;
            s.timeBase = info.timeBase;
            s.sampleAspect = info.sampleAspect;
        }
    }
    if (s.generated()) {
        s.frameRate = Rational{rate.num, rate.den};
        s.timeBase = Rational{s.frameRate.den, s.frameRate.num};
        const int32_t n = clipFrameCount(s.clip);
        for (int32_t i = 0; i < n; ++i) s.times.push_back(static_cast<double>(i) / fps);
    }
    return s;
}

bool nextFrame(Source& s, uint32_t fourcc, DecodedFrame& out, const PacketSink& others,
               bool leaveDecoded) {
    if (s.kind == Source::Kind::Video) return s.reader->next(out, fourcc, others, leaveDecoded);
    if (s.next >= static_cast<int64_t>(s.times.size())) return false;
    const auto k = static_cast<int32_t>(s.next++);
    Picture argb = s.kind == Source::Kind::Clip ? makeClipFrame(s.clip, k) : s.still;
    out.picture = fourcc == kFourccAyuv ? toAyuv(argb) : std::move(argb);
    out.pts = k;
    out.time = s.times[static_cast<size_t>(k)];
    return true;
}

std::optional<size_t> framesInSpan(const Source& s, const Span& span) {
    if (!s.streamed()) {
        return static_cast<size_t>(std::count_if(s.times.begin(), s.times.end(),
                                                 [&](double t) { return span.contains(t); }));
    }
    if (!std::isfinite(span.end) || !s.frameRate.known()) return std::nullopt;
    // Frame k arrives at k / rate, reckoned as the reader reckons its times;
    // the first and last k inside the span are found near their estimates.
    const Rational r = s.frameRate;
    auto timeOf = [&](double k) { return k * r.den / r.num; };
    const double rate = static_cast<double>(r.num) / r.den;
    // An end further than any stream goes (--span 0:1e18) counts frames
    // that doubles no longer tell apart: the length is as good as unknown.
    if (span.end * rate > 1e12) return std::nullopt;
    double first = std::max(0.0, std::floor(span.start * rate) - 1);
    double last = std::floor(span.end * rate) + 1;
    for (int i = 0; i < 4 && first <= last && !span.contains(timeOf(first)); ++i) ++first;
    for (int i = 0; i < 4 && last >= first && !span.contains(timeOf(last)); ++i) --last;
    if (last < first || !span.contains(timeOf(first))) return size_t{0};
    return static_cast<size_t>(last - first + 1);
}

}  // namespace reelfx::tool
