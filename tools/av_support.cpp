#include "tools/av_support.h"

extern "C" {
#include <libavutil/imgutils.h>
}

#include <sys/resource.h>

#include <cstring>
#include <new>
#include <stdexcept>

namespace reelfx::tool {

std::string avError(int code) {
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buf, sizeof buf);
    return buf;
}

std::string avFailure(int code) {
    if (code == AVERROR(ENOMEM)) throw std::bad_alloc();
    std::string text = avError(code);
    rlimit limit{};
    if ((code == AVERROR_EXTERNAL || code == AVERROR_UNKNOWN) &&
        ::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        text += " (out of memory? the address space is limited to " +
                std::to_string(limit.rlim_cur >> 20) + " MB)";
    }
    return text;
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

namespace {
constexpr int kSwsFlags = SWS_BICUBIC | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
}  // namespace

void Converter::convert(const uint8_t* const src[], const int srcStride[], int srcW, int srcH,
                        AVPixelFormat srcFmt, int srcSpace, bool srcFull, uint8_t* const dst[],
                        const int dstStride[], int dstW, int dstH, AVPixelFormat dstFmt,
                        int dstSpace, bool dstFull) {
    ctx = sws_getCachedContext(ctx, srcW, srcH, srcFmt, dstW, dstH, dstFmt, kSwsFlags, nullptr,
                               nullptr, nullptr);
    if (!ctx) {
        // Between layouts swscale handles, only memory can be missing.
        if (sws_isSupportedInput(srcFmt) > 0 && sws_isSupportedOutput(dstFmt) > 0)
            throw std::bad_alloc();
        throw std::runtime_error(std::string("cannot convert ") + av_get_pix_fmt_name(srcFmt) +
                                 " to " + av_get_pix_fmt_name(dstFmt));
    }
    // RGB sides are full range by definition.
    const std::string what =
        std::string(av_get_pix_fmt_name(srcFmt)) + " to " + av_get_pix_fmt_name(dstFmt);
    if (sws_setColorspaceDetails(ctx, sws_getCoefficients(srcSpace),
                                 isRgbFormat(srcFmt) ? 1 : srcFull, sws_getCoefficients(dstSpace),
                                 isRgbFormat(dstFmt) ? 1 : dstFull, 0, 1 << 16, 1 << 16) < 0) {
        throw std::runtime_error("cannot set the colour matrices to convert " + what);
    }
    const bool staged = dstW % 8 != 0;
    if (staged) {
        if (!staging) staging = newFrame();
        AVFrame* f = staging.get();
        if (f->width != dstW || f->height != dstH || f->format != dstFmt) {
            av_frame_unref(f);
            f->width = dstW;
            f->height = dstH;
            f->format = dstFmt;
            if (const int r = av_frame_get_buffer(f, 0); r < 0) {
                if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
                throw std::runtime_error("cannot convert " + what + ": " + avError(r));
            }
        }
    }
    uint8_t* const* out = staged ? staging->data : dst;
    const int* outStride = staged ? staging->linesize : dstStride;
    if (const int rows = sws_scale(ctx, src, srcStride, 0, srcH, out, outStride); rows != dstH) {
        if (rows == AVERROR(ENOMEM)) throw std::bad_alloc();
        throw std::runtime_error(
            "cannot convert " + what + ": " +
            (rows < 0 ? avError(rows)
                      : std::to_string(rows) + " of " + std::to_string(dstH) + " rows"));
    }
    if (staged) {
        uint8_t* dstData[4] = {dst[0], dst[1], dst[2], dst[3]};
        int dstLines[4] = {dstStride[0], dstStride[1], dstStride[2], dstStride[3]};
        const uint8_t* stagedData[4] = {staging->data[0], staging->data[1], staging->data[2],
                                        staging->data[3]};
        av_image_copy(dstData, dstLines, stagedData, staging->linesize, dstFmt, dstW, dstH);
    }
}

PacketOwner newPacket() {
    PacketOwner p(av_packet_alloc());
    if (!p) throw std::bad_alloc();
    return p;
}

void AvFrameFree::operator()(AVFrame* f) const { av_frame_free(&f); }

FrameOwner newFrame() {
    FrameOwner f(av_frame_alloc());
    if (!f) throw std::bad_alloc();
    return f;
}

AVFrame* Planes::get(int w, int h, AVPixelFormat fmt) {
    AVFrame* f = frame.get();
    if (f->width != w || f->height != h || f->format != fmt) {
        av_frame_unref(f);
        f->width = w;
        f->height = h;
        f->format = fmt;
        if (av_frame_get_buffer(f, 0) < 0) throw std::bad_alloc();
    }
    return f;
}

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

ColourTags rgbSourceTags() { return {AVCOL_SPC_BT709, AVCOL_PRI_BT709, AVCOL_TRC_BT709, false}; }

ColourTags moduleAyuvTags() {
    return {AVCOL_SPC_SMPTE170M, AVCOL_PRI_SMPTE170M, AVCOL_TRC_SMPTE170M, false};
}

int32_t streamIndex(const AVStream* stream) { return stream->index; }

std::string streamCodecName(const AVStream* stream) {
    const AVCodecParameters* par = stream->codecpar;
    if (par->codec_id == AV_CODEC_ID_NONE && par->codec_tag != 0) {
        char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
        av_fourcc_make_string(tag, par->codec_tag);
        return std::string("tag ") + tag;
    }
    return avcodec_get_name(par->codec_id);
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
