// `reelfx render` and `reelfx sheet`: from the command line's values to
// pictures and video written to disk.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/host.h"

namespace reelfx::tool {

struct RenderRequest {
    std::string effect;
    std::string input;   // empty: the built-in clip; "-": standard input
    std::string output;  // empty: named after the input and the effect; "-": standard output
    std::vector<std::string> params;  // NAME=VALUE
    std::string format = "argb";
    std::optional<std::string> span;
    std::optional<std::string> frames;  // "A:B": a chunk of frames A to B - 1
    std::optional<double> progress;     // still output only
    std::optional<std::string> displayAspect;
    std::optional<std::string> pictureAspect;
    std::optional<std::string> size;  // built-in clip
    std::optional<double> duration;   // built-in clip, still to video
    std::optional<std::string> fps;   // built-in clip, still to video
    std::string codec;
    std::string pixelFormat;
    bool noAudio = false;
    bool quiet = false;
    int32_t threads = 0;  // frames rendered at once; 0: the cores the process may use
};

struct SheetRequest {
    std::string input;  // empty: the built-in test picture
    std::string output = "sheet.png";
    double progress = 0.5;
    std::string format = "argb";
    int32_t columns = 5;
    int32_t tileWidth = 256;
    bool quiet = false;
};

// Both throw UsageError for mistakes on the command line and
// std::runtime_error for files that cannot be read or written.
void runRender(const Module& module, const RenderRequest& request);
void runSheet(const Module& module, const SheetRequest& request);

// The output name used when -o is left out.
std::string defaultOutputName(const std::string& input, bool stillInput,
                              const std::string& effectName);

}  // namespace reelfx::tool
