#include "tools/render.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

#include "host/names.h"
#include "tools/av_support.h"
#include "tools/builtin_clip.h"
#include "tools/chunk_meta.h"
#include "tools/decode_ahead.h"
#include "tools/encode_behind.h"
#include "tools/image_io.h"
#include "tools/input_source.h"
#include "tools/output_file.h"
#include "tools/params.h"
#include "tools/progress_bar.h"
#include "tools/render_workers.h"
#include "tools/sheet.h"
#include "tools/video_reader.h"
#include "tools/video_writer.h"

namespace reelfx::tool {

namespace {

namespace fs = std::filesystem;

std::string lowerExtension(const std::string& path) {
    return toLower(fs::path(path).extension().string());
}

// One picture: .png through libpng, the other picture names through
// FFmpeg's image encoders. "out_%04d.png" is a sequence, written as video.
bool isStillName(const std::string& path) {
    if (path == "-" || isPictureSequence(path)) return false;
    const std::string ext = lowerExtension(path);
    for (const char* still :
         {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".ppm", ".pgm", ".pam", ".tga"}) {
        if (ext == still) return true;
    }
    return false;
}

uint32_t fourccOf(const std::string& format) {
    return format == "ayuv" ? kFourccAyuv : kFourccArgb;
}

// The instance, its parameter settings and the per-frame options.
struct Renderer {
    Instance& instance;
    std::vector<ParameterSetting> settings;
    RenderOptions base;

    Picture target;  // kept from frame to frame, cleared before each render

