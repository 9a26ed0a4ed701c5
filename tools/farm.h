// The two commands a render farm needs around `reelfx render --frames`:
// `reelfx plan` prints the frame ranges of a split, `reelfx join` checks a
// set of chunks and joins them into one output.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"

namespace reelfx::tool {

struct PlanRequest {
    std::string input;  // empty: the built-in clip
    int64_t chunks = 0;
    int64_t chunkFrames = 0;
    bool json = false;
    std::optional<std::string> size, fps;  // built-in clip, still to video
    std::optional<double> duration;
};

struct JoinRequest {
    std::vector<std::string> chunks;
    std::string output;
    std::string audioFrom;  // empty: no audio, tags from the first chunk
    bool quiet = false;
};

// Both throw UsageError for mistakes on the command line and
// std::runtime_error for files that cannot be read or written, or chunks
// that do not belong together.
void runPlan(const PlanRequest& request);
void runJoin(const JoinRequest& request);

}  // namespace reelfx::tool
