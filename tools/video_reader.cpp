#include "tools/video_reader.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "tools/av_support.h"

namespace reelfx::tool {

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

}  // namespace reelfx::tool