    const Picture& render(const Picture& source, double progress) {
        renderInto(source, progress, target);
        return target;
    }
    // Into `out`, whose buffer is used again when its shape fits.
    void renderInto(const Picture& source, double progress, Picture& out) {
        for (const ParameterSetting& s : settings)
            instance.setParameter(s.slot, valueAt(s, progress));
        RenderOptions o = base;
        o.progress = progress;
        if (out.width != source.width || out.height != source.height ||
            out.stride != source.stride || out.words.size() != source.words.size()) {
            out = Picture(source.width, source.height, source.stride);
        } else {
            std::fill(out.words.begin(), out.words.end(), 0u);
        }
        if (instance.render(&source, out, o) != 0)
            throw std::runtime_error("the module refused to render");
    }
};

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
        throw UsageError("a picture cannot go to standard output; - writes YUV4MPEG2 video");
    OutputFile out(outputPath);
    const Picture argb = fourcc == kFourccAyuv ? toArgb(words) : words;
    if (lowerExtension(outputPath) == ".png") {
        writePng(out.path(), argb, outputPath);
    } else {
        writePicture(out.path(), outputPath, argb);
    }
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
    const std::optional<size_t> count = framesInSpan(src, span);
    if (!count) {
        throw UsageError("a still from " + src.name +
                         " needs the end of --span START:END: a stream's length is not known "
                         "before it ends");
    }
    const size_t n = *count;
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
    const std::string damage = src.reader ? src.reader->damage() : std::string();
    throw std::runtime_error(src.name + " ended before the frame at progress " +
                             formatNumber(progress) +
                             (damage.empty() ? std::string() : " (" + damage + ")"));
}

// One frame's length in the source's time base (at least 1).
int64_t frameStep(const Source& src) {
    const Rational rate = src.frameRate.known() ? src.frameRate : Rational{25, 1};
    const Rational tb = src.timeBase.known() ? src.timeBase : Rational{rate.den, rate.num};
    const double step =
        static_cast<double>(rate.den) * tb.den / (static_cast<double>(rate.num) * tb.num);
    return std::max<int64_t>(1, std::llround(step));
}

// Where the frames go: the container and encoder follow the output name
// and the options; the source's colour description, tags, rotation and
// field order go along.
VideoOutputSettings outputSettings(const Source& src, const RenderRequest& rq, uint32_t fourcc,
                                   const OutputFile& out) {
    VideoOutputSettings settings;
    settings.path = out.path();
    settings.containerName = out.finalPath();
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
    if (src.kind == Source::Kind::Video) {
        settings.sourceContainer = src.reader->formatContext();
        settings.sourceVideoStream = src.reader->videoStream();
    }
    return settings;
}

// Copies of the input's other streams that the container takes; one line
// names those left out. Returns input stream -> output stream.
std::map<int32_t, int32_t> addOtherStreams(const Source& src, VideoWriter& writer,
                                           const RenderRequest& rq, const std::string& outputPath,
                                           bool copy) {
    std::map<int32_t, int32_t> copied;
    if (src.kind == Source::Kind::Video && copy) {
        std::vector<std::string> leftOut;
        copied = writer.addCopiedStreams(src.reader->formatContext(), src.reader->videoStream(),
                                         !rq.noAudio, src.name, leftOut);
        if (!leftOut.empty()) {
            std::string line = "left out of " + outputPath + ": ";
            for (size_t i = 0; i < leftOut.size(); ++i) line += (i ? "; " : "") + leftOut[i];
            say(rq.quiet, line);
        }
    }
    for (const std::string& notice : writer.notices()) say(rq.quiet, notice);
    return copied;
}

struct FramesDone {
    int64_t frames = 0;      // handed to the encoder
    size_t inSpan = 0;       // of them, rendered through the effect
    int64_t stampMoves = 0;  // times the stamps started again or jumped
};

// Progress runs from 0 on the span's first frame to 1 on its last.
double progressAt(size_t inSpan, size_t n) {
    return n > 1 ? std::min(1.0, static_cast<double>(inSpan) / static_cast<double>(n - 1)) : 0.0;
}

// An effect with state renders the span's frames before a chunk, unwritten,
// on a blank picture of the frame's size: its state follows the parameters,
// the size and the progress, never the pixels, so those frames are not decoded.
void replayBeforeChunk(Renderer& r, const Source& src, const ChunkWindow& window, size_t n) {
    if (!window.replay) return;
    const Picture blank(src.width, src.height);
    Picture replayed;
    for (size_t i = 0; i < window.spanBefore; ++i) {
        throwIfInterrupted();
        r.renderInto(blank, progressAt(i, n), replayed);
    }
}

template <class T>
T takeSpare(std::vector<T>& spares) {
    if (spares.empty()) return T();
    T t = std::move(spares.back());
    spares.pop_back();
    return t;
}

// Hands frames to the encoder in the order they were read: rendered here
// (the decoding and encoding threads convert the pixels), or, with several
// renderers, on workers at once, which then also convert the decoded frames
// into the module's words and the words into the encoder's frames, so that
// the conversions scale with the workers.
struct FrameOutlet {
    Renderer& r;
    std::vector<Renderer>& more;
    EncodeBehind& encoder;
    ProgressBar& bar;
    FramesDone& done;
    const VideoInfo* decodedInfo;  // of the frames that come decoded, if any
    uint32_t fourcc;
    std::vector<std::unique_ptr<DecodeConversion>> fromDecoder;  // per worker
    std::vector<std::unique_ptr<EncodeConversion>> toEncoder;    // per worker
    // Buffers back from the workers, used again.
    std::vector<Picture> spareSources, spareTargets;
    std::vector<AvFrameRef> spareDecoded;
    // Last, so that when an error ends the run the workers are stopped
    // before the conversions they use are freed.
    std::optional<RenderWorkers> workers;

    FrameOutlet(Renderer& first, std::vector<Renderer>& others, EncodeBehind& to,
                ProgressBar& progress, FramesDone& counts, const Source& src, uint32_t format)
        : r(first),
          more(others),
          encoder(to),
          bar(progress),
          done(counts),
          decodedInfo(src.kind == Source::Kind::Video ? &src.reader->info() : nullptr),
          fourcc(format) {
        if (more.empty()) return;
        for (size_t w = 0; w <= more.size(); ++w) {
            fromDecoder.push_back(std::make_unique<DecodeConversion>());
            toEncoder.push_back(std::make_unique<EncodeConversion>());
        }
        workers.emplace(more.size() + 1,
                        [this](size_t w, RenderWorkers::Work& job) { work(w, job); });
    }
    FrameOutlet(const FrameOutlet&) = delete;
    FrameOutlet& operator=(const FrameOutlet&) = delete;

