#include "tools/video_writer.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <new>
#include <stdexcept>

#include "tools/av_support.h"
#include "tools/output_file.h"
#include "tools/params.h"

namespace reelfx::tool {

struct VideoWriter::State {
    VideoOutputSettings settings;
    OutputOwner oc;
    CodecOwner enc;
    AVStream* vst = nullptr;
    FrameOwner frame = newFrame();
    PacketOwner pkt = newPacket();
    AVPixelFormat fmt = AV_PIX_FMT_NONE;
    int32_t width = 0, height = 0;  // encoded: the frame's size, or padded to whole chroma samples
    bool interlaced = false, topFieldFirst = false;
    std::vector<std::string> notices;
    bool headerWritten = false;
    bool finished = false;
    bool fileOpen = false;
    EncodeConversion conversion;
    std::map<int32_t, SteadyStamps> copiedStamps;  // by output stream

    void openContainer(const AVOutputFormat* of);
    const AVCodec* chooseEncoder(const AVOutputFormat* of) const;
    void choosePictureLayout(const AVCodec* codec, const AVStream* sourceVideo);
    void configureEncoder(const AVCodec* codec, const AVOutputFormat* of,
                          const AVStream* sourceVideo);
    void openEncoder(const AVCodec* codec);
    void addVideoStream(const AVStream* sourceVideo);
    void openFile(const AVOutputFormat* of);

    bool isY4m() const { return std::strcmp(oc->oformat->name, "yuv4mpegpipe") == 0; }

    // A failure of FFmpeg's writing calls; after a signal the run ends as
    // interrupted instead.
    [[noreturn]] void failWrite(int r) const {
        throwIfInterrupted();
        const std::string what =
            settings.containerName == "-" ? "- (standard output)" : settings.containerName;
        throw std::runtime_error("cannot write " + what + ": " + avFailure(r) +
                                 (r == AVERROR(EPIPE) ? "; the reading end was closed" : ""));
    }
    [[noreturn]] void failEncode(int r) const {
        throwIfInterrupted();
        throw std::runtime_error("cannot encode video for " + settings.containerName + ": " +
                                 avFailure(r));
    }

    void writeHeader() {
        if (headerWritten) return;
        // MP4 and QuickTime files get their index up front, so players and
        // browsers can start before the whole file has arrived.
        AVDictionary* options = nullptr;
        const std::string name = oc->oformat->name;
        if (name == "mp4" || name == "mov") {
            if (av_dict_set(&options, "movflags", "+faststart", 0) < 0) throw std::bad_alloc();
        }
        // A still name without a frame number is written over, not numbered.
        if (name == "image2" && !isPictureSequence(settings.containerName) &&
            av_dict_set(&options, "update", "1", 0) < 0) {
            av_dict_free(&options);
            throw std::bad_alloc();
        }
        const int r = avformat_write_header(oc.get(), &options);
        av_dict_free(&options);
        if (r < 0) {
            // Containers without a codec table refuse only here: name what
            // was offered.
            throwIfInterrupted();
            std::string streams;
            for (unsigned i = 0; i < oc->nb_streams; ++i) {
                const AVCodecParameters* par = oc->streams[i]->codecpar;
                const char* kind = av_get_media_type_string(par->codec_type);
                streams += std::string(i ? ", " : "") + avcodec_get_name(par->codec_id) + " " +
                           (kind ? kind : "data");
            }
            const bool matroska = std::strcmp(oc->oformat->name, "matroska") == 0;
            throw std::runtime_error(
                "cannot write " + settings.containerName + ": the " + oc->oformat->name +
                " container refused " + streams + " (" + avFailure(r) + ")" +
                (matroska ? "; choose another --codec" : "; .mkv holds them all") +
                (oc->nb_streams > 1 ? ", or leave streams out with --no-audio" : ""));
        }
        headerWritten = true;
    }

