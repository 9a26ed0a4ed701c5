#include "tools/video_io.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tools/params.h"

namespace reelfx::tool {

namespace {

std::string avError(int code) {
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buf, sizeof buf);
    return buf;
}

AVRational toAv(Rational r) {
    return AVRational{r.num, r.den};
}
Rational fromAv(AVRational r) {
    return Rational{r.num, r.den};
}

bool isRgbFormat(AVPixelFormat f) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(f);
    return d && (d->flags & AV_PIX_FMT_FLAG_RGB);
}

bool hasAlpha(AVPixelFormat f) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(f);
    return d && (d->flags & AV_PIX_FMT_FLAG_ALPHA);
}

bool isFullRangeFormat(AVPixelFormat f) {
    return f == AV_PIX_FMT_YUVJ420P || f == AV_PIX_FMT_YUVJ422P || f == AV_PIX_FMT_YUVJ444P ||
           f == AV_PIX_FMT_YUVJ440P || f == AV_PIX_FMT_YUVJ411P;
}

constexpr int kSwsFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

// One reusable converter between two layouts; the colour matrices and
// ranges are set on every (re)creation.
struct Converter {
    SwsContext* ctx = nullptr;
    ~Converter() { sws_freeContext(ctx); }

    void convert(const uint8_t* const src[], const int srcStride[], int srcW, int srcH,
                 AVPixelFormat srcFmt, int srcSpace, bool srcFull, uint8_t* const dst[],
                 const int dstStride[], int dstW, int dstH, AVPixelFormat dstFmt, int dstSpace,
                 bool dstFull) {
        ctx = sws_getCachedContext(ctx, srcW, srcH, srcFmt, dstW, dstH, dstFmt, kSwsFlags, nullptr,
                                   nullptr, nullptr);
        if (!ctx) {
            throw std::runtime_error(std::string("cannot convert ") + av_get_pix_fmt_name(srcFmt) +
                                     " to " + av_get_pix_fmt_name(dstFmt));
        }
        // RGB sides are full range by definition.
        sws_setColorspaceDetails(ctx, sws_getCoefficients(srcSpace),
                                 isRgbFormat(srcFmt) ? 1 : srcFull, sws_getCoefficients(dstSpace),
                                 isRgbFormat(dstFmt) ? 1 : dstFull, 0, 1 << 16, 1 << 16);
        sws_scale(ctx, src, srcStride, 0, srcH, dst, dstStride);
    }
};

// Frame-sized planar buffers for YUV 4:4:4 with or without alpha.
struct Planes {
    AVFrame* frame = nullptr;
    Planes() { frame = av_frame_alloc(); }
    ~Planes() { av_frame_free(&frame); }
    AVFrame* get(int w, int h, AVPixelFormat fmt) {
        if (frame->width != w || frame->height != h || frame->format != fmt) {
            av_frame_unref(frame);
            frame->width = w;
            frame->height = h;
            frame->format = fmt;
            if (av_frame_get_buffer(frame, 0) < 0) throw std::bad_alloc();
        }
        return frame;
    }
};

// AYUV words <-> planes Y, U, V (and A) of yuv444p / yuva444p.
void packAyuv(const AVFrame* f, Picture& out) {
    const bool alpha = f->format == AV_PIX_FMT_YUVA444P;
    for (int32_t y = 0; y < out.height; ++y) {
        const uint8_t* py = f->data[0] + static_cast<ptrdiff_t>(y) * f->linesize[0];
        const uint8_t* pu = f->data[1] + static_cast<ptrdiff_t>(y) * f->linesize[1];
        const uint8_t* pv = f->data[2] + static_cast<ptrdiff_t>(y) * f->linesize[2];
        const uint8_t* pa =
            alpha ? f->data[3] + static_cast<ptrdiff_t>(y) * f->linesize[3] : nullptr;
        uint32_t* r = out.row(y);
        for (int32_t x = 0; x < out.width; ++x) {
            const uint32_t a = pa ? pa[x] : 0xFFu;
            r[x] = a << 24 | uint32_t{py[x]} << 16 | uint32_t{pu[x]} << 8 | pv[x];
        }
    }
}

