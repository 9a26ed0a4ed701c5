// `reelfx plan`: the frame ranges of a split, one "A:B" a line, or JSON.
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/chunk_meta.h"
#include "tools/farm.h"
#include "tools/input_source.h"
#include "tools/params.h"

namespace reelfx::tool {

void runPlan(const PlanRequest& rq) {
    if ((rq.chunks > 0) == (rq.chunkFrames > 0))
        throw UsageError("give one of --chunks K or --chunk-frames F (above 0)");
    RenderRequest probe;
    probe.input = rq.input;
    probe.size = rq.size;
    probe.fps = rq.fps;
    probe.duration = rq.duration;
    const Source src = openSource(probe);
    if (src.streamed()) throw UsageError("standard input cannot be split into chunks");
    const auto total = static_cast<int64_t>(src.times.size());
    const std::vector<FrameRange> ranges = splitFrames(total, rq.chunks, rq.chunkFrames);
    if (!rq.json) {
        for (const FrameRange& r : ranges) std::cout << formatFrameRange(r) << "\n";
        return;
    }
    nlohmann::json chunks = nlohmann::json::array();
    for (size_t i = 0; i < ranges.size(); ++i) {
        chunks.push_back({{"index", i},
                          {"frames", formatFrameRange(ranges[i])},
                          {"first", ranges[i].first},
                          {"end", ranges[i].end}});
    }
    const nlohmann::json plan = {
        {"input", rq.input},
        {"total_frames", total},
        {"frame_rate", std::to_string(src.frameRate.num) + "/" + std::to_string(src.frameRate.den)},
        {"chunks", chunks}};
    std::cout << plan.dump(2) << "\n";
}

}  // namespace reelfx::tool
