// Separable filters: a catalogue of symmetric 1-D kernels (box blurs and
// sharpening kernels) chosen by a filter code, applied along rows, then
// columns, to all four bytes of 32-bit pixels alike, in table-driven fixed
// point.
#pragma once

#include <cstddef>
#include <cstdint>

struct FilterImage {
    int32_t width;
    int32_t height;
    int32_t stride;  // bytes, a multiple of 4
    uint32_t* pixels;
};

// One kernel compiled into up to three lookup tables; each entry packs the
// products of three taps in 10-bit fields (bits 0-9, 10-19, 20-29).
struct FilterTables {
    uint32_t T[3][256];
    int32_t bias;    // offset added by negative weights, removed before scaling
    int32_t groups;  // tables in use: 1, 2 or 3 (0 for an empty kernel)
};

// Pixels of the working line kept in local storage; a line needs its count
// plus up to 8 repeated edge pixels on each side.
constexpr int32_t kFilterLocalLine = 2048;
constexpr int32_t kFilterLineMargin = 16;

// The stored weights w[0..n-1] of a catalogue code (102-109 box, 202-209
// sharpen), or null for a code that selects no kernel.
const float* FilterKernel(int32_t code, int* n);

// Compiles the kernel w[0..n-1] (w[0] the centre) into `tables`; prints the
// sum and field-overflow warnings to stderr when they apply.
void BuildFilterTables(const float* weights, int n, FilterTables* tables);

// Filters `count` pixels read `step` words apart from `src` into `dst`
// (written `step` words apart). Edge pixels repeat beyond the line's ends.
// Lines that do not fit the local working line use `workLine` (room for
// count + kFilterLineMargin pixels) or, when it is null, a buffer of their
// own. Writes nothing for a table set with no 1-3 groups.
void FilterLine(const uint32_t* src, int32_t count, ptrdiff_t step, const FilterTables* tables,
                uint32_t* dst, uint32_t* workLine = nullptr);

// Rows, then columns, through an intermediate picture. The source's width,
// height and stride govern both pictures. Returns whether the destination
// was written: a picture that is empty or whose rows overlap, a kernel with
// no usable groups, or an intermediate picture that cannot be allocated
// leave the destination untouched.
bool FilterPicture(const FilterImage* source, const float* weights, int n,
                   const FilterImage* destination);

// Looks `code` up in the kernel catalogue and filters src into dst (src and
// dst may be the same picture); an unknown code leaves dst untouched.
// Returns whether dst was written.
bool ApplyFilterCode(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                     int32_t height, int32_t code);