void unpackAyuv(const Picture& in, AVFrame* f) {
    const bool alpha = f->format == AV_PIX_FMT_YUVA444P;
    for (int32_t y = 0; y < in.height; ++y) {
        uint8_t* py = f->data[0] + static_cast<ptrdiff_t>(y) * f->linesize[0];
        uint8_t* pu = f->data[1] + static_cast<ptrdiff_t>(y) * f->linesize[1];
        uint8_t* pv = f->data[2] + static_cast<ptrdiff_t>(y) * f->linesize[2];
        uint8_t* pa = alpha ? f->data[3] + static_cast<ptrdiff_t>(y) * f->linesize[3] : nullptr;
        const uint32_t* r = in.row(y);
        for (int32_t x = 0; x < in.width; ++x) {
            py[x] = static_cast<uint8_t>(r[x] >> 16);
            pu[x] = static_cast<uint8_t>(r[x] >> 8);
            pv[x] = static_cast<uint8_t>(r[x]);
            if (pa) pa[x] = static_cast<uint8_t>(r[x] >> 24);
        }
    }
}

void copyRows(const uint8_t* src, int srcStride, uint8_t* dst, int dstStride, int rowBytes,
              int rows) {
    for (int y = 0; y < rows; ++y) {
        std::memcpy(dst + static_cast<ptrdiff_t>(y) * dstStride,
                    src + static_cast<ptrdiff_t>(y) * srcStride, static_cast<size_t>(rowBytes));
    }
}

}  // namespace

ColourTags rgbSourceTags() {
    return {AVCOL_SPC_BT709, AVCOL_PRI_BT709, AVCOL_TRC_BT709, false};
}

ColourTags moduleAyuvTags() {
    return {AVCOL_SPC_SMPTE170M, AVCOL_PRI_SMPTE170M, AVCOL_TRC_SMPTE170M, false};
}

// ---- reading -------------------------------------------------------------------

struct VideoReader::State {
    std::string path;
    AVFormatContext* ic = nullptr;
    AVCodecContext* dec = nullptr;
    AVPacket* pkt = nullptr;
    AVFrame* frame = nullptr;
    int32_t vs = -1;
    int64_t startPts = AV_NOPTS_VALUE;
    int64_t decoded = 0;
    bool flushing = false;
    VideoInfo info;
    Converter toRgb, toYuv;
    Planes yuv;

    ~State() {
        av_frame_free(&frame);
        av_packet_free(&pkt);
        avcodec_free_context(&dec);
        avformat_close_input(&ic);
    }

    double secondsOf(int64_t ts) const {
        const AVRational tb = ic->streams[vs]->time_base;
        return static_cast<double>((ts - startPts) * tb.num) / static_cast<double>(tb.den);
    }
};

namespace {

AVFormatContext* openInput(const std::string& path) {
    AVFormatContext* ic = nullptr;
    int r = avformat_open_input(&ic, path.c_str(), nullptr, nullptr);
    if (r < 0) {
        throw std::runtime_error("cannot read " + path + " as a picture or video: " + avError(r));
    }
    r = avformat_find_stream_info(ic, nullptr);
    if (r < 0) {
        avformat_close_input(&ic);
        throw std::runtime_error("cannot read " + path + ": " + avError(r));
    }
    return ic;
}

}  // namespace

