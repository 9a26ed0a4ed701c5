// Straightforward per-pixel transcriptions of the effects' formulas, written
// the way one would write them first: one function per effect, every pixel
// computed on its own in the order the formulas give, no tables beyond those
// the formulas name, no caching across frames except where the effect itself
// keeps state (the prism map). bench_models compiles them at -O1 and times
// them beside the module on the same pictures.
//
// Pictures are tightly packed W x H words; `ayuv` selects the AYUV format.
// Every model takes the effect's initial parameter values.
#pragma once

#include <cstdint>
#include <vector>

namespace models {

struct Frame {
    uint32_t* dst;
    const uint32_t* src;
    int32_t w, h;
    bool ayuv;
};

void newsPrint(const Frame& f);  // "Dot Shape" Non-Uniform, the initial choice
void colorCircleShift(const Frame& f, double progress);
void mosaic(const Frame& f);
void flood(const Frame& f);
void dream(const Frame& f);
void flipXY(const Frame& f);                           // "Flip Y Axis" only, the initial choice
void toneMap(const Frame& f, uint32_t scalingColour);  // Greyscale, Sepiascale, Colorscale
void nightVision(const Frame& f);
void binoculars(const Frame& f);
void stainedGlass(const Frame& f);
// The fades: a copy, then the fade colour mixed in by the fade amount, each
// channel rounded to the nearest level as the companion library does.
void fade(const Frame& f, uint32_t colour, double progress);
void randomRotateSquares(const Frame& f);
void lantern(const Frame& f, double progress);

// Multi-Prism Lens: the map is built once per geometry (not timed), the
// apply pass per frame.
struct PrismMap {
    int32_t w = 0, h = 0;
    std::vector<int16_t> offsets;  // dx, dy per pixel
};
PrismMap buildPrismMap(int32_t w, int32_t h);
void applyPrismMap(const Frame& f, const PrismMap& map);

}  // namespace models
