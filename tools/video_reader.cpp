#include "tools/video_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <vector>

#include "tools/av_support.h"
#include "tools/interrupt.h"

namespace reelfx::tool {

struct VideoReader::State {
    std::string path;
    InputOwner ic;
    CodecOwner dec;
    PacketOwner pkt = newPacket();
    FrameOwner frame = newFrame();
    int32_t vs = -1;
    int64_t startPts = AV_NOPTS_VALUE;
    int64_t decoded = 0;
    bool flushing = false;
    // Damage met on the way: packets the decoder refused, and a file that
    // stopped making sense before its end.
    int64_t badPackets = 0;
    bool cutShort = false;
    double endsAt = 0.0, claimed = -1.0;  // seconds, when the frames stop early
    int64_t bytesAtOpen = -1;             // a regular file's size
    VideoInfo info;
    DecodeConversion conversion;

    double secondsOf(int64_t ts) const {
        // In doubles: a damaged file's stamps may be anywhere in int64_t.
        const AVRational tb = ic->streams[vs]->time_base;
        return (static_cast<double>(ts) - static_cast<double>(startPts)) * tb.num / tb.den;
    }

    bool decodeNext(const PacketSink& others);
    // The steps of opening: the video stream and its decoder, then, for a
    // file, every frame's time and whether the frames stop early.
    const AVCodec* findVideoStream();
    void describeStream(const AVCodec* codec);
    void openDecoder(const AVCodec* codec, int64_t maxPixels);
    double learnFrameTimes(Rational sequenceRate);
    void noteShortFrames(double lastEnd);
};

namespace {

struct Dictionary {
    AVDictionary* d = nullptr;
    Dictionary() = default;
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;
    ~Dictionary() { av_dict_free(&d); }
    void set(const char* key, const std::string& value) {
        if (av_dict_set(&d, key, value.c_str(), 0) < 0) throw std::bad_alloc();
    }
};

// Deflate expands a byte to at most 1032, and a PNG pixel takes at least one
// bit: a PNG file cannot describe more pixels than this, whatever its header
// claims. Decoders allocate the whole picture before they inflate a byte.
int64_t pngPixelBound(int64_t fileBytes) { return std::max<int64_t>(fileBytes, 1) * 8 * 1032; }
constexpr int64_t kMaxSide = 16384;

// A read that failed (a disk error, a pipe cut) as opposed to the end of the
// data or data that makes no sense.
void throwIfReadError(const AVFormatContext* ic, const std::string& path) {
    throwIfInterrupted();
    if (ic->pb && ic->pb->error < 0 && ic->pb->error != AVERROR_EOF)
        throw std::runtime_error("cannot read " + path + ": " + avError(ic->pb->error));
}

struct OpenedInput {
    InputOwner ic;
    int64_t maxPixels = kMaxSide * kMaxSide;  // for the decoder of the video stream
};

// One options dictionary per stream, for avformat_find_stream_info.
struct StreamOptions {
    std::vector<AVDictionary*> d;
    explicit StreamOptions(size_t n) : d(n, nullptr) {}
    StreamOptions(const StreamOptions&) = delete;
    StreamOptions& operator=(const StreamOptions&) = delete;
    ~StreamOptions() {
        for (AVDictionary*& one : d) av_dict_free(&one);
    }
};

// A signal ends a read that waits for a pipe's writer (standard input, a
// FIFO): FFmpeg asks the callback when the read returns EINTR.
InputOwner openDemuxer(const std::string& path, Rational sequenceRate) {
    const std::string url = path == "-" ? "pipe:0" : path;
    Dictionary options;
    if (sequenceRate.known())
        options.set("framerate",
                    std::to_string(sequenceRate.num) + "/" + std::to_string(sequenceRate.den));
    AVFormatContext* ic = avformat_alloc_context();
    if (!ic) throw std::bad_alloc();
    ic->interrupt_callback.callback = interruptCallback;
    // avformat_open_input frees the context when it fails.
    if (const int r = avformat_open_input(&ic, url.c_str(), nullptr, &options.d); r < 0) {
        throwIfInterrupted();
        if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
        throw std::runtime_error("cannot read " + path + " as a picture or video: " + avError(r));
    }
    return InputOwner(ic);
}

OpenedInput openInput(const std::string& path, Rational sequenceRate) {
    OpenedInput in;
    in.ic = openDemuxer(path, sequenceRate);
    AVFormatContext* ic = in.ic.get();
    // The header's picture size is checked against the file before any
    // decoder allocates a picture of that size.
    StreamOptions perStream(ic->nb_streams);
    const int64_t bytes = ic->pb && path != "-" ? avio_size(ic->pb) : -1;
    for (unsigned i = 0; bytes >= 0 && i < ic->nb_streams; ++i) {
        const AVCodecID id = ic->streams[i]->codecpar->codec_id;
        if (id != AV_CODEC_ID_PNG && id != AV_CODEC_ID_APNG) continue;
        in.maxPixels = std::min(in.maxPixels, pngPixelBound(bytes));
        if (av_dict_set_int(&perStream.d[i], "max_pixels", in.maxPixels, 0) < 0)
            throw std::bad_alloc();
    }
    const int r = avformat_find_stream_info(ic, perStream.d.empty() ? nullptr : perStream.d.data());
    throwIfInterrupted();
    if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (r < 0) throw std::runtime_error("cannot read " + path + ": " + avError(r));
    return in;
}

// Every video packet's time in stream units, read once without decoding.
// Stops early, setting `cutShort`, where the file stops making sense.
// `lastEnd` is where the last packet of any stream ends, in seconds from the
// file's start (negative when none says).
std::vector<int64_t> scanStamps(const std::string& path, int32_t vs, Rational sequenceRate,
                                bool& allStamped, bool& cutShort, double& lastEnd) {
    const OpenedInput scan = openInput(path, sequenceRate);
    AVFormatContext* ic = scan.ic.get();
    const PacketOwner packet = newPacket();
    AVPacket* p = packet.get();
    std::vector<int64_t> stamps;
    allStamped = true;
    lastEnd = -1.0;
    const int64_t start = ic->start_time != AV_NOPTS_VALUE ? ic->start_time : 0;
    while (true) {
        const int r = av_read_frame(ic, p);
        throwIfReadError(ic, path);
        if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
        if (r < 0) {
            cutShort = r != AVERROR_EOF;
            break;
        }
        if (p->pts != AV_NOPTS_VALUE) {
            const AVRational tb = ic->streams[p->stream_index]->time_base;
            const double end =
                (static_cast<double>(p->pts) + static_cast<double>(p->duration)) * tb.num / tb.den -
                static_cast<double>(start) / AV_TIME_BASE;
            lastEnd = std::max(lastEnd, end);
        }
        if (p->stream_index == vs && !(p->flags & AV_PKT_FLAG_DISCARD)) {
            const int64_t ts = p->pts != AV_NOPTS_VALUE ? p->pts : p->dts;
            if (ts == AV_NOPTS_VALUE) allStamped = false;
            stamps.push_back(ts);
        }
        av_packet_unref(p);
    }
    return stamps;
}

// RGB or grey with more than 8 bits a component (16-bit PNG, say), which
// the scaler would dither on the way down to 8 bits.
bool isDeepRgbOrGrey(AVPixelFormat fmt) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(fmt);
    if (!d || (d->flags & (AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BAYER |
                           AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM)))
        return false;
    const bool rgb = (d->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool grey = !rgb && d->nb_components <= 2;
    if (!rgb && !grey) return false;
    for (int c = 0; c < d->nb_components; ++c) {
        if (d->comp[c].depth <= 8 || d->comp[c].depth > 16) return false;
    }
    return true;
}

// Each component rounded to 8 bits: v * 255 / max, so that 16-bit values
// written from 8-bit ones (v * 257) come back as they were.
void deepToArgb(const AVFrame* f, Picture& out) {
    const auto* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f->format));
    const bool rgb = (d->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const int colours = rgb ? 3 : 1;
    const bool alpha = d->nb_components > colours;
    std::vector<uint32_t> line(static_cast<size_t>(out.width));
    auto to8 = [](uint32_t v, int depth) {
        const uint64_t max = (uint64_t{1} << depth) - 1;
        return static_cast<uint32_t>((uint64_t{v} * 255 + max / 2) / max);
    };
    for (int32_t y = 0; y < out.height; ++y) {
        uint32_t* row = out.row(y);
        for (int32_t x = 0; x < out.width; ++x) row[x] = alpha ? 0u : 0xFF000000u;
        for (int c = 0; c < d->nb_components; ++c) {
            av_read_image_line2(line.data(), const_cast<const uint8_t**>(f->data), f->linesize, d,
                                0, y, c, out.width, 0, 4);
            const int depth = d->comp[c].depth;
            // Component order is R, G, B (or grey), then alpha.
            const int shift = c == colours ? 24 : rgb ? 16 - 8 * c : -1;
            for (int32_t x = 0; x < out.width; ++x) {
                const uint32_t v = to8(line[static_cast<size_t>(x)], depth);
                row[x] |= shift >= 0 ? v << shift : v << 16 | v << 8 | v;
            }
        }
    }
}

}  // namespace

