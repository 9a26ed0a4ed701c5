// Video files through FFmpeg's libraries: encoding ARGB or AYUV words and
// copying other streams (audio) unchanged.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/video_common.h"

struct AVPacket;

namespace reelfx::tool {

struct VideoOutputSettings {
    std::string path;           // file to write (a temporary name) or "-"
    std::string containerName;  // the final name, whose extension picks the container
    int32_t width = 0;
    int32_t height = 0;
    Rational frameRate;
    Rational timeBase;  // of the pts handed to writeFrame
    Rational sampleAspect;
    uint32_t fourcc = kFourccArgb;   // words handed to writeFrame
    std::string codec;               // encoder name; empty picks one for the container
    std::string pixelFormat;         // empty picks one for the encoder
    ColourTags colour;               // of the YUV output (and of AYUV words handed in)
    int32_t sourcePixelFormat = -1;  // kept for YUV4MPEG2 pipes when it can be
};

// True when FFmpeg knows a container for this file name ("-" is YUV4MPEG2).
bool knownVideoContainer(const std::string& name);

class VideoWriter {
public:
    // Throws UsageError for an unknown container, encoder or pixel format and
    // std::runtime_error when the file cannot be opened.
    explicit VideoWriter(const VideoOutputSettings& settings);
    ~VideoWriter();
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    // True when the container can hold a copy of `in`.
    bool canCopy(const AVStream* in) const;
    // Adds an unchanged copy of `in`; before the first write. Returns its index.
    int32_t addCopiedStream(const AVStream* in);
    void writeFrame(const Picture& words, int64_t pts);
    // A packet of the copied stream `outIndex`; takes the packet's data.
    void writePacket(AVPacket* packet, const AVStream* in, int32_t outIndex);
    // Drains the encoder and closes the file.
    void finish();
    // "h264 (libx264, yuv420p) in mp4"
    std::string description() const;
    bool isYuv4mpeg() const;
    std::string container() const;  // "mp4", "matroska", ...

private:
    struct State;
    std::unique_ptr<State> s_;
};

}  // namespace reelfx::tool