    void drain() {
        while (true) {
            const int r = avcodec_receive_packet(enc.get(), pkt.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return;
            if (r < 0) failEncode(r);
            av_packet_rescale_ts(pkt.get(), enc->time_base, vst->time_base);
            pkt->stream_index = vst->index;
            if (const int w = av_interleaved_write_frame(oc.get(), pkt.get()); w < 0) failWrite(w);
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
    // H.264 where players expect it: the MP4 family and transport streams
    // (whose own default, MPEG-2, takes only broadcast frame rates).
    if (name == "mp4" || name == "mov" || name == "ipod" || name == "3gp" || name == "3g2" ||
        name == "mpegts") {
        // Debian's libavcodec has libx264; other builds may only have another
        // H.264 encoder, or none, and then MPEG-4 part 2 still plays anywhere.
        if (const AVCodec* c = avcodec_find_encoder_by_name("libx264")) return c;
        if (const AVCodec* c = avcodec_find_encoder(AV_CODEC_ID_H264)) return c;
        return avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    }
    // MPEG program streams and MXF with MPEG-2, which takes more frame rates
    // than MPEG-1.
    if (name == "mpeg" || name == "vob" || name == "dvd" || name == "mxf")
        return avcodec_find_encoder(AV_CODEC_ID_MPEG2VIDEO);
    // Pictures (image2) by their extension: .jpg, .tif, .bmp, out_%04d.png.
    return avcodec_find_encoder(
        av_guess_codec(of, nullptr, settings.containerName.c_str(), nullptr, AVMEDIA_TYPE_VIDEO));
}

AVPixelFormat pickPixelFormat(const VideoOutputSettings& settings, const AVCodec* codec, bool y4m) {
    const AVPixelFormat* list = codec->pix_fmts;
    if (!settings.pixelFormat.empty()) {
        const AVPixelFormat f = av_get_pix_fmt(settings.pixelFormat.c_str());
        if (f == AV_PIX_FMT_NONE)
            throw UsageError("unknown pixel format \"" + settings.pixelFormat + "\"");
        const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(f);
        if (d && (d->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM))) {
            throw UsageError("\"" + settings.pixelFormat +
                             "\" is a hardware or bitstream pixel format; reelfx hands the "
                             "encoder pictures in memory: choose one such as yuv420p");
        }
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
        // The source's chroma layout in 8 bits (a 10-bit 4:2:2 source gives
        // 4:2:2), which every reader of YUV4MPEG2 takes.
        const AVPixFmtDescriptor* src =
            av_pix_fmt_desc_get(static_cast<AVPixelFormat>(settings.sourcePixelFormat));
        if (src && !(src->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL))) {
            if (src->nb_components <= 2) return AV_PIX_FMT_GRAY8;
            if (src->log2_chroma_w == 0 && src->log2_chroma_h == 0) return AV_PIX_FMT_YUV444P;
            if (src->log2_chroma_w == 1 && src->log2_chroma_h == 0 && settings.width % 2 == 0)
                return AV_PIX_FMT_YUV422P;
        }
        return even ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV444P;
    }
    // The pixels exactly as the module made them, where nothing is lost anyway.
    const AVPixelFormat exact =
        settings.fourcc == kFourccAyuv ? AV_PIX_FMT_YUVA444P : AV_PIX_FMT_BGRA;
    const AVCodecDescriptor* d = avcodec_descriptor_get(codec->id);
    const bool lossless =
        d && (d->props & AV_CODEC_PROP_LOSSLESS) && !(d->props & AV_CODEC_PROP_LOSSY);
    if (!list) return exact;
    if (lossless) {
        return listed(list, exact) ? exact
                                   : avcodec_find_best_pix_fmt_of_list(list, exact, 1, nullptr);
    }
    // A JPEG picture keeps full chroma at any size.
    if (codec->id == AV_CODEC_ID_MJPEG && listed(list, AV_PIX_FMT_YUVJ444P))
        return AV_PIX_FMT_YUVJ444P;
    // 4:2:0 is what players (browsers included) expect from lossy video; odd
    // sizes are padded to it.
    if (listed(list, AV_PIX_FMT_YUV420P)) return AV_PIX_FMT_YUV420P;
    if (listed(list, AV_PIX_FMT_YUV444P)) return AV_PIX_FMT_YUV444P;
    return avcodec_find_best_pix_fmt_of_list(list, exact, 1, nullptr);
}

// Rounds up to whole chroma samples of `fmt` (4:2:0 needs even sizes).
int32_t roundUpToChroma(int32_t size, int log2) {
    const int32_t step = 1 << log2;
    return (size + step - 1) / step * step;
}

// `in` grown to `w` x `h` by repeating its last column and row.
void padInto(const Picture& in, Picture& out, int32_t w, int32_t h) {
    if (out.width != w || out.height != h) out = Picture(w, h);
    for (int32_t y = 0; y < h; ++y) {
        const uint32_t* src = in.row(std::min(y, in.height - 1));
        uint32_t* dst = out.row(y);
        std::copy(src, src + in.width, dst);
        std::fill(dst + in.width, dst + w, src[in.width - 1]);
    }
}

void copyStreamSideData(const AVStream* in, AVStream* out) {
    // Everything a container keeps about the picture (display matrix,
    // stereo and spherical layout, HDR mastering); not the decoder buffer
    // description, which belongs to the old bitstream.
    for (int i = 0; i < in->nb_side_data; ++i) {
        const AVPacketSideData& sd = in->side_data[i];
        if (sd.type == AV_PKT_DATA_CPB_PROPERTIES) continue;
        uint8_t* data = av_stream_new_side_data(out, sd.type, sd.size);
        if (!data) throw std::bad_alloc();
        std::memcpy(data, sd.data, sd.size);
    }
}

// Container and stream tags that describe the new file rather than the old
// one are left to the muxer.
void copyTags(AVDictionary** out, const AVDictionary* in) {
    if (av_dict_copy(out, in, 0) < 0) throw std::bad_alloc();
    for (const char* key :
         {"encoder", "DURATION", "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES", "BPS", "_STATISTICS_TAGS",
          "_STATISTICS_WRITING_APP", "_STATISTICS_WRITING_DATE_UTC", "major_brand", "minor_version",
          "compatible_brands"}) {
        if (av_dict_set(out, key, nullptr, 0) < 0) throw std::bad_alloc();
    }
}

// An encoder option, its own or a general one.
void setOption(AVCodecContext* enc, const char* name, const char* value) {
    if (const int r = av_opt_set(enc, name, value, AV_OPT_SEARCH_CHILDREN); r < 0) {
        throw std::runtime_error(std::string("cannot set the encoder's ") + name + " to " + value +
                                 ": " + avError(r));
    }
}

bool isMpeg12(AVCodecID id) { return id == AV_CODEC_ID_MPEG1VIDEO || id == AV_CODEC_ID_MPEG2VIDEO; }

}  // namespace

bool knownVideoContainer(const std::string& name) { return guessContainer(name) != nullptr; }

std::string severalFilesFormat(const std::string& name) {
    const AVOutputFormat* of = guessContainer(name);
    if (!of) return {};
    for (const char* several : {"dash", "hls", "segment", "stream_segment", "smoothstreaming",
                                "webm_chunk", "tee", "fifo"}) {
        if (std::strcmp(of->name, several) == 0) return of->long_name ? of->long_name : of->name;
    }
    return {};
}

namespace {

// The source's video stream, whose tags, side data and field order go along.
const AVStream* sourceVideoOf(const VideoOutputSettings& settings) {
    const AVFormatContext* in = settings.sourceContainer;
    if (!in || settings.sourceVideoStream < 0 ||
        settings.sourceVideoStream >= static_cast<int32_t>(in->nb_streams))
        return nullptr;
    return in->streams[settings.sourceVideoStream];
}

void setEncoderOptions(AVCodecContext* enc, const AVCodec* codec) {
    if (std::strcmp(codec->name, "libx264") == 0) {
        setOption(enc, "preset", "medium");
        setOption(enc, "crf", "18");
    } else if (std::strcmp(codec->name, "libx265") == 0) {
        setOption(enc, "x265-params", "log-level=error");
    } else if (codec->id == AV_CODEC_ID_FFV1) {
        setOption(enc, "level", "3");  // sliced, so it encodes on all cores
    } else if (codec->id == AV_CODEC_ID_MPEG4 || isMpeg12(codec->id) ||
               codec->id == AV_CODEC_ID_MJPEG) {
        enc->flags |= AV_CODEC_FLAG_QSCALE;
        enc->global_quality = FF_QP2LAMBDA * 3;
    }
}

}  // namespace

void VideoWriter::State::openContainer(const AVOutputFormat* of) {
    const std::string url = settings.path == "-" ? "pipe:1" : settings.path;
    AVFormatContext* context = nullptr;
    if (avformat_alloc_output_context2(&context, of, nullptr, url.c_str()) < 0 || !context)
        throw std::bad_alloc();
    oc.reset(context);
    // A signal ends blocking writes (a pipe nobody reads) too.
    oc->interrupt_callback.callback = interruptCallback;
    // YUV4MPEG2 has no field for the colour matrix and its readers take
    // BT.601, so RGB pictures are converted by that.
    if (isY4m()) settings.colour = moduleAyuvTags();
}

const AVCodec* VideoWriter::State::chooseEncoder(const AVOutputFormat* of) const {
    const AVCodec* codec = pickEncoder(settings, of);
    if (!codec) {
        throw UsageError(std::string("this FFmpeg build has no video encoder for ") +
                         of->long_name + "; choose one with --codec");
    }
    if (avformat_query_codec(of, codec->id, FF_COMPLIANCE_NORMAL) == 0) {
        throw UsageError(std::string("the ") + of->name + " container cannot hold " + codec->name +
                         " video; choose another --codec or output name");
    }
    return codec;
}

// The encoded pixel format, interlacing and size (padded to whole chroma
// samples).
void VideoWriter::State::choosePictureLayout(const AVCodec* codec, const AVStream* sourceVideo) {
    fmt = pickPixelFormat(settings, codec, isY4m());
    // Interlaced sources stay interlaced, fields in the same order.
    const AVFieldOrder order = sourceVideo ? sourceVideo->codecpar->field_order : AV_FIELD_UNKNOWN;
    interlaced = order == AV_FIELD_TT || order == AV_FIELD_BB || order == AV_FIELD_TB ||
                 order == AV_FIELD_BT;
    topFieldFirst = order == AV_FIELD_TT || order == AV_FIELD_TB;
    // Each field of an interlaced picture has whole chroma rows too.
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(fmt);
    width = roundUpToChroma(settings.width, desc ? desc->log2_chroma_w : 0);
    height = roundUpToChroma(settings.height, (desc ? desc->log2_chroma_h : 0) +
                                                  (interlaced && desc && desc->log2_chroma_h));
    if (width != settings.width || height != settings.height) {
        notices.push_back(std::to_string(settings.width) + "x" + std::to_string(settings.height) +
                          " padded to " + std::to_string(width) + "x" + std::to_string(height) +
                          " for " + av_get_pix_fmt_name(fmt) +
                          " (the last column or row repeated)");
    }
}

void VideoWriter::State::configureEncoder(const AVCodec* codec, const AVOutputFormat* of,
                                          const AVStream* sourceVideo) {
    enc.reset(avcodec_alloc_context3(codec));
    if (!enc) throw std::bad_alloc();
    const AVRational rate =
        settings.frameRate.known() ? toAv(settings.frameRate) : AVRational{25, 1};
    AVRational tb = settings.timeBase.known() ? toAv(settings.timeBase) : av_inv_q(rate);
    // YUV4MPEG2 and MPEG-1/2 take their frame rate from the time base, and
    // some encoders cannot take fine time bases.
    if (isY4m() || isMpeg12(codec->id) || tb.den > 65535) tb = av_inv_q(rate);
    enc->width = width;
    enc->height = height;
    enc->pix_fmt = fmt;
    enc->time_base = tb;
    enc->framerate = rate;
    enc->sample_aspect_ratio =
        settings.sampleAspect.known() ? toAv(settings.sampleAspect) : AVRational{0, 1};
    enc->thread_count = 0;
    if (!isRgbFormat(fmt)) {
        enc->colorspace = static_cast<AVColorSpace>(settings.colour.space);
        enc->color_primaries = static_cast<AVColorPrimaries>(settings.colour.primaries);
        enc->color_trc = static_cast<AVColorTransferCharacteristic>(settings.colour.transfer);
        enc->color_range = isFullRangeFormat(fmt) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    }
    if (interlaced) {
        enc->field_order = sourceVideo->codecpar->field_order;
        enc->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
    }
    setEncoderOptions(enc.get(), codec);
    if (of->flags & AVFMT_GLOBALHEADER) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
}

void VideoWriter::State::openEncoder(const AVCodec* codec) {
    const int r = avcodec_open2(enc.get(), codec, nullptr);
    if (r >= 0) return;
    const std::string why =
        isMpeg12(codec->id)
            ? " (MPEG-1 and MPEG-2 video take only broadcast frame rates such as 24, 25, "
              "29.97, 30, 50 or 60 per second; write .mp4 or .mkv)"
            : "";
    throwIfInterrupted();
    const AVRational rate = enc->framerate;
    throw std::runtime_error(std::string("cannot encode ") + std::to_string(width) + "x" +
                             std::to_string(height) + " " + av_get_pix_fmt_name(fmt) +
                             " video at " + std::to_string(rate.num) + "/" +
                             std::to_string(rate.den) + " frames per second with " + codec->name +
                             ": " + avFailure(r) + why);
}

void VideoWriter::State::addVideoStream(const AVStream* sourceVideo) {
    vst = avformat_new_stream(oc.get(), nullptr);
    if (!vst || avcodec_parameters_from_context(vst->codecpar, enc.get()) < 0)
        throw std::bad_alloc();
    vst->time_base = enc->time_base;
    vst->avg_frame_rate = enc->framerate;
    vst->sample_aspect_ratio = enc->sample_aspect_ratio;
    // What the source file says about itself and its picture carries over:
    // title, creation time, language, rotation.
    if (settings.sourceContainer) copyTags(&oc->metadata, settings.sourceContainer->metadata);
    for (const auto& [key, value] : settings.tags) {
        if (av_dict_set(&oc->metadata, key.c_str(), value.c_str(), 0) < 0) throw std::bad_alloc();
    }
    if (sourceVideo) {
        copyTags(&vst->metadata, sourceVideo->metadata);
        copyStreamSideData(sourceVideo, vst);
        vst->disposition = sourceVideo->disposition;
    }
}

void VideoWriter::State::openFile(const AVOutputFormat* of) {
    if (of->flags & AVFMT_NOFILE) return;
    const std::string url = settings.path == "-" ? "pipe:1" : settings.path;
    if (const int r =
            avio_open2(&oc->pb, url.c_str(), AVIO_FLAG_WRITE, &oc->interrupt_callback, nullptr);
        r < 0) {
        failWrite(r);
    }
    fileOpen = true;
}

VideoWriter::VideoWriter(const VideoOutputSettings& settings) : s_(std::make_unique<State>()) {
    State& s = *s_;
    s.settings = settings;
    const AVOutputFormat* of = guessContainer(settings.containerName);
    if (!of) {
        throw UsageError("cannot tell a video format from the name " + settings.containerName +
                         " (use .mp4, .mkv, .mov, .png, or - for YUV4MPEG2 on standard output)");
    }
    s.openContainer(of);
    const AVCodec* codec = s.chooseEncoder(of);
    const AVStream* sourceVideo = sourceVideoOf(settings);
    s.choosePictureLayout(codec, sourceVideo);
    s.configureEncoder(codec, of, sourceVideo);
    s.openEncoder(codec);
    s.addVideoStream(sourceVideo);
    s.openFile(of);
}

VideoWriter::~VideoWriter() = default;

bool VideoWriter::isYuv4mpeg() const { return s_->isY4m(); }
std::string VideoWriter::container() const { return s_->oc->oformat->name; }

bool VideoWriter::canCopy(const AVStream* in) const {
    if (s_->isY4m()) return false;
    const AVOutputFormat* of = s_->oc->oformat;
    const AVCodecID id = in->codecpar->codec_id;
    const int known = avformat_query_codec(of, id, FF_COMPLIANCE_NORMAL);
    if (known >= 0) return known == 1;
    // Containers without a codec table: Ogg holds only Xiph's codecs and
    // Opus; the others (MPEG-TS, ...) are left to try.
    if (std::strcmp(of->name, "ogg") == 0 || std::strcmp(of->name, "ogv") == 0 ||
        std::strcmp(of->name, "oga") == 0) {
        return id == AV_CODEC_ID_VORBIS || id == AV_CODEC_ID_OPUS || id == AV_CODEC_ID_FLAC ||
               id == AV_CODEC_ID_SPEEX || id == AV_CODEC_ID_THEORA || id == AV_CODEC_ID_VP8;
    }
    return holds(in->codecpar->codec_type);
}

bool VideoWriter::holds(int32_t mediaType) const {
    if (s_->isY4m()) return false;
    const AVOutputFormat* of = s_->oc->oformat;
    switch (mediaType) {
        case AVMEDIA_TYPE_AUDIO: return of->audio_codec != AV_CODEC_ID_NONE;
        case AVMEDIA_TYPE_SUBTITLE:
            return of->subtitle_codec != AV_CODEC_ID_NONE ||
                   std::strcmp(of->name, "matroska") == 0 || std::strcmp(of->name, "webm") == 0 ||
                   std::strcmp(of->name, "mp4") == 0 || std::strcmp(of->name, "mov") == 0;
        default:
            return !(of->flags & AVFMT_NOFILE) && std::strcmp(of->name, "image2") != 0 &&
                   of->audio_codec != AV_CODEC_ID_NONE;
    }
}

std::map<int32_t, int32_t> VideoWriter::addCopiedStreams(const AVFormatContext* in,
                                                         int32_t videoStream, bool audio,
                                                         const std::string& sourceName,
                                                         std::vector<std::string>& leftOut) {
    std::map<int32_t, int32_t> copied;
    const std::string container = s_->isY4m() ? "YUV4MPEG2" : s_->oc->oformat->name;
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream* st = in->streams[i];
        const AVMediaType type = st->codecpar->codec_type;
        if (static_cast<int32_t>(i) == videoStream || (type == AVMEDIA_TYPE_AUDIO && !audio))
            continue;
        // A QuickTime timecode track travels as the "timecode" tag, from
        // which the MP4 family writes its own track again.
        if (type == AVMEDIA_TYPE_DATA && st->codecpar->codec_id == AV_CODEC_ID_NONE &&
            st->codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd') &&
            av_dict_get(in->streams[videoStream]->metadata, "timecode", nullptr, 0))
            continue;
        const char* kind = av_get_media_type_string(type);
        const std::string what = std::string(kind ? kind : "unknown") + " stream " +
                                 std::to_string(i) + " (" + streamCodecName(st) + ")";
        if (canCopy(st)) {
            copied[static_cast<int32_t>(i)] = addCopiedStream(st);
        } else if (!holds(type)) {
            leftOut.push_back(what + ": " + container + " holds no " + (kind ? kind : "such") +
                              " streams");
        } else if (type == AVMEDIA_TYPE_AUDIO) {
            throw UsageError("the " + container + " container cannot hold the " +
                             streamCodecName(st) + " audio of " + sourceName +
                             "; write .mkv, or leave the audio out with --no-audio");
        } else {
            leftOut.push_back(what + ": " + container + " cannot hold " + streamCodecName(st));
        }
    }
    return copied;
}