bool isImageSequence(const std::string& path) {
    return path != "-" && av_filename_number_test(path.c_str()) != 0;
}

bool isPipe(const std::string& path) {
    struct stat st {};
    return path == "-" || (::stat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode));
}

const AVCodec* VideoReader::State::findVideoStream() {
    const AVCodec* codec = nullptr;
    vs = av_find_best_stream(ic.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (vs == AVERROR_STREAM_NOT_FOUND) throw std::runtime_error(path + " holds no video stream");
    if (vs < 0 || !codec) {
        // Name the codec of the first video stream: unknown to FFmpeg
        // altogether, or known but without a decoder in this build.
        const AVCodecParameters* par = nullptr;
        for (unsigned i = 0; i < ic->nb_streams && !par; ++i) {
            if (ic->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)
                par = ic->streams[i]->codecpar;
        }
        if (!par || par->codec_id == AV_CODEC_ID_NONE) {
            char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
            av_fourcc_make_string(tag, par ? par->codec_tag : 0);
            throw std::runtime_error(
                path + ": its video is in a codec FFmpeg does not know" +
                (par && par->codec_tag ? " (tag " + std::string(tag) + ")" : std::string()));
        }
        throw std::runtime_error(path + ": this FFmpeg build has no decoder for " +
                                 avcodec_get_name(par->codec_id) + " video");
    }
    return codec;
}

void VideoReader::State::describeStream(const AVCodec* codec) {
    AVStream* st = ic->streams[vs];
    info.width = st->codecpar->width;
    info.height = st->codecpar->height;
    if (info.width <= 0 || info.height <= 0) {
        throw std::runtime_error(path +
                                 ": no picture size could be read (the file is damaged, "
                                 "or its header claims more than its data can hold)");
    }
    if (info.width > kMaxSide || info.height > kMaxSide) {
        throw std::runtime_error(path + ": unusable video size " + std::to_string(info.width) +
                                 "x" + std::to_string(info.height));
    }
    info.frameRate = fromAv(av_guess_frame_rate(ic.get(), st, nullptr));
    info.timeBase = fromAv(st->time_base);
    info.sampleAspect = fromAv(av_guess_sample_aspect_ratio(ic.get(), st, nullptr));
    info.pixelFormat = st->codecpar->format;
    info.rgb = isRgbFormat(static_cast<AVPixelFormat>(st->codecpar->format));
    info.colour.space = st->codecpar->color_space;
    info.colour.primaries = st->codecpar->color_primaries;
    info.colour.transfer = st->codecpar->color_trc;
    info.colour.fullRange = st->codecpar->color_range == AVCOL_RANGE_JPEG ||
                            isFullRangeFormat(static_cast<AVPixelFormat>(st->codecpar->format));
    info.codec = codec->name;
    info.container = ic->iformat->name;
    info.stampsMayJump = (ic->iformat->flags & AVFMT_TS_DISCONT) != 0;
    if (struct stat file{}; ::stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode))
        bytesAtOpen = file.st_size;
    for (unsigned i = 0; i < ic->nb_streams; ++i) {
        if (ic->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) ++info.otherStreams;
    }
}

