// Pieces of "Aged Film" shared with its tests: the frame generator, the
// module-wide hair and scratch tables, hair regeneration, scratch seeding and
// the tint conversion. Only effects/aged_film.cpp renders with them.
#pragma once

#include <cstdint>

#include "plugin/frame_context.h"
#include "plugin/host_records.h"

namespace agedfilm {

inline constexpr int kHairRecords = 1000;
inline constexpr int kHairPoints = 9;
inline constexpr int kScratches = 3;

struct HairPoint {
    int32_t x;
    int32_t y;
};

// Module-wide state: zero at load, shared by every instance, carried from
// call to call (the host makes one call at a time).
extern HairPoint hairTable[kHairRecords][kHairPoints];
extern int32_t scratchTable[kScratches];

// s = s * 1664525 + 1013904223 (mod 2^32); returns the new s.
uint32_t nextDraw(uint32_t* s);
// Low 23 bits of s as a float in [0, 1), steps of 2^-23.
float unitDraw(uint32_t s);
// ((s & 255) - 1) & 127: 0-127.
int32_t byteDraw(uint32_t s);

// New control points for one hair record from the next 19 draws; returns
// the walk's step (1 ... S).
int32_t regenerateHair(HairPoint* points, uint32_t* s, int32_t width, int32_t height, int64_t S);
// The line of drawLine (both ends drawn, clipped to the picture), walked
// only where it crosses the picture: end points anywhere in the 32-bit range.
void drawHairLine(uint32_t* base, int32_t stride, int32_t width, int32_t height, int32_t x0,
                  int32_t y0, int32_t x1, int32_t y1, uint32_t colour);
// Fresh scratch columns from the next three draws.
void seedScratches(int32_t* scratch, uint32_t* s, int32_t width);

// The tint's own ARGB -> AYUV conversion (chroma offset added before
// truncation, unlike argbToAyuv).
uint32_t tintToAyuv(uint32_t argb);

}  // namespace agedfilm

// The table update of one "Aged Film" call for a frame with nothing to draw
// (the entry cannot address its rows): the same draws, regenerations, crawls
// and scratch walks as a render of a ctx->width x ctx->height picture, with
// no pixel written.
void advanceAgedFilm(const FrameContext* ctx, const ParameterBlock* block, double progress);
