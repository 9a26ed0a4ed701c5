#include "tools/video_writer.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <cstring>
#include <new>
#include <stdexcept>

#include "tools/av_support.h"
#include "tools/params.h"

namespace reelfx::tool {

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

}  // namespace reelfx::tool