void VideoReader::State::openDecoder(const AVCodec* codec, int64_t maxPixels) {
    const AVStream* st = ic->streams[vs];
    dec.reset(avcodec_alloc_context3(codec));
    if (!dec || avcodec_parameters_to_context(dec.get(), st->codecpar) < 0) throw std::bad_alloc();
    dec->pkt_timebase = st->time_base;
    dec->thread_count = 0;
    dec->max_pixels = maxPixels;
    if (const int r = avcodec_open2(dec.get(), codec, nullptr); r < 0) {
        throw std::runtime_error(path + ": cannot open the " + codec->name +
                                 " decoder: " + avError(r));
    }
}

// Reads the packets once, without decoding, to learn every frame's time;
// returns where the last packet of any stream ends (negative when none says).
double VideoReader::State::learnFrameTimes(Rational sequenceRate) {
    const AVStream* st = ic->streams[vs];
    // Progress needs the number of frames in the effect's span up front.
    bool allStamped = true;
    double lastEnd = -1.0;
    std::vector<int64_t> stamps = scanStamps(path, vs, sequenceRate, allStamped, cutShort, lastEnd);
    if (allStamped && !stamps.empty()) {
        std::sort(stamps.begin(), stamps.end());
        startPts = st->start_time != AV_NOPTS_VALUE ? std::min(st->start_time, stamps.front())
                                                    : stamps.front();
        for (int64_t ts : stamps) info.frameTimes.push_back(secondsOf(ts));
    } else {
        // Streams without timestamps: frames at the frame rate from 0.
        const double fps = info.frameRate.known()
                               ? static_cast<double>(info.frameRate.num) / info.frameRate.den
                               : 25.0;
        for (size_t i = 0; i < stamps.size(); ++i)
            info.frameTimes.push_back(static_cast<double>(i) / fps);
    }
    if (info.frameTimes.empty()) throw std::runtime_error(path + " holds no video frames");

    return lastEnd;
}