    // On worker `w`'s thread.
    void work(size_t w, RenderWorkers::Work& job) {
        if (job.decoded)
            convertDecoded(job.decoded.get(), *decodedInfo, fourcc, job.source, *fromDecoder[w]);
        if (job.render) (w == 0 ? r : more[w - 1]).renderInto(job.source, job.progress, job.target);
        if (!job.encoded) job.encoded.reset(newFrame().release());
        encoder.writer().convertFrame(job.render ? job.target : job.source, job.encoded.get(),
                                      *toEncoder[w]);
    }
    bool writeNext(bool wait) {
        RenderWorkers::Work job;
        if (!workers->next(job, wait)) return false;
        encoder.converted(std::move(job.encoded), job.pts);
        spareSources.push_back(std::move(job.source));
        if (job.render) spareTargets.push_back(std::move(job.target));
        if (job.decoded) spareDecoded.push_back(std::move(job.decoded));
        bar.update(++done.frames);
        return true;
    }
    // Rendered at `progress` when `inside` the span, passed through as it
    // is otherwise; the decoder gets used buffers back in `frame`.
    void put(DecodedFrame& frame, bool inside, double progress) {
        if (workers) {
            while (workers->full()) writeNext(true);
            RenderWorkers::Work job;
            job.source = std::move(frame.picture);
            job.decoded = std::move(frame.decoded);
            if (inside) job.target = takeSpare(spareTargets);
            job.encoded = encoder.spareConverted();
            job.progress = progress;
            job.render = inside;
            job.pts = frame.pts;
            workers->submit(std::move(job));
            while (writeNext(false)) {
            }
            frame.picture = takeSpare(spareSources);
            frame.decoded = takeSpare(spareDecoded);
            return;
        }
        Picture out = encoder.spare();
        if (inside) {
            r.renderInto(frame.picture, progress, out);
        } else {
            std::swap(out, frame.picture);
        }
        encoder.frame(std::move(out), frame.pts);
        bar.update(++done.frames);
    }
    void drain() {
        while (workers && writeNext(true)) {
        }
        workers.reset();
    }
};

// Every frame of the source, rendered inside the span and passed through
// outside it, handed to the encoder in order. `count` is the number of
// frames in the span when known.
FramesDone renderFrames(Source& src, Renderer& r, std::vector<Renderer>& more, const Span& span,
                        uint32_t fourcc, std::optional<size_t> count,
                        const std::optional<ChunkWindow>& window,
                        const std::map<int32_t, int32_t>& copied, EncodeBehind& encoder,
                        ProgressBar& bar) {
    const PacketSink audioSink = [&](AVPacket* packet, const AVStream* st) {
        const auto it = copied.find(streamIndex(st));
        if (it != copied.end()) encoder.packet(packet, st, it->second);
    };
    // A file is decoded ahead on a thread of its own; standard input, whose
    // reads may block for as long as the writer upstream likes, and the
    // generated frames are taken here.
    // With workers, frames come as decoded and the workers convert them.
    const bool leaveDecoded = !more.empty();
    std::optional<DecodeAhead> ahead;
    if (src.kind == Source::Kind::Video && !src.streamed()) {
        ahead.emplace(
            src, fourcc, [&](int32_t index) { return copied.count(index) != 0; }, leaveDecoded);
    }
    auto next = [&](DecodedFrame& f) {
        return ahead ? ahead->next(f, audioSink)
                     : nextFrame(src, fourcc, f, audioSink, leaveDecoded);
    };
    const size_t n = count.value_or(1);
    if (window) replayBeforeChunk(r, src, *window, n);
    // Stamps that restart or jump (MPEG-TS files joined with cat) are made
    // to run on, as ffmpeg does.
    SteadyStamps stamps;
    const int64_t step = frameStep(src);
    const int64_t maxGap = src.kind == Source::Kind::Video && src.reader->info().stampsMayJump
                               ? step * 250
                               : std::numeric_limits<int64_t>::max();
    FramesDone done;
    done.inSpan = window ? window->spanBefore : 0;
    int64_t index = window ? window->nextIndex : 0;  // of the frame in the whole clip
    FrameOutlet outlet(r, more, encoder, bar, done, src, fourcc);
    DecodedFrame frame;
    while (next(frame)) {
        throwIfInterrupted();
        // Frames decoded on the way from a key frame to a chunk are dropped.
        if (window && frame.time < window->startTime) continue;
        const int64_t k = index++;
        if (window && k == window->range.first && window->startTime >= 0 &&
            frame.time != window->startTime) {
            throw std::runtime_error(src.name + ": frame " + std::to_string(k) +
                                     " could not be reached from a key frame before it");
        }
        if (window && k < window->range.first) continue;
        if (window && k >= window->range.end) break;
        frame.pts = stamps.next(frame.pts, step, maxGap);
        // Frames outside the span pass through unchanged.
        const bool inside = span.contains(frame.time) && (!count || done.inSpan < n);
        const double progress = inside ? progressAt(done.inSpan, n) : 0.0;
        done.inSpan += inside ? 1 : 0;
        outlet.put(frame, inside, progress);
    }
    outlet.drain();
    ahead.reset();
    done.stampMoves = stamps.moves;
    return done;
}

// What was wrong with the input, after the output is written.
void warnAboutInput(const Source& src, const FramesDone& done, int64_t expected) {
    const std::string damage = src.reader ? src.reader->damage() : std::string();
    const bool shrank = src.reader && src.reader->shrank();
    const auto frames = static_cast<long long>(done.frames);
    const std::string ofAll =
        src.streamed() ? std::string() : " of its " + std::to_string(src.times.size());
    if (shrank) {
        std::fprintf(stderr,
                     "reelfx: warning: %s shrank while it was read: wrote the %lld%s frames that "
                     "could be read; the rest could not be read\n",
                     src.name.c_str(), frames, ofAll.c_str());
    } else if (!damage.empty()) {
        std::fprintf(stderr,
                     "reelfx: warning: %s is damaged: %s; wrote the %lld%s frames that could be "
                     "decoded\n",
                     src.name.c_str(), damage.c_str(), frames, ofAll.c_str());
    } else if (!src.streamed() && done.frames < expected) {
        std::fprintf(stderr,
                     "reelfx: warning: %s changed while it was read: wrote the %lld%s frames that "
                     "could be read; the rest could not be read\n",
                     src.name.c_str(), frames, ofAll.c_str());
    }
    if (done.stampMoves > 0) {
        std::fprintf(stderr,
                     "reelfx: warning: the timestamps of %s start again or jump %lld time(s); "
                     "the frames were written one after another\n",
                     src.name.c_str(), static_cast<long long>(done.stampMoves));
    }
}

// Renderers beyond the first, each with an instance of its own, for frames
// rendered at once.
struct MoreRenderers {
    std::vector<std::unique_ptr<Instance>> instances;
    std::vector<Renderer> renderers;
};

MoreRenderers moreRenderers(const Module& module, const Renderer& first, int32_t effect,
                            const Source& src, int32_t workers) {
    MoreRenderers more;
    for (int32_t w = 1; w < workers; ++w) {
        more.instances.push_back(std::make_unique<Instance>(module, effect, src.width, src.height));
        more.renderers.push_back(Renderer{*more.instances.back(), first.settings, first.base, {}});
    }
    return more;
}

void renderVideo(Source& src, Renderer& r, std::vector<Renderer>& more, const RenderRequest& rq,
                 const Span& span, uint32_t fourcc, const std::string& outputPath,
                 const std::string& effectName) {
    // A stream's length is not known before it ends: without the span's end
    // its frames cannot be placed between 0 and 1.
    const std::optional<size_t> count = framesInSpan(src, span);
    if (count == size_t{0}) {
        throw UsageError("no frame of " + src.name + " lies in --span " + rq.span.value_or("") +
                         (src.times.empty() ? std::string()
                                            : "; it runs from 0 to " + seconds(src.times.back())));
    }
    // A chunk starts where its range asks, with the state of the frames
    // before it brought along (see chunk_meta.h).
    std::optional<ChunkWindow> window;
    if (rq.frames) window = startChunk(src, rq, effectName, span, outputPath);
    if (!count) {
        say(rq.quiet, src.name +
                          " is rendered as it arrives, so its length is not known: "
                          "progress stays 0 (--span START:END runs it from 0 to 1)");
    }
    OutputFile out(outputPath);
    VideoOutputSettings settings = outputSettings(src, rq, fourcc, out);
    if (window) {
        settings.tags.emplace_back(kChunkTag, chunkRecordJson(makeChunkRecord(
                                                  src, rq, effectName, *window, settings.colour,
                                                  settings.sourcePixelFormat)));
    }
    VideoWriter writer(settings);
    const std::map<int32_t, int32_t> copied = addOtherStreams(src, writer, rq, outputPath, !window);
    // From here on the writer belongs to the encoding thread: pictures and
    // copied packets go to it in file order.
    EncodeBehind encoder(writer);
    const int64_t expected =
        window ? window->range.end - window->range.first : static_cast<int64_t>(src.times.size());
    ProgressBar bar(src.streamed() && !window ? 0 : expected, !rq.quiet && stderrIsTerminal());
    const FramesDone done =
        renderFrames(src, r, more, span, fourcc, count, window, copied, encoder, bar);
    if (done.frames == 0) {
        const std::string damage = src.reader ? src.reader->damage() : std::string();
        throw std::runtime_error(src.name + ": no frame could be decoded" +
                                 (damage.empty() ? std::string() : " (" + damage + ")"));
    }
    encoder.finish();
    out.commit();
    bar.finish();
    say(rq.quiet,
        "wrote " + outputPath + ": " + std::to_string(done.frames) + " frames, " +
            std::to_string(done.inSpan - (window ? window->spanBefore : 0)) + " with " +
            effectName +
            (copied.empty() ? ""
                            : ", " + std::to_string(copied.size()) + " other stream(s) copied") +
            "; " + writer.description());
    warnAboutInput(src, done, expected);
}

}  // namespace

