// Separable filters in table-driven fixed point.
//
// A kernel of n weights (w[0] the centre, w[k] the weight at distance k on
// both sides) is compiled into up to three tables of 256 entries; table j
// holds, for a byte value v, the products of v with the weights at distances
// 3j, 3j + 1 and 3j + 2 in three 10-bit fields. Sliding along a line, each
// table feeds two running accumulators per byte: the left one shifts right
// by a field per pixel, the right one shifts left, so one lookup serves
// three taps and no multiplication happens per pixel.
#include "pixel/filter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "pixel/clones.h"
#include "pixel/numeric.h"

namespace {

// Weights as single-precision constants; the box rows are 1 / (2n - 1) to
// six decimals, so they do not sum to exactly one.
constexpr float kBox2[] = {0.333333f, 0.333333f};
constexpr float kBox3[] = {0.2f, 0.2f, 0.2f};
constexpr float kBox4[] = {0.142857f, 0.142857f, 0.142857f, 0.142857f};
constexpr float kBox5[] = {0.111111f, 0.111111f, 0.111111f, 0.111111f, 0.111111f};
constexpr float kBox6[] = {0.090909f, 0.090909f, 0.090909f, 0.090909f, 0.090909f, 0.090909f};
constexpr float kBox7[] = {0.076923f, 0.076923f, 0.076923f, 0.076923f,
                           0.076923f, 0.076923f, 0.076923f};
constexpr float kBox8[] = {0.066667f, 0.066667f, 0.066667f, 0.066667f,
                           0.066667f, 0.066667f, 0.066667f, 0.066667f};
constexpr float kBox9[] = {0.058823f, 0.058823f, 0.058823f, 0.058823f, 0.058823f,
                           0.058823f, 0.058823f, 0.058823f, 0.058823f};
constexpr float kSharp2[] = {1.333333f, -0.166667f};
constexpr float kSharp3[] = {1.5f, -0.125f, -0.125f};
constexpr float kSharp4[] = {1.599999f, -0.1f, -0.1f, -0.1f};
constexpr float kSharp5[] = {1.666667f, -0.083333f, -0.083333f, -0.083333f, -0.083333f};
constexpr float kSharp6[] = {1.7f, -0.07f, -0.07f, -0.07f, -0.07f, -0.07f};
constexpr float kSharp7[] = {1.75f, -0.0625f, -0.0625f, -0.0625f, -0.0625f, -0.0625f, -0.0625f};
constexpr float kSharp8[] = {1.778f,   -0.0555f, -0.0555f, -0.0555f,
                             -0.0555f, -0.0555f, -0.0555f, -0.0555f};
constexpr float kSharp9[] = {1.8f, -0.05f, -0.05f, -0.05f, -0.05f, -0.05f, -0.05f, -0.05f, -0.05f};

// Indexed by the last digit of the code minus 2; that digit is n.
constexpr const float* kBoxKernels[] = {kBox2, kBox3, kBox4, kBox5, kBox6, kBox7, kBox8, kBox9};
constexpr const float* kSharpKernels[] = {kSharp2, kSharp3, kSharp4, kSharp5,
                                          kSharp6, kSharp7, kSharp8, kSharp9};

// trunc(w * v * 262144 + 32768) >> 16: 4 * w * v rounded half up for a
// non-negative product. Double precision, where w * v is exact.
inline int32_t product(double w, int v) {
    return truncToInt32(w * static_cast<double>(v) * 262144.0 + 32768.0) >> 16;
}

// Weights below zero are lifted by an offset so that every field stays
// non-negative; the offsets come back out as the bias.
inline int32_t negativeOffset(double w) { return w < 0.0 ? truncToInt32(w * -1024.0) : 0; }

// One step of the left accumulator: the oldest field falls out at the bottom
// (arithmetic shift), the new pixel's entry comes in.
inline uint32_t stepLeft(uint32_t acc, uint32_t entry) {
    return static_cast<uint32_t>(static_cast<int32_t>(acc) >> 10) + entry;
}

// One step of the right accumulator: fields move up, the oldest leaves the
// top of the word.
inline uint32_t stepRight(uint32_t acc, uint32_t entry) { return (acc << 10) + entry; }

inline uint32_t byteOf(uint32_t p, int k) { return (p >> (8 * k)) & 0xFFu; }

// Slides a kernel of G tables along the working line L (P repeated pixels,
// the count pixels, P repeated pixels).
template <int G>
void slide(const uint32_t* L, int32_t count, ptrdiff_t step, const FilterTables& tables,
           uint32_t* dst) {
    constexpr int P = 3 * G - 1;
    uint32_t left[4][G];
    uint32_t right[4][G];
    // Prime both accumulators for the first centre c0 = P.
    for (int k = 0; k < 4; ++k) {
        for (int j = 0; j < G; ++j) {
            const uint32_t* T = tables.T[j];
            left[k][j] = stepLeft(stepLeft(0, T[byteOf(L[P - 3 * j - 2], k)]),
                                  T[byteOf(L[P - 3 * j - 1], k)]);
            right[k][j] =
                stepRight(stepRight(0, T[byteOf(L[P + 3 * j], k)]), T[byteOf(L[P + 3 * j + 1], k)]);
        }
    }
    const uint32_t bias = static_cast<uint32_t>(tables.bias);
    for (int32_t i = 0; i < count; ++i) {
        const uint32_t* c = L + P + i;
        uint32_t out = 0;
        for (int k = 0; k < 4; ++k) {
            uint32_t sum = 0;
            for (int j = 0; j < G; ++j) {
                const uint32_t* T = tables.T[j];
                left[k][j] = stepLeft(left[k][j], T[byteOf(c[-3 * j], k)]);
                right[k][j] = stepRight(right[k][j], T[byteOf(c[3 * j + 2], k)]);
                sum += (left[k][j] & 0x3FFu) + ((right[k][j] >> 20) & 0x3FFu);
            }
            const int32_t r = static_cast<int32_t>(sum - bias) >> 2;
            const uint32_t v = r <= 0 ? 0u : (r > 255 ? 255u : static_cast<uint32_t>(r));
            out |= v << (8 * k);
        }
        dst[i * step] = out;
    }
}

// Lines filtered side by side by slideLanes.
constexpr int32_t kLanes = 8;
// Entries of the last 16 working-line places: a step needs at most 2P - 1
// of them (P <= 8), and priming needs the first 2P.
constexpr int32_t kRing = 16;

// Filters `lanes` lines at once: element m of lane l is read at
// src[l * laneStep + m * step] and written at the same place of dst. Every
// lane takes exactly the steps of slide() on its own working line, but the
// table entries of a working-line place are looked up once and feed both
// accumulators of their table, and the accumulator steps run across the
// lanes, a loop the compiler vectorises. With laneStep 1 the lanes are
// adjacent columns, so a column band is read and written row by row.
template <int G>
void slideLanes(const uint32_t* src, ptrdiff_t laneStep, ptrdiff_t step, int32_t count,
                int32_t lanes, const FilterTables& tables, uint32_t* dst) {
    constexpr int P = 3 * G - 1;
    // Per table, the values of byte k of lane l sit at k * kLanes + l.
    constexpr int32_t N = 4 * kLanes;
    uint32_t E[kRing][G][N] = {};  // lanes past `lanes` stay zero
    uint32_t left[G][N];
    uint32_t right[G][N];

    // Entries of working-line place m; the edge pixels repeat beyond the
    // line's ends.
    auto lookUp = [&](int32_t m) {
        const uint32_t* p = src + std::clamp(m - P, 0, count - 1) * step;
        auto& e = E[m % kRing];
        for (int32_t l = 0; l < lanes; ++l) {
            const uint32_t pixel = p[l * laneStep];
            for (int j = 0; j < G; ++j) {
                for (int k = 0; k < 4; ++k) e[j][k * kLanes + l] = tables.T[j][byteOf(pixel, k)];
            }
        }
    };

    // Prime both accumulators for the first centre c0 = P.
    for (int32_t m = 0; m < 2 * P; ++m) lookUp(m);
    for (int j = 0; j < G; ++j) {
        for (int32_t n = 0; n < N; ++n) {
            left[j][n] = stepLeft(stepLeft(0, E[P - 3 * j - 2][j][n]), E[P - 3 * j - 1][j][n]);
            right[j][n] = stepRight(stepRight(0, E[P + 3 * j][j][n]), E[P + 3 * j + 1][j][n]);
        }
    }

    const uint32_t bias = static_cast<uint32_t>(tables.bias);
    for (int32_t i = 0; i < count; ++i) {
        const int32_t c = P + i;
        lookUp(c + P);  // the place entering the last right accumulator
        for (int j = 0; j < G; ++j) {
            const uint32_t* enterLeft = E[(c - 3 * j) % kRing][j];
            const uint32_t* enterRight = E[(c + 3 * j + 2) % kRing][j];
            for (int32_t n = 0; n < N; ++n) {
                left[j][n] = stepLeft(left[j][n], enterLeft[n]);
                right[j][n] = stepRight(right[j][n], enterRight[n]);
            }
        }
        uint32_t bytes[N];
        for (int32_t n = 0; n < N; ++n) {
            uint32_t sum = 0;
            for (int j = 0; j < G; ++j)
                sum += (left[j][n] & 0x3FFu) + ((right[j][n] >> 20) & 0x3FFu);
            const int32_t r = static_cast<int32_t>(sum - bias) >> 2;
            bytes[n] = static_cast<uint32_t>(std::min(std::max(r, 0), 255));
        }
        uint32_t* d = dst + i * step;
        for (int32_t l = 0; l < lanes; ++l) {
            d[l * laneStep] = bytes[l] | (bytes[kLanes + l] << 8) | (bytes[2 * kLanes + l] << 16) |
                              (bytes[3 * kLanes + l] << 24);
        }
    }
}

// Kernels whose outer weights are all equal (every catalogue kernel) and
// whose table fields never carry into each other filter without the
// running accumulators: the sum over the taps is then a plain sum of
// products, 2 x centre(v_c) + outer(v) over the 2(n - 1) outer pixels + a
// constant, and each product is an affine function of the byte followed by
// an arithmetic shift, (v * mul + add) >> 16, found per call and checked
// for all 256 bytes. The passes then run over all bytes of a row at once,
// loops the compiler vectorises.

// One product as a function of the byte v, in 16-bit lanes:
// v * whole + (((v + offset) * mul) >> 16) - drop, modulo 2^16, where the
// shifted product is the high half of a 16 x 16-bit multiply.
struct Tap {
    uint16_t whole, mul, offset, drop;
};

struct UniformKernel {
    int32_t reach;  // n - 1: the outer distances with a weight
    Tap outer, centre;
    int32_t constant;  // the fields of byte 0 over all distances, less the bias
};

// Field of distance d for byte v as BuildFilterTables stores it.
int32_t fieldOf(const float* weights, int n, int d, int v) {
    const double w0 = n >= 1 ? static_cast<double>(weights[0]) : 0.0;
    const double weight = d == 0 ? 0.5 * w0 : (d < n ? static_cast<double>(weights[d]) : 0.0);
    return product(weight, v) + negativeOffset(weight) + (d % 3 == 1 ? 1 : 0);
}

// The taps (v * a + add) >> 16 == q[v] for every byte v, a near the slope `guess`, rewritten in the
// form of Tap: with a = whole * 65536 + mul, v * whole * 65536 leaves the shift whole, and add =
// offset * mul - drop * 65536 is found from the inverse of an odd mul modulo 2^16. Every byte is
// checked; false when no such form is near the slope.
bool tapOf(const int32_t q[256], double guess, Tap* tap) {
    if (!(std::fabs(guess) < 8388608.0)) return false;
    const int64_t centre = std::llround(guess);
    for (int64_t step = 0; step <= 64; ++step) {
        for (int64_t a : {centre - step, centre + step}) {
            // a = whole * 65536 + mul with 0 <= mul < 65536 (whole below zero
            // for a falling slope; modulo 2^16 it is the same lane value).
            const int64_t whole = a >= 0 ? a / 65536 : -((65535 - a) / 65536);
            const int64_t mul = a - whole * 65536;
            if (mul % 2 == 0 || whole < -256 || whole > 256) continue;
            int64_t lo = INT64_MIN, hi = INT64_MAX;
            for (int64_t v = 0; v < 256; ++v) {
                lo = std::max(lo, int64_t{q[v]} * 65536 - v * a);
                hi = std::min(hi, (int64_t{q[v]} + 1) * 65536 - 1 - v * a);
            }
            uint32_t inverse = static_cast<uint32_t>(mul);  // Newton steps mod 2^16
            for (int i = 0; i < 4; ++i) inverse *= 2u - static_cast<uint32_t>(mul) * inverse;
            for (int64_t add = lo; add <= hi && add < lo + 4096; ++add) {
                const int64_t offset = (static_cast<uint32_t>(add) * inverse) & 0xFFFFu;
                if (offset > 65535 - 255) continue;
                const int64_t drop = (offset * mul - add) / 65536;
                bool exact = true;
                for (int64_t v = 0; v < 256 && exact; ++v) {
                    exact = v * whole + (((v + offset) * mul) >> 16) - drop == q[v];
                }
                if (exact) {
                    *tap = Tap{static_cast<uint16_t>(whole & 0xFFFF), static_cast<uint16_t>(mul),
                               static_cast<uint16_t>(offset), static_cast<uint16_t>(drop & 0xFFFF)};
                    return true;
                }
            }
        }
    }
    return false;
}

bool uniformKernel(const float* weights, int n, const FilterTables& tables, UniformKernel* k) {
    const int32_t radius = 3 * tables.groups - 1;
    if (n < 1 || n > radius + 1) return false;
    int32_t field[9][256];
    for (int d = 0; d <= radius; ++d) {
        for (int v = 0; v < 256; ++v) {
            field[d][v] = fieldOf(weights, n, d, v);
            if (field[d][v] < 0 || field[d][v] > 1023) return false;
        }
    }
    // No carries: per table, the largest fields of its three distances fit
    // together in ten bits.
    for (int j = 0; j < tables.groups; ++j) {
        int32_t most = 0;
        for (int d = 3 * j; d < 3 * j + 3; ++d) most += *std::max_element(field[d], field[d] + 256);
        if (most > 1023) return false;
    }
    int32_t outer[256] = {};
    for (int d = 1; d <= radius; ++d) {
        for (int v = 0; v < 256; ++v) {
            const int32_t q = field[d][v] - field[d][0];
            if (d == 1 && d < n) outer[v] = q;
            if (q != (d < n ? outer[v] : 0)) return false;
        }
    }
    int32_t constant = -tables.bias;
    for (int d = 1; d <= radius; ++d) constant += 2 * field[d][0];
    // Every partial sum of the taps and the constant stays within 16 bits,
    // so the sums run in 16-bit lanes.
    if (std::abs(constant) + 2 * 1023 + 2 * (n - 1) * 1023 > INT16_MAX) return false;
    k->reach = n - 1;
    k->constant = constant;
    const double w0 = static_cast<double>(weights[0]);
    const double w1 = n >= 2 ? static_cast<double>(weights[1]) : 0.0;
    return tapOf(outer, 4.0 * w1 * 65536.0, &k->outer) &&
           tapOf(field[0], 2.0 * w0 * 65536.0, &k->centre);
}

inline int16_t tap(uint8_t v, const Tap& t) {
    const auto x = static_cast<uint16_t>(v + t.offset);
    const auto high = static_cast<uint16_t>((static_cast<uint32_t>(x) * t.mul) >> 16);
    return static_cast<int16_t>(static_cast<uint16_t>(v * t.whole + high - t.drop));
}

inline uint8_t clampToByte(int16_t sum) {
    const int16_t r = static_cast<int16_t>(sum >> 2);
    return static_cast<uint8_t>(r <= 0 ? 0 : (r > 255 ? 255 : r));
}

// Pixels per chunk of a row: the working row of a chunk stays in the
// first-level cache.
constexpr int32_t kUniformChunk = 128;

// Up to kUniformChunk pixels of a row: `padded` holds their 4 * width bytes
// with Reach pixels of the row (or its repeated edge pixels) on both sides.
template <int Reach>
__attribute__((always_inline)) inline void uniformRow(const uint8_t* padded, int32_t width,
                                                      const UniformKernel& kernel, uint8_t* out) {
    const UniformKernel k = kernel;
    int16_t outer[4 * (kUniformChunk + 2 * Reach)];
    const int32_t bytes = 4 * width;
    const int32_t total = 4 * (width + 2 * Reach);
    for (int32_t i = 0; i < total; ++i) {
        outer[i] = static_cast<int16_t>(tap(padded[i], k.outer));
    }
    const uint8_t* centre = padded + 4 * Reach;
    for (int32_t i = 0; i < bytes; ++i) {
        int16_t sum = static_cast<int16_t>(2 * tap(centre[i], k.centre) + k.constant);
        for (int t = 0; t < Reach; ++t) {
            sum = static_cast<int16_t>(sum + outer[i + 4 * t] + outer[i + 4 * (Reach + 1 + t)]);
        }
        out[i] = clampToByte(sum);
    }
}

// One row, chunk by chunk: a chunk with Reach pixels of the row on both
// sides is read where it is; a chunk at either end of the row is copied with
// its edge pixel repeated.
template <int Reach>
__attribute__((always_inline)) inline void rowOfReach(const uint32_t* in, uint32_t* out,
                                                      int32_t width, const UniformKernel& k) {
    uint32_t edge[kUniformChunk + 2 * Reach];
    for (int32_t x = 0; x < width; x += kUniformChunk) {
        const int32_t n = std::min(kUniformChunk, width - x);
        const uint32_t* padded = edge;
        if (x >= Reach && x + n + Reach <= width) {
            padded = in + (x - Reach);
        } else {
            for (int32_t j = 0; j < n + 2 * Reach; ++j) {
                edge[j] = in[std::clamp(x - Reach + j, 0, width - 1)];
            }
        }
        uniformRow<Reach>(reinterpret_cast<const uint8_t*>(padded), n, k,
                          reinterpret_cast<uint8_t*>(out + x));
    }
}

// The passes over the rows.
template <int Reach>
__attribute__((always_inline)) inline void rowsOfReach(const uint32_t* src, uint32_t* inter,
                                                       ptrdiff_t pitch, int32_t width,
                                                       int32_t height, const UniformKernel& k) {
    for (int32_t y = 0; y < height; ++y)
        rowOfReach<Reach>(src + y * pitch, inter + y * pitch, width, k);
}

// One clone per instruction set around all the kernel widths (a template
// cannot be cloned by every compiler).
REELFX_CLONES void uniformRows(const uint32_t* src, uint32_t* inter, ptrdiff_t pitch, int32_t width,
                               int32_t height, const UniformKernel& k) {
    switch (k.reach) {
        case 0: rowsOfReach<0>(src, inter, pitch, width, height, k); break;
        case 1: rowsOfReach<1>(src, inter, pitch, width, height, k); break;
        case 2: rowsOfReach<2>(src, inter, pitch, width, height, k); break;
        case 3: rowsOfReach<3>(src, inter, pitch, width, height, k); break;
        case 4: rowsOfReach<4>(src, inter, pitch, width, height, k); break;
        case 5: rowsOfReach<5>(src, inter, pitch, width, height, k); break;
        case 6: rowsOfReach<6>(src, inter, pitch, width, height, k); break;
        case 7: rowsOfReach<7>(src, inter, pitch, width, height, k); break;
        default: rowsOfReach<8>(src, inter, pitch, width, height, k); break;
    }
}

// The widest column band, in pixels.
constexpr int32_t kWidestBand = 4096;

// One band of `bytes` bytes of every row, filtered along the columns with a
// running window per byte (`window`, `bytes` entries): the sum of the outer
// products of the 2 * reach + 1 places around the centre row (edge rows
// repeated). The products of the places in the window are kept in a ring
// (`ring`, 2 * reach + 1 rows of `bytes` entries), so each row's products
// are formed once.
REELFX_CLONES void uniformColumns(const uint8_t* src, uint8_t* dst, ptrdiff_t stride,
                                  int32_t height, int32_t bytes, const UniformKernel& kernel,
                                  int16_t* ring, int16_t* window) {
    const UniformKernel k = kernel;
    const int32_t places = 2 * k.reach + 1;
    // Place p (from -reach on) sits in ring slot (p + reach) % places.
    auto slotOf = [&](int32_t p) { return ring + ((p + k.reach) % places) * bytes; };
    auto enter = [&](int32_t p) {
        const uint8_t* r = src + std::clamp(p, 0, height - 1) * stride;
        int16_t* slot = slotOf(p);
        for (int32_t i = 0; i < bytes; ++i) {
            slot[i] = static_cast<int16_t>(tap(r[i], k.outer));
        }
        return slot;
    };
    for (int32_t i = 0; i < bytes; ++i) window[i] = 0;
    for (int32_t p = -k.reach; p <= k.reach; ++p) {
        const int16_t* slot = enter(p);
        for (int32_t i = 0; i < bytes; ++i) window[i] = static_cast<int16_t>(window[i] + slot[i]);
    }
    for (int32_t y = 0; y < height; ++y) {
        if (y > 0) {
            // The place leaving the window shares its slot with the one
            // entering.
            int16_t* slot = slotOf(y + k.reach);
            const uint8_t* r = src + std::min(y + k.reach, height - 1) * stride;
            for (int32_t i = 0; i < bytes; ++i) {
                const int16_t q = static_cast<int16_t>(tap(r[i], k.outer));
                window[i] = static_cast<int16_t>(window[i] + q - slot[i]);
                slot[i] = q;
            }
        }
        const uint8_t* c = src + y * stride;
        const int16_t* own = slotOf(y);
        uint8_t* out = dst + y * stride;
        for (int32_t i = 0; i < bytes; ++i) {
            out[i] = clampToByte(
                static_cast<int16_t>(window[i] - own[i] + 2 * tap(c[i], k.centre) + k.constant));
        }
    }
}

// Row `row` (held to the picture) filtered along the row, from the ring of
// Reach + 2 rows; the rows up to it that are not there yet are filtered
// first, in order. A function rather than a lambda, so that it is compiled
// into each instruction-set clone.
template <int Reach>
__attribute__((always_inline)) inline const uint8_t* filteredRow(
    const uint32_t* src, ptrdiff_t pitch, int32_t width, int32_t height, const UniformKernel& k,
    uint32_t* rows, int32_t& filtered, int32_t row) {
    constexpr int32_t kRows = Reach + 2;
    const int32_t r = std::clamp(row, 0, height - 1);
    while (filtered < r) {
        ++filtered;
        rowOfReach<Reach>(src + filtered * pitch,
                          rows + static_cast<ptrdiff_t>(filtered % kRows) * width, width, k);
    }
    return reinterpret_cast<const uint8_t*>(rows + static_cast<ptrdiff_t>(r % kRows) * width);
}

// Both passes at once for pictures no wider than a column band: each row
// is filtered along the row when the column window first needs it, into a
// ring of Reach + 2 rows, so no intermediate picture is written or read.
// The column window is the one of uniformColumns, over whole rows.
template <int Reach>
__attribute__((always_inline)) inline void fusedOfReach(const uint32_t* src, uint32_t* dst,
                                                        ptrdiff_t pitch, int32_t width,
                                                        int32_t height, const UniformKernel& kernel,
                                                        uint32_t* rows, int16_t* ring,
                                                        int16_t* window) {
    const UniformKernel k = kernel;
    constexpr int32_t places = 2 * Reach + 1;
    const int32_t bytes = 4 * width;
    int32_t filtered = -1;  // rows 0 ... filtered are in the ring
    for (int32_t i = 0; i < bytes; ++i) window[i] = 0;
    for (int32_t p = -Reach; p <= Reach; ++p) {
        const uint8_t* r = filteredRow<Reach>(src, pitch, width, height, k, rows, filtered, p);
        int16_t* slot = ring + ((p + Reach) % places) * bytes;
        for (int32_t i = 0; i < bytes; ++i) {
            slot[i] = static_cast<int16_t>(tap(r[i], k.outer));
            window[i] = static_cast<int16_t>(window[i] + slot[i]);
        }
    }
    for (int32_t y = 0; y < height; ++y) {
        if (y > 0) {
            int16_t* slot = ring + ((y + 2 * Reach) % places) * bytes;
            const uint8_t* r =
                filteredRow<Reach>(src, pitch, width, height, k, rows, filtered, y + Reach);
            for (int32_t i = 0; i < bytes; ++i) {
                const int16_t q = static_cast<int16_t>(tap(r[i], k.outer));
                window[i] = static_cast<int16_t>(window[i] + q - slot[i]);
                slot[i] = q;
            }
        }
        const uint8_t* c = filteredRow<Reach>(src, pitch, width, height, k, rows, filtered, y);
        const int16_t* own = ring + ((y + Reach) % places) * bytes;
        uint8_t* out = reinterpret_cast<uint8_t*>(dst + y * pitch);
        for (int32_t i = 0; i < bytes; ++i) {
            out[i] = clampToByte(
                static_cast<int16_t>(window[i] - own[i] + 2 * tap(c[i], k.centre) + k.constant));
        }
    }
}

REELFX_CLONES void uniformFused(const uint32_t* src, uint32_t* dst, ptrdiff_t pitch, int32_t width,
                                int32_t height, const UniformKernel& k, uint32_t* rows,
                                int16_t* ring, int16_t* window) {
    switch (k.reach) {
        case 0: fusedOfReach<0>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 1: fusedOfReach<1>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 2: fusedOfReach<2>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 3: fusedOfReach<3>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 4: fusedOfReach<4>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 5: fusedOfReach<5>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 6: fusedOfReach<6>(src, dst, pitch, width, height, k, rows, ring, window); break;
        case 7: fusedOfReach<7>(src, dst, pitch, width, height, k, rows, ring, window); break;
        default: fusedOfReach<8>(src, dst, pitch, width, height, k, rows, ring, window); break;
    }
}

// Both passes of a uniform kernel; false when the ring of the column pass
// cannot be allocated.
bool uniformPicture(const uint32_t* src, uint32_t* inter, uint32_t* dst, ptrdiff_t pitch,
                    int32_t width, int32_t height, const UniformKernel& k) {
    // Column bands as wide as the picture up to kWidestBand pixels: whole
    // rows are read one after another, and the ring of one band stays in
    // the second-level cache.
    const int32_t band = std::min(kWidestBand, width);
    // A picture filtered in place keeps the two passes: the rows are all
    // read before the first is written.
    const ptrdiff_t span = (height - 1) * pitch + width;
    const bool apart = dst + span <= src || src + span <= dst;
    if (width <= kWidestBand && apart) {
        // The ring of row-filtered rows, the products' ring and the window.
        const size_t rowWords = static_cast<size_t>(k.reach + 2) * width;
        const size_t entries = static_cast<size_t>(2 * k.reach + 2) * 4 * width;
        auto* rows = static_cast<uint32_t*>(std::malloc(rowWords * 4 + entries * 2));
        if (!rows) return false;
        auto* fusedRing = reinterpret_cast<int16_t*>(rows + rowWords);
        uniformFused(src, dst, pitch, width, height, k, rows, fusedRing,
                     fusedRing + static_cast<size_t>(2 * k.reach + 1) * 4 * width);
        std::free(rows);
        return true;
    }
    const size_t ringEntries = static_cast<size_t>(2 * k.reach + 2) * 4 * band;
    auto* ring = static_cast<int16_t*>(std::malloc(ringEntries * 2));
    if (!ring) return false;
    uniformRows(src, inter, pitch, width, height, k);
    int16_t* window = ring + static_cast<size_t>(2 * k.reach + 1) * 4 * band;
    for (int32_t x = 0; x < width; x += band) {
        uniformColumns(reinterpret_cast<const uint8_t*>(inter + x),
                       reinterpret_cast<uint8_t*>(dst + x), pitch * 4, height,
                       4 * std::min(band, width - x), k, ring, window);
    }
    std::free(ring);
    return true;
}

}  // namespace