void VideoReader::State::noteShortFrames(double lastEnd) {
    const AVStream* st = ic->streams[vs];
    // A file cut short (a download broken off) often still reads to its
    // end without an error: its frames stop before the length it claims.
    double length = -1.0;
    if (st->duration > 0 && st->duration != AV_NOPTS_VALUE) {
        length = static_cast<double>(st->duration) * st->time_base.num / st->time_base.den;
    } else if (ic->nb_streams == 1 && ic->duration > 0 && ic->duration != AV_NOPTS_VALUE) {
        length = static_cast<double>(ic->duration) / AV_TIME_BASE;
    }
    const double step = info.frameRate.known()
                            ? static_cast<double>(info.frameRate.den) / info.frameRate.num
                            : 0.04;
    if (length > 0 && info.frameTimes.back() + 3 * step < length) {
        endsAt = info.frameTimes.back() + step;
        claimed = length;
    } else if (lastEnd >= 0 && ic->duration > 0 && ic->duration != AV_NOPTS_VALUE &&
               lastEnd + std::max(0.5, 3 * step) <
                   static_cast<double>(ic->duration) / AV_TIME_BASE) {
        // The container's length, where every stream stops well before it.
        endsAt = lastEnd;
        claimed = static_cast<double>(ic->duration) / AV_TIME_BASE;
    }
}

