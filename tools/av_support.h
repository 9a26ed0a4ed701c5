// FFmpeg helpers shared by the video reader and writer; included by their
// .cpp files only.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <string>

#include "tools/video_common.h"

namespace reelfx::tool {

std::string avError(int code);
// FFmpeg's text for a failure of a call that allocates: std::bad_alloc for
// ENOMEM; an external library's unnamed failure (x264 that could not
// allocate) says that memory may be the cause when the process's address
// space is limited.
std::string avFailure(int code);

inline AVRational toAv(Rational r) {
    return AVRational{r.num, r.den};
}
inline Rational fromAv(AVRational r) {
    return Rational{r.num, r.den};
}

bool isRgbFormat(AVPixelFormat f);
bool hasAlpha(AVPixelFormat f);
bool isFullRangeFormat(AVPixelFormat f);

// One reusable converter between two layouts; the colour matrices and
// ranges are set on every (re)creation.
struct Converter {
    SwsContext* ctx = nullptr;
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
    AVFrame* frame = nullptr;
    Planes();
    Planes(const Planes&) = delete;
    Planes& operator=(const Planes&) = delete;
    ~Planes();
    AVFrame* get(int w, int h, AVPixelFormat fmt);
};

// AYUV words <-> planes Y, U, V (and A) of yuv444p / yuva444p.
void packAyuv(const AVFrame* f, Picture& out);
void unpackAyuv(const Picture& in, AVFrame* f);

void copyRows(const uint8_t* src, int srcStride, uint8_t* dst, int dstStride, int rowBytes,
              int rows);

}  // namespace reelfx::tool