VideoReader::VideoReader(const std::string& path) : s_(std::make_unique<State>()) {
    State& s = *s_;
    s.path = path;
    s.ic = openInput(path);
    const AVCodec* codec = nullptr;
    s.vs = av_find_best_stream(s.ic, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (s.vs == AVERROR_STREAM_NOT_FOUND) throw std::runtime_error(path + " holds no video stream");
    if (s.vs < 0 || !codec) {
        // Name the codec of the first video stream: unknown to FFmpeg
        // altogether, or known but without a decoder in this build.
        const AVCodecParameters* par = nullptr;
        for (unsigned i = 0; i < s.ic->nb_streams && !par; ++i) {
            if (s.ic->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)
                par = s.ic->streams[i]->codecpar;
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
    AVStream* st = s.ic->streams[s.vs];
    s.dec = avcodec_alloc_context3(codec);
    if (!s.dec || avcodec_parameters_to_context(s.dec, st->codecpar) < 0) throw std::bad_alloc();
    s.dec->pkt_timebase = st->time_base;
    s.dec->thread_count = 0;
    if (const int r = avcodec_open2(s.dec, codec, nullptr); r < 0) {
        throw std::runtime_error(path + ": cannot open the " + codec->name +
                                 " decoder: " + avError(r));
    }
    s.pkt = av_packet_alloc();
    s.frame = av_frame_alloc();
    if (!s.pkt || !s.frame) throw std::bad_alloc();

    VideoInfo& info = s.info;
    info.width = st->codecpar->width;
    info.height = st->codecpar->height;
    if (info.width <= 0 || info.height <= 0 || info.width > 16384 || info.height > 16384) {
        throw std::runtime_error(path + ": unusable video size " + std::to_string(info.width) +
                                 "x" + std::to_string(info.height));
    }
    info.frameRate = fromAv(av_guess_frame_rate(s.ic, st, nullptr));
    info.timeBase = fromAv(st->time_base);
    info.sampleAspect = fromAv(av_guess_sample_aspect_ratio(s.ic, st, nullptr));
    info.pixelFormat = st->codecpar->format;
    info.rgb = isRgbFormat(static_cast<AVPixelFormat>(st->codecpar->format));
    info.colour.space = st->codecpar->color_space;
    info.colour.primaries = st->codecpar->color_primaries;
    info.colour.transfer = st->codecpar->color_trc;
    info.colour.fullRange = st->codecpar->color_range == AVCOL_RANGE_JPEG ||
                            isFullRangeFormat(static_cast<AVPixelFormat>(st->codecpar->format));
    info.codec = codec->name;
    info.container = s.ic->iformat->name;
    for (unsigned i = 0; i < s.ic->nb_streams; ++i) {
        if (s.ic->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) ++info.otherStreams;
    }

    // Read the packets once, without decoding, to learn every frame's time;
    // progress needs the number of frames in the effect's span up front.
    AVFormatContext* scan = openInput(path);
    std::vector<int64_t> stamps;
    bool allStamped = true;
    AVPacket* p = av_packet_alloc();
    while (av_read_frame(scan, p) >= 0) {
        if (p->stream_index == s.vs && !(p->flags & AV_PKT_FLAG_DISCARD)) {
            const int64_t ts = p->pts != AV_NOPTS_VALUE ? p->pts : p->dts;
            if (ts == AV_NOPTS_VALUE) allStamped = false;
            stamps.push_back(ts);
        }
        av_packet_unref(p);
    }
    av_packet_free(&p);
    avformat_close_input(&scan);
    if (allStamped && !stamps.empty()) {
        std::sort(stamps.begin(), stamps.end());
        s.startPts = st->start_time != AV_NOPTS_VALUE ? std::min(st->start_time, stamps.front())
                                                      : stamps.front();
        for (int64_t ts : stamps) info.frameTimes.push_back(s.secondsOf(ts));
    } else {
        // Streams without timestamps: frames at the frame rate from 0.
        const double fps = info.frameRate.known()
                               ? static_cast<double>(info.frameRate.num) / info.frameRate.den
                               : 25.0;
        for (size_t i = 0; i < stamps.size(); ++i)
            info.frameTimes.push_back(static_cast<double>(i) / fps);
    }
    if (info.frameTimes.empty()) throw std::runtime_error(path + " holds no video frames");
}

VideoReader::~VideoReader() = default;

const VideoInfo& VideoReader::info() const {
    return s_->info;
}
AVFormatContext* VideoReader::formatContext() const {
    return s_->ic;
}
int32_t VideoReader::videoStream() const {
    return s_->vs;
}

std::vector<const AVStream*> VideoReader::audioStreams() const {
    std::vector<const AVStream*> out;
    for (unsigned i = 0; i < s_->ic->nb_streams; ++i) {
        if (s_->ic->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
            out.push_back(s_->ic->streams[i]);
    }
    return out;
}

bool VideoReader::next(DecodedFrame& out, uint32_t fourcc, const PacketSink& others) {
    State& s = *s_;
    while (true) {
        int r = avcodec_receive_frame(s.dec, s.frame);
        if (r == AVERROR_EOF) return false;
        if (r == 0) break;
        if (r != AVERROR(EAGAIN))
            throw std::runtime_error(s.path + ": cannot decode video: " + avError(r));
        if (s.flushing) return false;
        r = av_read_frame(s.ic, s.pkt);
        if (r < 0) {
            if (r != AVERROR_EOF && s.ic->pb && s.ic->pb->error < 0) {
                throw std::runtime_error(s.path + ": read error: " + avError(r));
            }
            avcodec_send_packet(s.dec, nullptr);
            s.flushing = true;
            continue;
        }
        if (s.pkt->stream_index == s.vs) {
            // Broken packets are skipped as FFmpeg's own tools do.
            r = avcodec_send_packet(s.dec, s.pkt);
            if (r < 0 && r != AVERROR_INVALIDDATA) {
                av_packet_unref(s.pkt);
                throw std::runtime_error(s.path + ": cannot decode video: " + avError(r));
            }
        } else if (others &&
                   s.ic->streams[s.pkt->stream_index]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            others(s.pkt, s.ic->streams[s.pkt->stream_index]);
        }
        av_packet_unref(s.pkt);
    }

    AVFrame* f = s.frame;
    const VideoInfo& info = s.info;
    const int64_t ts = f->best_effort_timestamp;
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

    const auto fmt = static_cast<AVPixelFormat>(f->format);
    const bool fullRange = f->color_range == AVCOL_RANGE_JPEG || isFullRangeFormat(fmt);
    const int space = f->colorspace != AVCOL_SPC_UNSPECIFIED ? f->colorspace : info.colour.space;
    const bool sameSize = f->width == info.width && f->height == info.height;
    out.picture = Picture(info.width, info.height);
    Picture& pic = out.picture;

    const bool viaRgb = fourcc != kFourccAyuv || isRgbFormat(fmt);
    if (viaRgb) {
        if (fmt == AV_PIX_FMT_BGRA && sameSize) {
            copyRows(f->data[0], f->linesize[0], reinterpret_cast<uint8_t*>(pic.data()), pic.stride,
                     info.width * 4, info.height);
        } else {
            uint8_t* dst[4] = {reinterpret_cast<uint8_t*>(pic.data()), nullptr, nullptr, nullptr};
            const int dstStride[4] = {pic.stride, 0, 0, 0};
            s.toRgb.convert(f->data, f->linesize, f->width, f->height, fmt, space, fullRange, dst,
                            dstStride, info.width, info.height, AV_PIX_FMT_BGRA, space, true);
        }
        // RGB video handed over as AYUV goes through the module's conversion.
        if (fourcc == kFourccAyuv) pic = toAyuv(pic);
    } else {
        const AVPixelFormat planar = hasAlpha(fmt) ? AV_PIX_FMT_YUVA444P : AV_PIX_FMT_YUV444P;
        if (fmt == planar && !fullRange && sameSize) {
            packAyuv(f, pic);
        } else {
            AVFrame* p = s.yuv.get(info.width, info.height, planar);
            s.toYuv.convert(f->data, f->linesize, f->width, f->height, fmt, space, fullRange,
                            p->data, p->linesize, info.width, info.height, planar, space, false);
            packAyuv(p, pic);
        }
    }
    av_frame_unref(f);
    return true;
}

// ---- writing -------------------------------------------------------------------

struct VideoWriter::State {
    VideoOutputSettings settings;
    AVFormatContext* oc = nullptr;
    AVCodecContext* enc = nullptr;
    AVStream* vst = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* pkt = nullptr;
    AVPixelFormat fmt = AV_PIX_FMT_NONE;
    bool headerWritten = false;
    bool finished = false;
    bool fileOpen = false;
    Converter fromRgb, fromYuv;
    Planes yuv;

    ~State() {
        av_packet_free(&pkt);
        av_frame_free(&frame);
        avcodec_free_context(&enc);
        if (oc) {
            if (fileOpen) avio_closep(&oc->pb);
            avformat_free_context(oc);
        }
    }

    bool isY4m() const { return std::strcmp(oc->oformat->name, "yuv4mpegpipe") == 0; }

    void writeHeader() {
        if (headerWritten) return;
        // MP4 and QuickTime files get their index up front, so players and
        // browsers can start before the whole file has arrived.
        AVDictionary* options = nullptr;
        const std::string name = oc->oformat->name;
        if (name == "mp4" || name == "mov") av_dict_set(&options, "movflags", "+faststart", 0);
        const int r = avformat_write_header(oc, &options);
        av_dict_free(&options);
        if (r < 0) {
            throw std::runtime_error("cannot write " + settings.containerName + ": " + avError(r));
        }
        headerWritten = true;
    }

    void drain() {
        while (true) {
            const int r = avcodec_receive_packet(enc, pkt);
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return;
            if (r < 0) throw std::runtime_error("cannot encode video: " + avError(r));
            av_packet_rescale_ts(pkt, enc->time_base, vst->time_base);
            pkt->stream_index = vst->index;
            if (const int w = av_interleaved_write_frame(oc, pkt); w < 0) {
                throw std::runtime_error("cannot write " + settings.containerName + ": " +
                                         avError(w));
            }
        }
    }
};

namespace {

const AVOutputFormat* guessContainer(const std::string& name) {
    if (name == "-") return av_guess_format("yuv4mpegpipe", nullptr, nullptr);
    return av_guess_format(nullptr, name.c_str(), nullptr);
}

bool listed(const AVPixelFormat* list, AVPixelFormat f) {
    for (; list && *list != AV_PIX_FMT_NONE; ++list) {
        if (*list == f) return true;
    }
    return false;
}

const AVCodec* pickEncoder(const VideoOutputSettings& settings, const AVOutputFormat* of) {
    if (!settings.codec.empty()) {
        const AVCodec* c = avcodec_find_encoder_by_name(settings.codec.c_str());
        if (!c || c->type != AVMEDIA_TYPE_VIDEO) {
            throw UsageError("unknown video encoder \"" + settings.codec +
                             "\" ('ffmpeg -encoders' lists them)");
        }
        return c;
    }
    const std::string name = of->name;
    if (name == "yuv4mpegpipe") return avcodec_find_encoder(AV_CODEC_ID_WRAPPED_AVFRAME);
    if (name.find("matroska") != std::string::npos) return avcodec_find_encoder(AV_CODEC_ID_FFV1);
    if (name == "mp4" || name == "mov") {
        // Debian's libavcodec has libx264; other builds may only have another
        // H.264 encoder, or none, and then MPEG-4 part 2 still plays anywhere.
        if (const AVCodec* c = avcodec_find_encoder_by_name("libx264")) return c;
        if (const AVCodec* c = avcodec_find_encoder(AV_CODEC_ID_H264)) return c;
        return avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    }
    return avcodec_find_encoder(of->video_codec);
}

AVPixelFormat pickPixelFormat(const VideoOutputSettings& settings, const AVCodec* codec, bool y4m) {
    const AVPixelFormat* list = codec->pix_fmts;
    if (!settings.pixelFormat.empty()) {
        const AVPixelFormat f = av_get_pix_fmt(settings.pixelFormat.c_str());
        if (f == AV_PIX_FMT_NONE)
            throw UsageError("unknown pixel format \"" + settings.pixelFormat + "\"");
        if (list && !listed(list, f)) {
            std::string names;
            for (const AVPixelFormat* p = list; *p != AV_PIX_FMT_NONE; ++p) {
                names += std::string(names.empty() ? "" : " ") + av_get_pix_fmt_name(*p);
            }
            throw UsageError(std::string("the ") + codec->name + " encoder takes none of \"" +
                             settings.pixelFormat + "\"; it takes: " + names);
        }
        return f;
    }
    const bool even = settings.width % 2 == 0 && settings.height % 2 == 0;
    if (y4m) {
        const auto src = static_cast<AVPixelFormat>(settings.sourcePixelFormat);
        if (src == AV_PIX_FMT_YUV444P || src == AV_PIX_FMT_YUV422P || src == AV_PIX_FMT_GRAY8)
            return src;
        return even ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV444P;
    }
    // The pixels exactly as the module made them, where nothing is lost anyway.
    const AVPixelFormat exact =
        settings.fourcc == kFourccAyuv ? AV_PIX_FMT_YUVA444P : AV_PIX_FMT_BGRA;
    const AVCodecDescriptor* d = avcodec_descriptor_get(codec->id);
    const bool lossless =
        d && (d->props & AV_CODEC_PROP_LOSSLESS) && !(d->props & AV_CODEC_PROP_LOSSY);
    if (!list) return exact;
    if (lossless && listed(list, exact)) return exact;
    // 4:2:0 is what players expect from lossy video.
    if (even && listed(list, AV_PIX_FMT_YUV420P)) return AV_PIX_FMT_YUV420P;
    if (listed(list, AV_PIX_FMT_YUV444P)) return AV_PIX_FMT_YUV444P;
    return avcodec_find_best_pix_fmt_of_list(list, exact, 1, nullptr);
}

}  // namespace

bool knownVideoContainer(const std::string& name) {
    return guessContainer(name) != nullptr;
}

VideoWriter::VideoWriter(const VideoOutputSettings& settings) : s_(std::make_unique<State>()) {
    State& s = *s_;
    s.settings = settings;
    const AVOutputFormat* of = guessContainer(settings.containerName);
    if (!of) {
        throw UsageError("cannot tell a video format from the name " + settings.containerName +
                         " (use .mp4, .mkv, .mov, .png, or - for YUV4MPEG2 on standard output)");
    }
    const std::string url = settings.path == "-" ? "pipe:1" : settings.path;
    if (avformat_alloc_output_context2(&s.oc, of, nullptr, url.c_str()) < 0 || !s.oc)
        throw std::bad_alloc();
    const bool y4m = s.isY4m();
    // YUV4MPEG2 has no field for the colour matrix and its readers take
    // BT.601, so RGB pictures are converted by that.
    if (y4m) s.settings.colour = moduleAyuvTags();

    const AVCodec* codec = pickEncoder(settings, of);
    if (!codec) {
        throw UsageError(std::string("this FFmpeg build has no video encoder for ") +
                         of->long_name + "; choose one with --codec");
    }
    if (avformat_query_codec(of, codec->id, FF_COMPLIANCE_NORMAL) == 0) {
        throw UsageError(std::string("the ") + of->name + " container cannot hold " + codec->name +
                         " video; choose another --codec or output name");
    }
    s.fmt = pickPixelFormat(settings, codec, y4m);

    s.enc = avcodec_alloc_context3(codec);
    s.frame = av_frame_alloc();
    s.pkt = av_packet_alloc();
    if (!s.enc || !s.frame || !s.pkt) throw std::bad_alloc();
    const AVRational rate =
        settings.frameRate.known() ? toAv(settings.frameRate) : AVRational{25, 1};
    AVRational tb = settings.timeBase.known() ? toAv(settings.timeBase) : av_inv_q(rate);
    // YUV4MPEG2 takes its frame rate from the time base, and some encoders
    // cannot take fine time bases.
    if (y4m || tb.den > 65535) tb = av_inv_q(rate);
    s.enc->width = settings.width;
    s.enc->height = settings.height;
    s.enc->pix_fmt = s.fmt;
    s.enc->time_base = tb;
    s.enc->framerate = rate;
    s.enc->sample_aspect_ratio =
        settings.sampleAspect.known() ? toAv(settings.sampleAspect) : AVRational{0, 1};
    s.enc->thread_count = 0;
    if (!isRgbFormat(s.fmt)) {
        s.enc->colorspace = static_cast<AVColorSpace>(s.settings.colour.space);
        s.enc->color_primaries = static_cast<AVColorPrimaries>(s.settings.colour.primaries);
        s.enc->color_trc = static_cast<AVColorTransferCharacteristic>(s.settings.colour.transfer);
        s.enc->color_range = isFullRangeFormat(s.fmt) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    }
    if (std::strcmp(codec->name, "libx264") == 0) {
        av_opt_set(s.enc->priv_data, "preset", "medium", 0);
        av_opt_set(s.enc->priv_data, "crf", "18", 0);
    } else if (codec->id == AV_CODEC_ID_FFV1) {
        av_opt_set_int(s.enc->priv_data, "level", 3, 0);  // sliced, so it encodes on all cores
    } else if (codec->id == AV_CODEC_ID_MPEG4) {
        s.enc->flags |= AV_CODEC_FLAG_QSCALE;
        s.enc->global_quality = FF_QP2LAMBDA * 3;
    }
    if (of->flags & AVFMT_GLOBALHEADER) s.enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (const int r = avcodec_open2(s.enc, codec, nullptr); r < 0) {
        throw UsageError(std::string("cannot encode ") + std::to_string(settings.width) + "x" +
                         std::to_string(settings.height) + " " + av_get_pix_fmt_name(s.fmt) +
                         " video with " + codec->name + ": " + avError(r));
    }
    s.vst = avformat_new_stream(s.oc, nullptr);
    if (!s.vst || avcodec_parameters_from_context(s.vst->codecpar, s.enc) < 0)
        throw std::bad_alloc();
    s.vst->time_base = s.enc->time_base;
    s.vst->avg_frame_rate = rate;
    s.vst->sample_aspect_ratio = s.enc->sample_aspect_ratio;

    if (!(of->flags & AVFMT_NOFILE)) {
        if (const int r = avio_open(&s.oc->pb, url.c_str(), AVIO_FLAG_WRITE); r < 0) {
            throw std::runtime_error("cannot write " + settings.containerName + ": " + avError(r));
        }
        s.fileOpen = true;
    }
}

VideoWriter::~VideoWriter() = default;

bool VideoWriter::isYuv4mpeg() const {
    return s_->isY4m();
}
std::string VideoWriter::container() const {
    return s_->oc->oformat->name;
}

bool VideoWriter::canCopy(const AVStream* in) const {
    if (s_->isY4m()) return false;
    return avformat_query_codec(s_->oc->oformat, in->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 0;
}

int32_t VideoWriter::addCopiedStream(const AVStream* in) {
    AVStream* st = avformat_new_stream(s_->oc, nullptr);
    if (!st || avcodec_parameters_copy(st->codecpar, in->codecpar) < 0) throw std::bad_alloc();
    st->codecpar->codec_tag = 0;
    st->time_base = in->time_base;
    av_dict_copy(&st->metadata, in->metadata, 0);
    st->disposition = in->disposition;
    // FFmpeg 5 still calls some standardised mappings experimental (FLAC and
    // Opus in MP4); a copy carries them over as they are.
    s_->oc->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    return st->index;
}

void VideoWriter::writeFrame(const Picture& words, int64_t pts) {
    State& s = *s_;
    s.writeHeader();
    AVFrame* f = s.frame;
    if (f->width != s.settings.width || f->height != s.settings.height || f->format != s.fmt) {
        av_frame_unref(f);
        f->width = s.settings.width;
        f->height = s.settings.height;
        f->format = s.fmt;
        if (av_frame_get_buffer(f, 0) < 0) throw std::bad_alloc();
    }
    // The encoder may still hold the previous frame's buffers.
    if (av_frame_make_writable(f) < 0) throw std::bad_alloc();
    const ColourTags& tags = s.settings.colour;
    const int w = s.settings.width, h = s.settings.height;

    const bool viaRgb = s.settings.fourcc != kFourccAyuv || isRgbFormat(s.fmt);
    if (viaRgb) {
        const Picture converted = s.settings.fourcc == kFourccAyuv ? toArgb(words) : Picture();
        const Picture& argb = s.settings.fourcc == kFourccAyuv ? converted : words;
        if (s.fmt == AV_PIX_FMT_BGRA) {
            copyRows(reinterpret_cast<const uint8_t*>(argb.words.data()), argb.stride, f->data[0],
                     f->linesize[0], w * 4, h);
        } else {
            const uint8_t* src[4] = {reinterpret_cast<const uint8_t*>(argb.words.data()), nullptr,
                                     nullptr, nullptr};
            const int srcStride[4] = {argb.stride, 0, 0, 0};
            s.fromRgb.convert(src, srcStride, w, h, AV_PIX_FMT_BGRA, tags.space, true, f->data,
                              f->linesize, w, h, s.fmt, tags.space, isFullRangeFormat(s.fmt));
        }
    } else {
        const AVPixelFormat planar = hasAlpha(s.fmt) ? AV_PIX_FMT_YUVA444P : AV_PIX_FMT_YUV444P;
        if (s.fmt == planar) {
            unpackAyuv(words, f);
        } else {
            AVFrame* p = s.yuv.get(w, h, planar);
            unpackAyuv(words, p);
            s.fromYuv.convert(p->data, p->linesize, w, h, planar, tags.space, false, f->data,
                              f->linesize, w, h, s.fmt, tags.space, isFullRangeFormat(s.fmt));
        }
    }
    const AVRational inTb =
        s.settings.timeBase.known() ? toAv(s.settings.timeBase) : s.enc->time_base;
    f->pts = av_rescale_q(pts, inTb, s.enc->time_base);
    if (const int r = avcodec_send_frame(s.enc, f); r < 0) {
        throw std::runtime_error("cannot encode video: " + avError(r));
    }
    s.drain();
}

void VideoWriter::writePacket(AVPacket* packet, const AVStream* in, int32_t outIndex) {
    State& s = *s_;
    s.writeHeader();
    AVStream* out = s.oc->streams[outIndex];
    av_packet_rescale_ts(packet, in->time_base, out->time_base);
    packet->stream_index = outIndex;
    packet->pos = -1;
    if (const int r = av_interleaved_write_frame(s.oc, packet); r < 0) {
        throw std::runtime_error("cannot write " + s.settings.containerName + ": " + avError(r));
    }
}

void VideoWriter::finish() {
    State& s = *s_;
    if (s.finished) return;
    s.writeHeader();
    avcodec_send_frame(s.enc, nullptr);
    s.drain();
    if (const int r = av_write_trailer(s.oc); r < 0) {
        throw std::runtime_error("cannot write " + s.settings.containerName + ": " + avError(r));
    }
    if (s.fileOpen) {
        avio_flush(s.oc->pb);
        const int err = s.oc->pb->error;
        avio_closep(&s.oc->pb);
        s.fileOpen = false;
        if (err < 0)
            throw std::runtime_error("cannot write " + s.settings.containerName + ": " +
                                     avError(err));
    }
    s.finished = true;
}

std::string VideoWriter::description() const {
    const State& s = *s_;
    return std::string(avcodec_get_name(s.enc->codec_id)) + " (" + s.enc->codec->name + ", " +
           av_get_pix_fmt_name(s.fmt) + ") in " + s.oc->oformat->name;
}

int32_t streamIndex(const AVStream* stream) {
    return stream->index;
}

std::string streamCodecName(const AVStream* stream) {
    return avcodec_get_name(stream->codecpar->codec_id);
}

Picture scaleArgb(const Picture& argb, int32_t width, int32_t height) {
    Picture out(width, height);
    Converter c;
    const uint8_t* src[4] = {reinterpret_cast<const uint8_t*>(argb.words.data()), nullptr, nullptr,
                             nullptr};
    const int srcStride[4] = {argb.stride, 0, 0, 0};
    uint8_t* dst[4] = {reinterpret_cast<uint8_t*>(out.data()), nullptr, nullptr, nullptr};
    const int dstStride[4] = {out.stride, 0, 0, 0};
    c.convert(src, srcStride, argb.width, argb.height, AV_PIX_FMT_BGRA, AVCOL_SPC_BT709, true, dst,
              dstStride, width, height, AV_PIX_FMT_BGRA, AVCOL_SPC_BT709, true);
    return out;
}

}  // namespace reelfx::tool