const float* FilterKernel(int32_t code, int* n) {
    const int32_t digit = code % 100;
    if (digit < 2 || digit > 9) return nullptr;
    const float* kernel = nullptr;
    if (code / 100 == 1) kernel = kBoxKernels[digit - 2];
    if (code / 100 == 2) kernel = kSharpKernels[digit - 2];
    if (kernel && n) *n = digit;
    return kernel;
}

void BuildFilterTables(const float* weights, int n, FilterTables* tables) {
    // Sum of the full kernel: the centre once, every other weight twice.
    double others = 0.0;
    for (int k = 1; k < n; ++k) others += weights[k];
    const double s = (n >= 1 ? static_cast<double>(weights[0]) : 0.0) + 2.0 * others;
    if (std::fabs(s - 1.0) > 0.001) std::fprintf(stderr, "Warning: filter sum != 1 (=%f)\n", s);

    uint32_t bias = 0;  // 32-bit wrap-around, defined for any kernel
    int32_t groups = 0;
    for (int i = 0; i < n; i += 3, ++groups) {
        auto weight = [&](int k) { return k < n ? static_cast<double>(weights[k]) : 0.0; };
        // The centre tap enters both accumulators of the first table, so it
        // is stored at half its weight.
        const double a = i == 0 ? 0.5 * weight(0) : weight(i);
        const double b = weight(i + 1);
        const double c = weight(i + 2);
        if (std::fabs(a) + std::fabs(b) + std::fabs(c) > 1.0) {
            std::fprintf(stderr, "|%f|+|%f|+|%f| > 1\n", a, b, c);
        }
        const int32_t offA = negativeOffset(a);
        const int32_t offB = negativeOffset(b);
        const int32_t offC = negativeOffset(c);
        bias += 2u * (static_cast<uint32_t>(offA) + static_cast<uint32_t>(offB) +
                      static_cast<uint32_t>(offC));
        // A kernel of more than nine weights has more groups than tables; it
        // is counted (and then filters nothing) but gets no table.
        if (groups >= 3) continue;
        uint32_t* T = tables->T[groups];
        for (int v = 0; v < 256; ++v) {
            const uint32_t f0 = static_cast<uint32_t>(product(a, v)) + static_cast<uint32_t>(offA);
            // +1 in every table: two per output sum, half of the divisor 4
            // for one table.
            const uint32_t f1 =
                static_cast<uint32_t>(product(b, v)) + static_cast<uint32_t>(offB) + 1u;
            const uint32_t f2 = static_cast<uint32_t>(product(c, v)) + static_cast<uint32_t>(offC);
            T[v] = f0 + (f1 << 10) + (f2 << 20);
        }
    }
    tables->bias = static_cast<int32_t>(bias);
    tables->groups = groups;
}

