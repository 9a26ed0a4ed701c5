// Video files through FFmpeg's libraries: decoding into ARGB or AYUV words,
// encoding words back, copying other streams (audio) unchanged, scaling.
// No FFmpeg header leaks out of this file's pair.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/host.h"

struct AVFormatContext;
struct AVPacket;
struct AVStream;

namespace reelfx::tool {

struct Rational {
    int32_t num = 0;
    int32_t den = 1;
    bool known() const { return num > 0 && den > 0; }
};

// The colour description of YUV pixels, as FFmpeg's enumeration codes
// (2 = unspecified); `fullRange` for JPEG-range YUV.
struct ColourTags {
    int32_t space = 2;
    int32_t primaries = 2;
    int32_t transfer = 2;
    bool fullRange = false;
};
// What RGB pictures (PNG, the built-in clip) become when encoded as YUV, and
// what the module's own AYUV conversion produces.
ColourTags rgbSourceTags();
ColourTags moduleAyuvTags();

struct VideoInfo {
    int32_t width = 0;
    int32_t height = 0;
    Rational frameRate;  // guessed from the stream; unknown for some
    Rational timeBase;
    Rational sampleAspect;  // unknown when not set (square pixels)
    bool rgb = false;       // RGB pixels rather than YUV or grey
    int32_t pixelFormat = -1;
    ColourTags colour;
    std::string codec;  // decoder name
    std::string container;
    int32_t otherStreams = 0;  // audio streams that can be copied
    // Presentation times in seconds from the start of the stream, in order,
    // found by reading the packets once before decoding.
    std::vector<double> frameTimes;
};

struct DecodedFrame {
    Picture picture;  // ARGB or AYUV words, the stream's size
    int64_t pts = 0;  // in VideoInfo::timeBase
    double time = 0.0;
};

// Called with every packet of an audio stream, in file order.
using PacketSink = std::function<void(AVPacket* packet, const AVStream* stream)>;

class VideoReader {
public:
    // Throws std::runtime_error: unreadable file, no video, no decoder.
    explicit VideoReader(const std::string& path);
    ~VideoReader();
    VideoReader(const VideoReader&) = delete;
    VideoReader& operator=(const VideoReader&) = delete;

    const VideoInfo& info() const;
    AVFormatContext* formatContext() const;
    // Index of the decoded video stream in the container.
    int32_t videoStream() const;
    // The audio streams, which the writer can copy.
    std::vector<const AVStream*> audioStreams() const;
    // The next frame in presentation order as `fourcc` words; false at the
    // end. Audio packets read on the way go to `others` (may be empty).
    bool next(DecodedFrame& out, uint32_t fourcc, const PacketSink& others = {});

private:
    struct State;
    std::unique_ptr<State> s_;
};

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

int32_t streamIndex(const AVStream* stream);
std::string streamCodecName(const AVStream* stream);

// Resizes ARGB words (bicubic).
Picture scaleArgb(const Picture& argb, int32_t width, int32_t height);

}  // namespace reelfx::tool
