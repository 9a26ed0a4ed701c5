// Command-line values of the reelfx tool: effect and parameter names,
// parameter values and keyframes, spans, aspects and sizes. Pure functions;
// every mistake is reported as a UsageError whose text says what to type.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/host.h"

namespace reelfx::tool {

// A mistake on the command line (exit status 2).
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Lower-case letters and digits only: "Multi-Prism Lens" -> "multiprismlens".
std::string normalizeName(std::string_view name);
// Up to `limit` names close to `query` (edit distance or containment),
// nearest first.
std::vector<std::string> nearestNames(std::string_view query, const std::vector<std::string>& names,
                                      size_t limit = 5);
// The effect named `query`: exact, then case-insensitive, then ignoring
// spaces and punctuation ("fade-to-black"), or its catalogue index ("24").
int32_t findEffect(const std::vector<EffectInfo>& catalogue, std::string_view query);

// A finite decimal number, the whole text consumed.
std::optional<double> parseNumber(std::string_view text);
// "#RRGGBB" and "#RGB" (opaque), "#AARRGGBB", "0xAARRGGBB", a whole number
// 0..4294967295, or a colour name with an optional alpha ("red", "red@0.5").
std::optional<uint32_t> parseColour(std::string_view text);
// Shortest text that reads back as the same double.
std::string formatNumber(double value);
std::string formatColour(uint32_t argb);  // "#AARRGGBB"
const char* kindName(int32_t kind);       // "real", "choice", "colour", "whole"
// A value as a person reads it for this parameter: "Squared", "#FF000000", "0.5".
std::string describeValue(const ParameterInfo& p, double value);

struct Keyframe {
    double progress = 0.0;
    double value = 0.0;
};

// One -p setting: a constant (one key) or keyframes over progress.
struct ParameterSetting {
    int32_t slot = 0;
    int32_t kind = 0;
    std::string name;
    std::vector<Keyframe> keys;  // progress strictly increasing
};

// One value for `p`: a number in its declared range, a whole number, a choice
// by text or index, or a colour.
double parseValue(const ParameterInfo& p, std::string_view text);
// "NAME=VALUE" or "NAME=V@T,V@T,..." against the effect's declared parameters.
ParameterSetting parseSetting(const std::string& effectName,
                              const std::vector<ParameterInfo>& params,
                              std::string_view assignment);
// All -p settings; a parameter set twice is a mistake.
std::vector<ParameterSetting> parseSettings(const std::string& effectName,
                                            const std::vector<ParameterInfo>& params,
                                            const std::vector<std::string>& assignments);
// The setting's value at `progress`: before the first key the first value,
// after the last the last one; in between real numbers are linear, whole
// numbers linear rounded to the nearest whole, colours linear per channel
// (rounded), and choices hold the earlier key's choice.
double valueAt(const ParameterSetting& setting, double progress);

// --span START:END in seconds, END exclusive; either side may be left out.
struct Span {
    double start = 0.0;
    double end = std::numeric_limits<double>::infinity();
    bool contains(double t) const { return t >= start && t < end; }
};
Span parseSpan(std::string_view text);

// An aspect ratio as "16:9", "2.35:1", "16/9" or "1.85" (width / height).
double parseAspect(std::string_view text, const char* option);

// --picture-aspect: 4:3 and 16:9 select the host's presets, any other ratio
// is handed over as the picture aspect.
struct PictureAspect {
    int32_t preset = 0;  // 2 = 4:3, 3 = 16:9, 0 = `aspect`
    double aspect = 0.0;
};
PictureAspect parsePictureAspect(std::string_view text);

// --fps: "25", "30000/1001", a decimal or a name ("ntsc", "pal", "film");
// 23.976, 29.97, 59.94 and 119.88 mean the exact NTSC rates (24000/1001,
// ...). From above 0 to 1000.
struct FrameRate {
    int32_t num = 25;
    int32_t den = 1;
    double value() const { return static_cast<double>(num) / den; }
};
FrameRate parseFrameRate(std::string_view text);

struct Size {
    int32_t width = 0;
    int32_t height = 0;
};
// "WxH" or a name ("hd720", "vga"), each side from 1 to 16384.
Size parseSize(std::string_view text);

}  // namespace reelfx::tool