void FilterLine(const uint32_t* src, int32_t count, ptrdiff_t step, const FilterTables* tables,
                uint32_t* dst, uint32_t* workLine) {
    const int32_t groups = tables->groups;
    if (count <= 0 || groups < 1 || groups > 3) return;
    const int32_t pad = 3 * groups - 1;

    // The working line: the edge pixels repeated `pad` times on both sides.
    // Lines too long for the local line use the caller's line or, for a
    // caller that has none, one of their own.
    uint32_t local[kFilterLocalLine];
    uint32_t* own = nullptr;
    uint32_t* L = local;
    const int64_t length = int64_t{count} + 2 * pad;
    if (length > kFilterLocalLine) {
        if (workLine) {
            L = workLine;
        } else {
            own = static_cast<uint32_t*>(std::malloc(static_cast<size_t>(length) * 4));
            if (!own) return;  // out of memory: the line cannot be filtered
            L = own;
        }
    }
    std::fill_n(L, pad, src[0]);
    for (int32_t k = 0; k < count; ++k) L[pad + k] = src[k * step];
    std::fill_n(L + pad + count, pad, src[(count - 1) * step]);

    switch (groups) {
        case 1: slide<1>(L, count, step, *tables, dst); break;
        case 2: slide<2>(L, count, step, *tables, dst); break;
        default: slide<3>(L, count, step, *tables, dst); break;
    }
    std::free(own);
}