VideoReader::VideoReader(const std::string& path, Rational sequenceRate)
    : s_(std::make_unique<State>()) {
    State& s = *s_;
    s.path = path;
    if (!isImageSequence(path)) sequenceRate = {};
    OpenedInput opened = openInput(path, sequenceRate);
    s.ic = std::move(opened.ic);
    const AVCodec* codec = s.findVideoStream();
    s.describeStream(codec);
    s.openDecoder(codec, opened.maxPixels);
    // Standard input and FIFOs are read once, as they arrive: their
    // frames' times come with the frames.
    if (isPipe(path)) {
        s.info.streamed = true;
        s.startPts = s.ic->streams[s.vs]->start_time;
        return;
    }
    s.noteShortFrames(s.learnFrameTimes(sequenceRate));
}

VideoReader::~VideoReader() = default;

std::string VideoReader::damage() const {
    const State& s = *s_;
    std::string out;
    if (s.badPackets > 0)
        out = std::to_string(s.badPackets) + " damaged picture(s) could not be decoded";
    if (s.cutShort) out += std::string(out.empty() ? "" : "; ") + "it breaks off before its end";
    if (s.claimed > 0) {
        char text[96];
        std::snprintf(text, sizeof text, "its frames end at %.3g s of the %.3g s it claims",
                      s.endsAt, s.claimed);
        out += std::string(out.empty() ? "" : "; ") + text;
    }
    return out;
}

bool VideoReader::shrank() const {
    struct stat file {};
    return s_->bytesAtOpen >= 0 &&
           (::stat(s_->path.c_str(), &file) != 0 || file.st_size < s_->bytesAtOpen);
}

bool VideoReader::seekBefore(double seconds) {
    State& s = *s_;
    if (s.info.streamed || s.startPts == AV_NOPTS_VALUE || s.decoded != 0) return false;
    const AVRational tb = s.ic->streams[s.vs]->time_base;
    const int64_t ts = s.startPts + std::llround(seconds * tb.den / tb.num);
    if (av_seek_frame(s.ic.get(), s.vs, ts, AVSEEK_FLAG_BACKWARD) < 0) return false;
    avcodec_flush_buffers(s.dec.get());
    return true;
}

const VideoInfo& VideoReader::info() const { return s_->info; }
AVFormatContext* VideoReader::formatContext() const { return s_->ic.get(); }
int32_t VideoReader::videoStream() const { return s_->vs; }

std::vector<const AVStream*> VideoReader::audioStreams() const {
    std::vector<const AVStream*> out;
    for (unsigned i = 0; i < s_->ic->nb_streams; ++i) {
        if (s_->ic->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
            out.push_back(s_->ic->streams[i]);
    }
    return out;
}

// The next decoded picture into `frame`; false at the end.
bool VideoReader::State::decodeNext(const PacketSink& others) {
    // A decoder that keeps failing on its own is given up, not waited for.
    for (int32_t failures = 0; failures < 1000;) {
        int r = avcodec_receive_frame(dec.get(), frame.get());
        if (r == AVERROR_EOF) return false;
        if (r == 0) return true;
        if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
        if (r != AVERROR(EAGAIN)) {
            // A picture that could not be decoded is left out, as FFmpeg's
            // own tools do, and counted.
            ++badPackets;
            ++failures;
            continue;
        }
        if (flushing) return false;
        r = av_read_frame(ic.get(), pkt.get());
        throwIfReadError(ic.get(), path);
        if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
        if (r < 0) {
            // Data that stops making sense ends the file: what was read
            // before it is still decoded.
            if (r != AVERROR_EOF) cutShort = true;
            r = avcodec_send_packet(dec.get(), nullptr);
            if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
            if (r < 0 && r != AVERROR_EOF)
                throw std::runtime_error(path + ": cannot finish decoding: " + avError(r));
            flushing = true;
            continue;
        }
        if (pkt->stream_index == vs) {
            r = avcodec_send_packet(dec.get(), pkt.get());
            if (r == AVERROR(ENOMEM)) {
                av_packet_unref(pkt.get());
                throw std::bad_alloc();
            }
            if (r < 0) {
                ++badPackets;
                ++failures;
            }
        } else if (others) {
            others(pkt.get(), ic->streams[pkt->stream_index]);
        }
        av_packet_unref(pkt.get());
    }
    cutShort = true;
    return false;
}

bool VideoReader::next(DecodedFrame& out, uint32_t fourcc, const PacketSink& others,
                       bool leaveDecoded) {
    State& s = *s_;
    while (true) {
        if (!s.decodeNext(others)) return false;
        const AVFrame* f = s.frame.get();
        if (f->width > 0 && f->height > 0 &&
            av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f->format)))
            break;
        ++s.badPackets;
        av_frame_unref(s.frame.get());
    }

    AVFrame* f = s.frame.get();
    const VideoInfo& info = s.info;
    const int64_t ts = f->best_effort_timestamp;
    if (s.info.streamed && s.decoded == 0 && s.startPts == AV_NOPTS_VALUE) s.startPts = ts;
    if (ts != AV_NOPTS_VALUE && s.startPts != AV_NOPTS_VALUE) {
        out.pts = ts;
        out.time = s.secondsOf(ts);
    } else {
        const double fps = info.frameRate.known()
                               ? static_cast<double>(info.frameRate.num) / info.frameRate.den
                               : 25.0;
        out.time = static_cast<double>(s.decoded) / fps;
        out.pts = av_rescale_q(
            s.decoded, av_inv_q(toAv(info.frameRate.known() ? info.frameRate : Rational{25, 1})),
            toAv(info.timeBase));
    }
    ++s.decoded;

    if (leaveDecoded) {
        if (!out.decoded) out.decoded.reset(newFrame().release());
        av_frame_unref(out.decoded.get());
        av_frame_move_ref(out.decoded.get(), f);
        return true;
    }
    convertDecoded(f, info, fourcc, out.picture, s.conversion);
    return true;
}

