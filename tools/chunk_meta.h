// A chunk is one contiguous range of a clip's frames rendered on its own
// (`reelfx render ... --frames A:B`), to be joined with the other chunks of
// the same split (`reelfx join`). Each chunk carries, as a container tag,
// the record join needs to tell whether a set of chunks belongs together.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/video_common.h"

namespace reelfx::tool {

struct RenderRequest;
struct Source;
struct Span;

// The container tag that holds a chunk's record (JSON).
inline constexpr const char* kChunkTag = "REELFX_CHUNK";

// Source frames [first, end), 0-based in the order they are decoded.
struct FrameRange {
    int64_t first = 0;
    int64_t end = 0;
};
// "A:B" with 0 <= A < B; B may lie past the last frame.
FrameRange parseFrameRange(const std::string& text);
std::string formatFrameRange(const FrameRange& range);

// The ranges of a split of `total` frames into `chunks` near-equal parts,
// or into parts of `chunkFrames` frames (one of the two is 0).
std::vector<FrameRange> splitFrames(int64_t total, int64_t chunks, int64_t chunkFrames);

// Effects whose frames depend on the frames rendered before them (tables
// carried from frame to frame, the C library's generator): a chunk of
// theirs renders the frames before it too, without writing them.
bool carriesStateAcrossFrames(const std::string& effectName);

struct ChunkRecord {
    // What makes two chunks parts of the same render.
    std::string effect;
    std::vector<std::string> params;
    std::string format;
    std::string span, displayAspect, pictureAspect;
    std::string input;  // the input's file name, without its folder
    int64_t total = 0;  // frames in the whole clip
    int32_t width = 0, height = 0;
    Rational frameRate, timeBase, sampleAspect;
    ColourTags colour;
    int32_t sourcePixelFormat = -1;
    // This chunk: frames [first, end) and their times in timeBase units
    // from the stream's start.
    FrameRange range;
    std::vector<int64_t> stamps;
};

std::string chunkRecordJson(const ChunkRecord& record);
// Nothing when `text` is not a chunk record.
std::optional<ChunkRecord> parseChunkRecord(const std::string& text);
// The first difference between two chunks' renders, in words ("effect
// Lantern, not Mosaic"); empty when they are parts of the same one.
std::string chunkMismatch(const ChunkRecord& a, const ChunkRecord& b);

// For `render --frames`: checks the request (UsageError), positions `src`
// at the key frame before the range (or at its start when it cannot seek)
// and returns what the render loop needs to begin there.
struct ChunkWindow {
    FrameRange range;         // clamped to the clip
    bool replay = false;      // render the span's frames before the range too, unwritten
    double startTime = -1.0;  // frames decoded before this time are dropped
    int64_t nextIndex = 0;    // index of the first frame kept
    size_t spanBefore = 0;    // frames of the span before the range
};
ChunkWindow startChunk(Source& src, const RenderRequest& rq, const std::string& effectName,
                       const Span& span, const std::string& outputPath);
// The record for a chunk of `src` rendered as `rq` asks.
ChunkRecord makeChunkRecord(const Source& src, const RenderRequest& rq,
                            const std::string& effectName, const ChunkWindow& window,
                            const ColourTags& colour, int32_t sourcePixelFormat);

}  // namespace reelfx::tool