bool FilterPicture(const FilterImage* source, const float* weights, int n,
                   const FilterImage* destination) {
    const int32_t width = source->width;
    const int32_t height = source->height;
    const int32_t stride = source->stride;
    const uint32_t* src = source->pixels;
    uint32_t* dst = destination->pixels;
    // Only whole-pixel strides that hold a full row are filtered; rows that
    // overlap or run backwards would be read after being written.
    if (!src || !dst || width <= 0 || height <= 0 || stride % 4 != 0 ||
        int64_t{stride} < int64_t{width} * 4) {
        return false;
    }
    const ptrdiff_t pitch = stride / 4;

    // The intermediate picture is the only allocation; if it fails the
    // destination is left untouched, as for an unknown code. Lines of any
    // length are filtered: the lanes keep no working line.
    const uint64_t bytes = static_cast<uint64_t>(int64_t{height} * pitch) * 4;
    if (bytes > SIZE_MAX) return false;
    auto* inter = static_cast<uint32_t*>(std::malloc(static_cast<size_t>(bytes)));
    if (!inter) return false;

    FilterTables tables;
    BuildFilterTables(weights, n, &tables);
    const bool filters = tables.groups >= 1 && tables.groups <= 3;
    UniformKernel uniform;
    if (filters && uniformKernel(weights, n, tables, &uniform) &&
        uniformPicture(src, inter, dst, pitch, width, height, uniform)) {
        // Done by the plain sums.
    } else if (filters) {
        // Rows in bands of kLanes rows, then columns in bands of kLanes
        // adjacent columns.
        auto pass = [&](const uint32_t* from, ptrdiff_t laneStep, ptrdiff_t step, int32_t count,
                        int32_t lanes, uint32_t* to) {
            switch (tables.groups) {
                case 1: slideLanes<1>(from, laneStep, step, count, lanes, tables, to); break;
                case 2: slideLanes<2>(from, laneStep, step, count, lanes, tables, to); break;
                default: slideLanes<3>(from, laneStep, step, count, lanes, tables, to); break;
            }
        };
        for (int32_t y = 0; y < height; y += kLanes) {
            pass(src + y * pitch, pitch, 1, width, std::min(kLanes, height - y), inter + y * pitch);
        }
        for (int32_t x = 0; x < width; x += kLanes) {
            pass(inter + x, 1, pitch, height, std::min(kLanes, width - x), dst + x);
        }
    }
    std::free(inter);
    return filters;
}

bool ApplyFilterCode(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                     int32_t height, int32_t code) {
    int n = 0;
    const float* weights = FilterKernel(code, &n);
    if (!weights) return false;
    const FilterImage source{width, height, stride, const_cast<uint32_t*>(src)};
    const FilterImage destination{width, height, stride, dst};
    return FilterPicture(&source, weights, n, &destination);
}
