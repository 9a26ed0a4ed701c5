// Video files through FFmpeg's libraries: decoding into ARGB or AYUV words,
// handing the packets of other streams (audio) to the writer unchanged.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/video_common.h"

struct AVFormatContext;
struct AVPacket;
struct AVFrame;

namespace reelfx::tool {

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
    // found by reading the packets once before decoding; empty when streamed.
    std::vector<double> frameTimes;
    bool streamed = false;  // standard input, read once as it arrives
    // Containers whose stamps may restart or jump (MPEG-TS files joined
    // end to end).
    bool stampsMayJump = false;
};

struct DecodedFrame {
    Picture picture;  // ARGB or AYUV words, the stream's size
    // The frame as the decoder gave it, when its conversion is left to the
    // one who takes it (see convertDecoded); `picture` is then untouched.
    AvFrameRef decoded;
    int64_t pts = 0;  // in VideoInfo::timeBase
    double time = 0.0;
};

// Called with every packet of a stream other than the video, in file order.
using PacketSink = std::function<void(AVPacket* packet, const AVStream* stream)>;

// True for a numbered image sequence such as in_%03d.png (FFmpeg's naming).
bool isImageSequence(const std::string& path);

struct DecodeConversion;

// A decoded frame of a stream described by `info` into `fourcc` words in
// `picture` (reused when its size fits); the frame's buffers go back to the
// decoder. Safe on any thread, with a conversion of that thread's own.
void convertDecoded(AVFrame* frame, const VideoInfo& info, uint32_t fourcc, Picture& picture,
                    DecodeConversion& conversion);

class VideoReader {
public:
    // `path` "-" streams standard input; `sequenceRate` is the frame rate of
    // an image sequence (25 when unknown). Throws std::runtime_error:
    // unreadable file, no video, no decoder.
    explicit VideoReader(const std::string& path, Rational sequenceRate = {});
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
    // end. Packets of the other streams (audio, subtitles, data) read on the
    // way go to `others` (may be empty).
    // Damaged pictures are skipped, and data that stops making sense ends
    // the video; only a failing read (or memory) throws.
    // With `leaveDecoded` the frame stays in the decoder's layout, in
    // out.decoded, for convertDecoded on another thread.
    bool next(DecodedFrame& out, uint32_t fourcc, const PacketSink& others = {},
              bool leaveDecoded = false);
    // The damage met so far, in words; empty for none.
    std::string damage() const;
    // True when the file is now shorter than when it was opened.
    bool shrank() const;
    // Moves to the key frame at or before `seconds` (a frame time), before
    // the first next(); the frames from there on follow. False, with
    // nothing moved, when the file has no times to seek by.
    bool seekBefore(double seconds);

private:
    struct State;
    std::unique_ptr<State> s_;
};

}  // namespace reelfx::tool
