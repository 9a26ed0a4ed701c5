// Video files through FFmpeg's libraries: encoding ARGB or AYUV words and
// copying other streams (audio) unchanged.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/video_common.h"

struct AVFormatContext;
struct AVPacket;
struct AVFrame;

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
    // The file the frames come from, if any: its tags (title, creation
    // time), and the video stream's tags (language), side data (rotation)
    // and field order are carried over.
    const AVFormatContext* sourceContainer = nullptr;
    int32_t sourceVideoStream = -1;
    // Container tags of this file's own, set after the source's.
    std::vector<std::pair<std::string, std::string>> tags;
};

// One picture (ARGB words) through FFmpeg's image encoders, for still names
// other than .png (.jpg, .tif, .bmp, ...); `path` is the file to write,
// `finalName` the name whose extension picks the format.
void writePicture(const std::string& path, const std::string& finalName, const Picture& argb);

// True when FFmpeg knows a container for this file name ("-" is YUV4MPEG2).
bool knownVideoContainer(const std::string& name);
// The format's name when the container for this file name writes files of
// its own beside it (DASH's .mpd, HLS's .m3u8 and their segments); empty
// for a format that writes one file.
std::string severalFilesFormat(const std::string& name);

struct EncodeConversion;

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
    // True when the container holds streams of this AVMediaType at all.
    bool holds(int32_t mediaType) const;
    // Adds an unchanged copy of `in`; before the first write. Returns its index.
    int32_t addCopiedStream(const AVStream* in);
    // Copies of every stream of `in` but its video `videoStream` (and its
    // audio unless `audio`) that the container accepts; returns input index
    // -> output index. Streams the container cannot hold get one line each
    // in `leftOut` naming them and why; audio the container could hold in
    // another codec is a UsageError instead (the user chooses).
    std::map<int32_t, int32_t> addCopiedStreams(const AVFormatContext* in, int32_t videoStream,
                                                bool audio, const std::string& sourceName,
                                                std::vector<std::string>& leftOut);
    // Words of the settings' size; padded here when the encoded pixel format
    // needs whole chroma samples (odd sizes in 4:2:0).
    void writeFrame(const Picture& words, int64_t pts);
    // The two halves of writeFrame, for converting on other threads: words
    // into `frame` (given the encoder's size and format, its buffers made
    // writable), which reads only the settings fixed at set-up and so may
    // run on any thread with a conversion of that thread's own; then the
    // converted frame encoded, on the thread that writes.
    void convertFrame(const Picture& words, AVFrame* frame, EncodeConversion& conversion) const;
    void encodeFrame(AVFrame* frame, int64_t pts);
    // A packet of the copied stream `outIndex`; takes the packet's data.
    void writePacket(AVPacket* packet, const AVStream* in, int32_t outIndex);
    // Drains the encoder and closes the file.
    void finish();
    // "h264 (libx264, yuv420p) in mp4"
    std::string description() const;
    bool isYuv4mpeg() const;
    std::string container() const;  // "mp4", "matroska", ...
    // What was done that the user should hear of ("33x19 padded to 34x20 ...").
    const std::vector<std::string>& notices() const;

private:
    struct State;
    std::unique_ptr<State> s_;
};

}  // namespace reelfx::tool