std::string defaultOutputName(const std::string& input, bool stillInput,
                              const std::string& effectName) {
    if (input.empty()) return effectSlug(effectName, '-') + ".mp4";
    if (input == "-") return "-";
    const fs::path p(input);
    std::string ext = stillInput ? ".png" : p.extension().string();
    if (ext.empty()) ext = ".mkv";
    return p.stem().string() + "-" + effectSlug(effectName, '-') + ext;
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
    if (rq.frames && (stillOutput || rq.progress)) {
        throw UsageError("--frames renders a chunk of video for reelfx join: give -o NAME.mkv");
    }
    if (rq.span && stillOutput && src.kind == Source::Kind::Still) {
        throw UsageError("--span needs a video: a still has no time (use --progress for a still)");
    }
    if (const std::string several = severalFilesFormat(outputPath); !several.empty()) {
        throw UsageError("cannot write " + outputPath + ": " + several +
                         " writes files of its own beside it, which reelfx cannot write safely; "
                         "write .mp4 or .mkv and package that with ffmpeg");
    }
    // Asked before the work, not after it, for every name the output takes;
    // no output replaces a file the run reads.
    protectInput(rq.input);
    confirmOverwrite(outputPath, src.streamed() ? 0 : static_cast<int64_t>(src.times.size()));
    // A video's sample aspect ratio makes its display aspect differ from its
    // pixel size; the host hands the module the shape as shown.
    if (!rq.displayAspect && src.sampleAspect.known() &&
        src.sampleAspect.num != src.sampleAspect.den) {
        base.displayAspect = static_cast<double>(int64_t{src.width} * src.sampleAspect.num) /
                             static_cast<double>(int64_t{src.height} * src.sampleAspect.den);
    }

    Instance instance(module, effect, src.width, src.height);
    Renderer r{instance, parseSettings(effectName, instance.parameters(), rq.params), base, {}};
    if (stillOutput) {
        renderStill(src, r, rq, span, fourcc, outputPath, effectName);
    } else {
        // Effects whose instances share state keep one renderer, in frame order.
        const int32_t workers = workersFor(catalogue[static_cast<size_t>(effect)].sharesState,
                                           rq.threads > 0 ? rq.threads : usableCores());
        MoreRenderers more = moreRenderers(module, r, effect, src, workers);
        renderVideo(src, r, more.renderers, rq, span, fourcc, outputPath, effectName);
    }
}

void runSheet(const Module& module, const SheetRequest& rq) {
    if (lowerExtension(rq.output) != ".png")
        throw UsageError("the contact sheet is a PNG: give -o NAME.png");
    if (!(rq.progress >= 0.0 && rq.progress <= 1.0))
        throw UsageError("--progress takes a value from 0 to 1");
    if (rq.tileWidth < 16 || rq.tileWidth > 4096)
        throw UsageError("--tile-width takes 16 to 4096 pixels");
    if (rq.columns < 1 || rq.columns > 25) throw UsageError("--columns takes 1 to 25");
    protectInput(rq.input);
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
    writePng(out.path(), sheet, rq.output);
    out.commit();
    say(rq.quiet, "wrote " + rq.output + " (" + std::to_string(sheet.width) + "x" +
                      std::to_string(sheet.height) + ")");
}

}  // namespace reelfx::tool
