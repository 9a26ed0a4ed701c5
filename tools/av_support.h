// FFmpeg helpers shared by the video reader, the writer and the threads
// between them: owners, conversions, error texts.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

#include "tools/video_common.h"

namespace reelfx::tool {

// Owners of FFmpeg's packets, frames, dictionaries and contexts: freed with
// the call FFmpeg names for each, on every way out.
struct AvFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
    void operator()(AVFrame* f) const { av_frame_free(&f); }
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
    void operator()(AVDictionary* d) const { av_dict_free(&d); }
};
// A demuxer opened by avformat_open_input.
struct InputClose {
    void operator()(AVFormatContext* ic) const { avformat_close_input(&ic); }
};
// A muxer from avformat_alloc_output_context2, and its file if still open.
struct OutputClose {
    void operator()(AVFormatContext* oc) const {
        if (oc->pb && !(oc->oformat->flags & AVFMT_NOFILE)) avio_closep(&oc->pb);
        avformat_free_context(oc);
    }
};
using PacketOwner = std::unique_ptr<AVPacket, AvFree>;
using FrameOwner = std::unique_ptr<AVFrame, AvFree>;
using CodecOwner = std::unique_ptr<AVCodecContext, AvFree>;
using InputOwner = std::unique_ptr<AVFormatContext, InputClose>;
using OutputOwner = std::unique_ptr<AVFormatContext, OutputClose>;
// Allocated, or std::bad_alloc.
PacketOwner newPacket();
FrameOwner newFrame();

std::string avError(int code);
// FFmpeg's text for a failure of a call that allocates: std::bad_alloc for
// ENOMEM; an external library's unnamed failure (x264 that could not
// allocate) says that memory may be the cause when the process's address
// space is limited.
std::string avFailure(int code);

inline AVRational toAv(Rational r) { return AVRational{r.num, r.den}; }
inline Rational fromAv(AVRational r) { return Rational{r.num, r.den}; }

bool isRgbFormat(AVPixelFormat f);
bool hasAlpha(AVPixelFormat f);
bool isFullRangeFormat(AVPixelFormat f);

// One reusable converter between two layouts; the colour matrices and
// ranges are set on every (re)creation.
struct Converter {
    SwsContext* ctx = nullptr;
    // swscale's vector code writes whole blocks of 8 pixels, past the end of
    // a buffer whose rows are not a multiple of that: such pictures are
    // converted here first and their rows copied out.
    FrameOwner staging;
    Converter() = default;
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() { sws_freeContext(ctx); }

    void convert(const uint8_t* const src[], const int srcStride[], int srcW, int srcH,
                 AVPixelFormat srcFmt, int srcSpace, bool srcFull, uint8_t* const dst[],
                 const int dstStride[], int dstW, int dstH, AVPixelFormat dstFmt, int dstSpace,
                 bool dstFull);
};

// Frame-sized planar buffers for YUV 4:4:4 with or without alpha.
struct Planes {
    FrameOwner frame = newFrame();
    AVFrame* get(int w, int h, AVPixelFormat fmt);
};

// What turns decoded frames into the module's words, and the module's words
// into the encoder's frames: one of each per thread that converts.
struct DecodeConversion {
    Converter toRgb, toYuv;
    Planes yuv;
};
struct EncodeConversion {
    Converter fromRgb, fromYuv;
    Planes yuv;
    Picture padded;
};

// AYUV words <-> planes Y, U, V (and A) of yuv444p / yuva444p.
void packAyuv(const AVFrame* f, Picture& out);
void unpackAyuv(const Picture& in, AVFrame* f);

void copyRows(const uint8_t* src, int srcStride, uint8_t* dst, int dstStride, int rowBytes,
              int rows);

}  // namespace reelfx::tool