const std::vector<std::string>& VideoWriter::notices() const { return s_->notices; }

int32_t VideoWriter::addCopiedStream(const AVStream* in) {
    AVStream* st = avformat_new_stream(s_->oc.get(), nullptr);
    if (!st || avcodec_parameters_copy(st->codecpar, in->codecpar) < 0) throw std::bad_alloc();
    st->codecpar->codec_tag = 0;
    st->time_base = in->time_base;
    copyTags(&st->metadata, in->metadata);
    copyStreamSideData(in, st);
    st->disposition = in->disposition;
    // FFmpeg 5 still calls some standardised mappings experimental (FLAC and
    // Opus in MP4); a copy carries them over as they are.
    s_->oc->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    return st->index;
}

void VideoWriter::writeFrame(const Picture& picture, int64_t pts) {
    convertFrame(picture, s_->frame.get(), s_->conversion);
    encodeFrame(s_->frame.get(), pts);
}

void VideoWriter::convertFrame(const Picture& picture, AVFrame* f, EncodeConversion& c) const {
    const State& s = *s_;
    if (f->width != s.width || f->height != s.height || f->format != s.fmt) {
        av_frame_unref(f);
        f->width = s.width;
        f->height = s.height;
        f->format = s.fmt;
        if (const int r = av_frame_get_buffer(f, 0); r < 0) s.failEncode(r);
    }
    // The encoder may still hold the previous frame's buffers.
    if (const int r = av_frame_make_writable(f); r < 0) s.failEncode(r);
    const ColourTags& tags = s.settings.colour;
    const int w = s.width, h = s.height;
    const bool pad = picture.width != w || picture.height != h;
    if (pad) padInto(picture, c.padded, w, h);
    const Picture& words = pad ? c.padded : picture;

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
            c.fromRgb.convert(src, srcStride, w, h, AV_PIX_FMT_BGRA, tags.space, true, f->data,
                              f->linesize, w, h, s.fmt, tags.space, isFullRangeFormat(s.fmt));
        }
    } else {
        const AVPixelFormat planar = hasAlpha(s.fmt) ? AV_PIX_FMT_YUVA444P : AV_PIX_FMT_YUV444P;
        if (s.fmt == planar) {
            unpackAyuv(words, f);
        } else {
            AVFrame* p = c.yuv.get(w, h, planar);
            unpackAyuv(words, p);
            c.fromYuv.convert(p->data, p->linesize, w, h, planar, tags.space, false, f->data,
                              f->linesize, w, h, s.fmt, tags.space, isFullRangeFormat(s.fmt));
        }
    }
}

