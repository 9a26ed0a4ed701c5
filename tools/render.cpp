#include "tools/render.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include "tools/image_io.h"
#include "tools/output_file.h"
#include "tools/params.h"
#include "tools/progress_bar.h"
#include "tools/sheet.h"
#include "tools/test_clip.h"
#include "tools/video_reader.h"
#include "tools/video_writer.h"

namespace reelfx::tool {

namespace {

namespace fs = std::filesystem;

std::string lowerExtension(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

bool isStillName(const std::string& path) {
    return path != "-" && lowerExtension(path) == ".png";
}

uint32_t fourccOf(const std::string& format) {
    return format == "ayuv" ? kFourccAyuv : kFourccArgb;
}

// Standard input copied to a temporary file, so it can be read twice (the
// frame count first, then the frames) and probed like any file.
class SpooledInput {
public:
    SpooledInput() : path_(makeTemporaryFile("stdin")) {
        const int out = ::open(path_.c_str(), O_WRONLY | O_TRUNC);
        if (out < 0)
            throw std::runtime_error("cannot spool standard input: " +
                                     std::string(std::strerror(errno)));
        char buf[1 << 16];
        while (true) {
            const ssize_t n = ::read(STDIN_FILENO, buf, sizeof buf);
            if (n == 0) break;
            if (n < 0) {
                if (errno == EINTR && !interrupted()) continue;
                ::close(out);
                throwIfInterrupted();
                throw std::runtime_error("cannot read standard input: " +
                                         std::string(std::strerror(errno)));
            }
            if (::write(out, buf, static_cast<size_t>(n)) != n) {
                ::close(out);
                throw std::runtime_error("cannot spool standard input: " +
                                         std::string(std::strerror(errno)));
            }
        }
        ::close(out);
    }
    ~SpooledInput() {
        std::error_code ec;
        fs::remove(path_, ec);
    }
    SpooledInput(const SpooledInput&) = delete;
    SpooledInput& operator=(const SpooledInput&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// One picture read by FFmpeg's image readers rather than a clip.
bool isSingleImage(const VideoInfo& info) {
    const std::string& c = info.container;
    const bool imageReader =
        c == "image2" || (c.size() > 5 && c.compare(c.size() - 5, 5, "_pipe") == 0);
    return imageReader && info.frameTimes.size() == 1;
}

// Where frames come from: the built-in clip, a still (repeated when a video
// is written), or a video file.
struct Source {
    enum class Kind { Clip, Still, Video } kind = Kind::Clip;
    std::string name;  // for messages
    std::unique_ptr<SpooledInput> spooled;
    Picture still;  // ARGB
    std::unique_ptr<VideoReader> reader;
    ClipSettings clip;  // size of the built-in clip; rate and length of generated frames
    int32_t width = 0;
    int32_t height = 0;
    std::vector<double> times;
    Rational frameRate;
    Rational timeBase;
    Rational sampleAspect;
    int64_t next = 0;  // generated frames handed out so far

    bool generated() const { return kind != Kind::Video; }
};

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
        std::string path = rq.input;
        s.name = rq.input;
        if (rq.input == "-") {
            if (isatty(STDIN_FILENO)) {
                throw UsageError(
                    "- reads YUV4MPEG2 video from standard input, which is a terminal; pipe "
                    "video in, as in: ffmpeg -i IN -f yuv4mpegpipe - | reelfx render EFFECT -");
            }
            s.spooled = std::make_unique<SpooledInput>();
            path = s.spooled->path();
            s.name = "standard input";
        } else {
            std::error_code ec;
            if (fs::is_directory(rq.input, ec))
                throw std::runtime_error("cannot read " + rq.input + ": it is a folder");
        }
        if (isPngFile(path)) {
            s.kind = Source::Kind::Still;
            s.still = readPng(path);
        } else {
            s.kind = Source::Kind::Video;
            s.reader = std::make_unique<VideoReader>(path);
            // Other still images FFmpeg reads (JPEG, BMP, TIFF, WebP, ...) are
            // stills like PNG: written as PNG, or repeated into a clip.
            if (isSingleImage(s.reader->info())) {
                DecodedFrame frame;
                if (!s.reader->next(frame, kFourccArgb))
                    throw std::runtime_error(s.name + " holds no picture");
                s.kind = Source::Kind::Still;
                s.still = std::move(frame.picture);
                s.reader.reset();
            }
        }
        if (s.kind == Source::Kind::Still) {
            s.width = s.still.width;
            s.height = s.still.height;
        } else {
            if (rq.duration || rq.fps) {
                throw UsageError(
                    "--duration and --fps make a clip from a still or the built-in clip; " +
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

// The next frame of the source as `fourcc` words.
bool nextFrame(Source& s, uint32_t fourcc, DecodedFrame& out, const PacketSink& others) {
    if (s.kind == Source::Kind::Video) return s.reader->next(out, fourcc, others);
    if (s.next >= static_cast<int64_t>(s.times.size())) return false;
    const auto k = static_cast<int32_t>(s.next++);
    Picture argb = s.kind == Source::Kind::Clip ? makeClipFrame(s.clip, k) : s.still;
    out.picture = fourcc == kFourccAyuv ? toAyuv(argb) : std::move(argb);
    out.pts = k;
    out.time = s.times[static_cast<size_t>(k)];
    return true;
}

// The instance, its parameter settings and the per-frame options.
struct Renderer {
    Instance& instance;
    std::vector<ParameterSetting> settings;
    RenderOptions base;

    Picture render(const Picture& source, double progress) {
        for (const ParameterSetting& s : settings)
            instance.setParameter(s.slot, valueAt(s, progress));
        RenderOptions o = base;
        o.progress = progress;
        Picture target(source.width, source.height);
        if (instance.render(&source, target, o) != 0)
            throw std::runtime_error("the module refused to render");
        return target;
    }
};

size_t countInSpan(const std::vector<double>& times, const Span& span) {
    return static_cast<size_t>(
        std::count_if(times.begin(), times.end(), [&](double t) { return span.contains(t); }));
}

std::string seconds(double t) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.3g s", t);
    return buf;
}

void say(bool quiet, const std::string& text) {
    if (!quiet) std::fprintf(stderr, "reelfx: %s\n", text.c_str());
}

void writeStill(const std::string& outputPath, const Picture& words, uint32_t fourcc) {
    if (outputPath == "-")
        throw UsageError("a PNG cannot go to standard output; - writes YUV4MPEG2 video");
    OutputFile out(outputPath);
    writePng(out.path(), fourcc == kFourccAyuv ? toArgb(words) : words);
    out.commit();
}

void renderStill(Source& src, Renderer& r, const RenderRequest& rq, const Span& span,
                 uint32_t fourcc, const std::string& outputPath, const std::string& effectName) {
    const double progress = rq.progress.value_or(0.5);
    if (src.kind == Source::Kind::Still) {
        const Picture source = fourcc == kFourccAyuv ? toAyuv(src.still) : src.still;
        writeStill(outputPath, r.render(source, progress), fourcc);
        say(rq.quiet, "wrote " + outputPath + " (" + effectName + " at progress " +
                          formatNumber(progress) + ")");
        return;
    }
    // From a clip: the frame of the span nearest the progress.
    const size_t n = countInSpan(src.times, span);
    if (n == 0) throw UsageError("no frame of " + src.name + " lies in the span");
    const auto wanted = static_cast<size_t>(std::lround(progress * static_cast<double>(n - 1)));
    DecodedFrame frame;
    size_t i = 0;
    while (nextFrame(src, fourcc, frame, {})) {
        throwIfInterrupted();
        if (!span.contains(frame.time)) continue;
        if (i++ == wanted) {
            writeStill(outputPath, r.render(frame.picture, progress), fourcc);
            say(rq.quiet, "wrote " + outputPath + " (" + effectName + " at progress " +
                              formatNumber(progress) + ", frame at " + seconds(frame.time) + ")");
            return;
        }
    }
    throw std::runtime_error(src.name + " ended before the frame at progress " +
                             formatNumber(progress));
}

void renderVideo(Source& src, Renderer& r, const RenderRequest& rq, const Span& span,
                 uint32_t fourcc, const std::string& outputPath, const std::string& effectName) {
    const size_t n = countInSpan(src.times, span);
    if (n == 0) {
        throw UsageError("no frame of " + src.name + " lies in --span " + rq.span.value_or("") +
                         "; it runs from 0 to " + seconds(src.times.back()));
    }
    OutputFile out(outputPath);
    VideoOutputSettings settings;
    settings.path = out.path();
    settings.containerName = outputPath;
    settings.width = src.width;
    settings.height = src.height;
    settings.frameRate = src.frameRate;
    settings.timeBase = src.timeBase;
    settings.sampleAspect = src.sampleAspect;
    settings.fourcc = fourcc;
    settings.codec = rq.codec;
    settings.pixelFormat = rq.pixelFormat;
    // YUV video keeps its colour description (its pixels pass through as
    // they are); RGB pictures get the one their conversion used.
    if (src.kind == Source::Kind::Video && !src.reader->info().rgb) {
        settings.colour = src.reader->info().colour;
        settings.colour.fullRange = false;
        settings.sourcePixelFormat = src.reader->info().pixelFormat;
    } else {
        settings.colour = fourcc == kFourccAyuv ? moduleAyuvTags() : rgbSourceTags();
    }
    VideoWriter writer(settings);

    std::map<int32_t, int32_t> copied;  // input stream -> output stream
    if (src.kind == Source::Kind::Video && !rq.noAudio) {
        const auto audio = src.reader->audioStreams();
        for (const AVStream* st : audio) {
            if (writer.canCopy(st)) {
                copied[streamIndex(st)] = writer.addCopiedStream(st);
            } else if (writer.isYuv4mpeg()) {
                say(rq.quiet, "YUV4MPEG2 carries no audio: " + std::to_string(audio.size()) +
                                  " audio stream(s) left out");
                break;
            } else {
                throw UsageError("the " + writer.container() + " container cannot hold the " +
                                 streamCodecName(st) + " audio of " + src.name +
                                 "; write .mkv, or leave the audio out with --no-audio");
            }
        }
    }
    const PacketSink audioSink = [&](AVPacket* packet, const AVStream* st) {
        const auto it = copied.find(streamIndex(st));
        if (it != copied.end()) writer.writePacket(packet, st, it->second);
    };

    ProgressBar bar(static_cast<int64_t>(src.times.size()), !rq.quiet && stderrIsTerminal());
    DecodedFrame frame;
    size_t inSpan = 0;
    int64_t done = 0;
    while (nextFrame(src, fourcc, frame, audioSink)) {
        throwIfInterrupted();
        // Progress runs from 0 on the span's first frame to 1 on its last;
        // frames outside the span pass through unchanged.
        if (span.contains(frame.time) && inSpan < n) {
            const double progress =
                n > 1 ? std::min(1.0, static_cast<double>(inSpan) / static_cast<double>(n - 1))
                      : 0.0;
            ++inSpan;
            writer.writeFrame(r.render(frame.picture, progress), frame.pts);
        } else {
            writer.writeFrame(frame.picture, frame.pts);
        }
        bar.update(++done);
    }
    writer.finish();
    out.commit();
    bar.finish();
    say(rq.quiet, "wrote " + outputPath + ": " + std::to_string(done) + " frames, " +
                      std::to_string(inSpan) + " with " + effectName +
                      (copied.empty() ? "" : ", audio copied") + "; " + writer.description());
}

}  // namespace

std::string effectSlug(const std::string& name) {
    std::string out;
    for (char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else if (!out.empty() && out.back() != '-') {
            out += '-';
        }
    }
    while (!out.empty() && out.back() == '-') out.pop_back();
    return out;
}

std::string defaultOutputName(const std::string& input, bool stillInput,
                              const std::string& effectName) {
    if (input.empty()) return effectSlug(effectName) + ".mp4";
    if (input == "-") return "-";
    const fs::path p(input);
    std::string ext = stillInput ? ".png" : p.extension().string();
    if (ext.empty()) ext = ".mkv";
    return p.stem().string() + "-" + effectSlug(effectName) + ext;
}

void runRender(const Module& module, const RenderRequest& rq) {
    const std::vector<EffectInfo> catalogue = module.catalogue();
    const int32_t effect = findEffect(catalogue, rq.effect);
    const std::string effectName = catalogue[static_cast<size_t>(effect)].name;
    const uint32_t fourcc = fourccOf(rq.format);
    const Span span = rq.span ? parseSpan(*rq.span) : Span{};
    if (rq.progress && !(*rq.progress >= 0.0 && *rq.progress <= 1.0)) {
        throw UsageError("--progress takes a value from 0 to 1");
    }

    RenderOptions base;
    base.format = fourcc;
    if (rq.displayAspect) base.displayAspect = parseAspect(*rq.displayAspect, "--display-aspect");
    if (rq.pictureAspect) {
        const PictureAspect a = parsePictureAspect(*rq.pictureAspect);
        base.aspectFitting = true;
        base.aspectPreset = a.preset;
        base.pictureAspect = a.aspect;
    }

    Source src = openSource(rq);
    const std::string outputPath =
        rq.output.empty() ? defaultOutputName(rq.input, src.kind == Source::Kind::Still, effectName)
                          : rq.output;
    if (outputPath == "-" && isatty(STDOUT_FILENO)) {
        throw UsageError(
            "-o - writes YUV4MPEG2 video to standard output, which is a terminal; pipe it on, "
            "as in: reelfx render EFFECT IN -o - | ffplay -");
    }
    const bool stillOutput = isStillName(outputPath);
    if (!stillOutput && !knownVideoContainer(outputPath)) {
        throw UsageError("cannot tell a video format from the name " + outputPath +
                         " (use .png, .mp4, .mkv, .mov, or - for YUV4MPEG2 on standard output)");
    }
    if (rq.progress && !stillOutput) {
        throw UsageError(
            "--progress renders a still (.png output); in a video progress runs from 0 to 1 over "
            "the span");
    }
    if (rq.span && stillOutput && src.kind == Source::Kind::Still) {
        throw UsageError("--span needs a video: a still has no time (use --progress for a still)");
    }
    if (!rq.input.empty() && rq.input != "-" && outputPath != "-") {
        std::error_code ec;
        if (fs::equivalent(rq.input, outputPath, ec))
            throw UsageError("the output would overwrite the input");
    }
    // Asked before the work, not after it.
    confirmOverwrite(outputPath);
    // A video's sample aspect ratio makes its display aspect differ from its
    // pixel size; the host hands the module the shape as shown.
    if (!rq.displayAspect && src.sampleAspect.known() &&
        src.sampleAspect.num != src.sampleAspect.den) {
        base.displayAspect = static_cast<double>(int64_t{src.width} * src.sampleAspect.num) /
                             static_cast<double>(int64_t{src.height} * src.sampleAspect.den);
    }

    Instance instance(module, effect, src.width, src.height);
    Renderer r{instance, parseSettings(effectName, instance.parameters(), rq.params), base};
    if (stillOutput) {
        renderStill(src, r, rq, span, fourcc, outputPath, effectName);
    } else {
        renderVideo(src, r, rq, span, fourcc, outputPath, effectName);
    }
}

void runSheet(const Module& module, const SheetRequest& rq) {
    if (!isStillName(rq.output)) throw UsageError("the contact sheet is a PNG: give -o NAME.png");
    if (!(rq.progress >= 0.0 && rq.progress <= 1.0))
        throw UsageError("--progress takes a value from 0 to 1");
    if (rq.tileWidth < 16 || rq.tileWidth > 4096)
        throw UsageError("--tile-width takes 16 to 4096 pixels");
    if (rq.columns < 1 || rq.columns > 25) throw UsageError("--columns takes 1 to 25");
    confirmOverwrite(rq.output);
    Picture tile;
    if (rq.input.empty()) {
        ClipSettings clip;
        clip.width = rq.tileWidth;
        clip.height = std::max(1, rq.tileWidth * 9 / 16);
        tile = makeClipFrame(clip, 0);
    } else {
        RenderRequest probe;
        probe.input = rq.input;
        Source src = openSource(probe);
        Picture picture;
        if (src.kind == Source::Kind::Still) {
            picture = src.still;
        } else {
            DecodedFrame frame;
            if (!nextFrame(src, kFourccArgb, frame, {}))
                throw std::runtime_error(src.name + " holds no frame");
            picture = std::move(frame.picture);
        }
        const int32_t h = std::max<int32_t>(
            1, static_cast<int32_t>(std::lround(static_cast<double>(rq.tileWidth) * picture.height /
                                                picture.width)));
        tile = scaleArgb(picture, rq.tileWidth, h);
    }
    SheetOptions options;
    options.progress = rq.progress;
    options.format = fourccOf(rq.format);
    options.columns = rq.columns;
    const Picture sheet = makeSheet(module, tile, options);
    OutputFile out(rq.output);
    writePng(out.path(), sheet);
    out.commit();
    say(rq.quiet, "wrote " + rq.output + " (" + std::to_string(sheet.width) + "x" +
                      std::to_string(sheet.height) + ")");
}

}  // namespace reelfx::tool