void convertDecoded(AVFrame* f, const VideoInfo& info, uint32_t fourcc, Picture& picture,
                    DecodeConversion& c) {
    const auto fmt = static_cast<AVPixelFormat>(f->format);
    const bool fullRange = f->color_range == AVCOL_RANGE_JPEG || isFullRangeFormat(fmt);
    const int space = f->colorspace != AVCOL_SPC_UNSPECIFIED ? f->colorspace : info.colour.space;
    const bool sameSize = f->width == info.width && f->height == info.height;
    // The caller's picture is reused when it has the size: every path below
    // writes each of its pixels.
    if (picture.width != info.width || picture.height != info.height ||
        picture.stride != info.width * 4)
        picture = Picture(info.width, info.height);
    Picture& pic = picture;

    const bool viaRgb = fourcc != kFourccAyuv || isRgbFormat(fmt);
    if (viaRgb) {
        if (fmt == AV_PIX_FMT_BGRA && sameSize) {
            copyRows(f->data[0], f->linesize[0], reinterpret_cast<uint8_t*>(pic.data()), pic.stride,
                     info.width * 4, info.height);
        } else if (sameSize && isDeepRgbOrGrey(fmt)) {
            deepToArgb(f, pic);
        } else {
            uint8_t* dst[4] = {reinterpret_cast<uint8_t*>(pic.data()), nullptr, nullptr, nullptr};
            const int dstStride[4] = {pic.stride, 0, 0, 0};
            c.toRgb.convert(f->data, f->linesize, f->width, f->height, fmt, space, fullRange, dst,
                            dstStride, info.width, info.height, AV_PIX_FMT_BGRA, space, true);
        }
        // RGB video handed over as AYUV goes through the module's conversion.
        if (fourcc == kFourccAyuv) pic = toAyuv(pic);
    } else {
        const AVPixelFormat planar = hasAlpha(fmt) ? AV_PIX_FMT_YUVA444P : AV_PIX_FMT_YUV444P;
        if (fmt == planar && !fullRange && sameSize) {
            packAyuv(f, pic);
        } else {
            AVFrame* p = c.yuv.get(info.width, info.height, planar);
            c.toYuv.convert(f->data, f->linesize, f->width, f->height, fmt, space, fullRange,
                            p->data, p->linesize, info.width, info.height, planar, space, false);
            packAyuv(p, pic);
        }
    }
    av_frame_unref(f);
}

}  // namespace reelfx::tool