void VideoWriter::encodeFrame(AVFrame* f, int64_t pts) {
    State& s = *s_;
    s.writeHeader();
    const AVRational inTb =
        s.settings.timeBase.known() ? toAv(s.settings.timeBase) : s.enc->time_base;
    f->pts = av_rescale_q(pts, inTb, s.enc->time_base);
    f->interlaced_frame = s.interlaced;
    f->top_field_first = s.topFieldFirst;
    if (const int r = avcodec_send_frame(s.enc.get(), f); r < 0) s.failEncode(r);
    s.drain();
}

void VideoWriter::writePacket(AVPacket* packet, const AVStream* in, int32_t outIndex) {
    State& s = *s_;
    s.writeHeader();
    AVStream* out = s.oc->streams[outIndex];
    av_packet_rescale_ts(packet, in->time_base, out->time_base);
    // Copied streams of clips joined end to end start again with the video.
    if (packet->dts != AV_NOPTS_VALUE) {
        const int64_t dts = packet->dts;
        const int64_t steady = s.copiedStamps[outIndex].next(
            dts, std::max<int64_t>(packet->duration, 1), std::numeric_limits<int64_t>::max());
        packet->dts = steady;
        if (packet->pts != AV_NOPTS_VALUE) packet->pts += steady - dts;
    }
    packet->stream_index = outIndex;
    packet->pos = -1;
    if (const int r = av_interleaved_write_frame(s.oc.get(), packet); r < 0) s.failWrite(r);
}

void VideoWriter::finish() {
    State& s = *s_;
    if (s.finished) return;
    s.writeHeader();
    if (const int r = avcodec_send_frame(s.enc.get(), nullptr); r < 0) s.failEncode(r);
    s.drain();
    if (const int r = av_write_trailer(s.oc.get()); r < 0) s.failWrite(r);
    if (s.fileOpen) {
        avio_flush(s.oc->pb);
        const int err = s.oc->pb->error;
        avio_closep(&s.oc->pb);
        s.fileOpen = false;
        if (err < 0) s.failWrite(err);
    }
    s.finished = true;
}

void writePicture(const std::string& path, const std::string& finalName, const Picture& argb) {
    VideoOutputSettings settings;
    settings.path = path;
    settings.containerName = finalName;
    settings.width = argb.width;
    settings.height = argb.height;
    settings.frameRate = Rational{1, 1};
    settings.timeBase = Rational{1, 1};
    settings.colour = rgbSourceTags();
    VideoWriter writer(settings);
    writer.writeFrame(argb, 0);
    writer.finish();
}

std::string VideoWriter::description() const {
    const State& s = *s_;
    return std::string(avcodec_get_name(s.enc->codec_id)) + " (" + s.enc->codec->name + ", " +
           av_get_pix_fmt_name(s.fmt) + ") in " + s.oc->oformat->name;
}

}  // namespace reelfx::tool
