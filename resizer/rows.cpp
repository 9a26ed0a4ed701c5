// The row operations in SSE2, which both x86 builds have: pmaddwd multiplies
// two 16-bit values by two 16-bit weights and adds the products in one step.
// Everything is exact integer arithmetic, so the grouping of the sums does not
// change any result.
#include "resizer/rows.h"

#include <emmintrin.h>

#if !defined(__SSE2__)
#error "the scaler's row operations are written for SSE2"
#endif

#include <cstddef>
#include <cstring>

namespace resizer {
namespace {

constexpr int kColumnShift = kWeightBits - kColumnBits;
constexpr int kOutputShift = kWeightBits + kColumnBits;

int32_t packWeights(int16_t a, int16_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(a)) |
                                static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16);
}

__m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }

__m128i load4(const uint8_t* p) {
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    return _mm_cvtsi32_si128(v);
}

// Weighted sums of bytes i .. i + 7 (only the low four when `load` reads
// four), rounded to kColumnBits fractional bits and packed to 16 bits.
template <__m128i (*load)(const uint8_t*)>
__m128i verticalChunk(const std::vector<RowPair>& pairs, size_t i) {
    const __m128i zero = _mm_setzero_si128();
    __m128i lo = _mm_set1_epi32(1 << (kColumnShift - 1));
    __m128i hi = lo;
    for (const RowPair& p : pairs) {
        const __m128i w = _mm_set1_epi32(p.weights);
        const __m128i a = _mm_unpacklo_epi8(load(p.a + i), zero);
        const __m128i b = _mm_unpacklo_epi8(load(p.b + i), zero);
        lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), w));
        hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), w));
    }
    return _mm_packs_epi32(_mm_srai_epi32(lo, kColumnShift), _mm_srai_epi32(hi, kColumnShift));
}

__m128i loadPixel16(const int16_t* p) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

// The composite of four pixels (16 bytes at s and d), in 16-bit lanes: the
// sums stay below 65536 and (x + 1 + (x >> 8)) >> 8 equals x / 255 there.
__m128i blendFour(__m128i s, __m128i d) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i keepAlpha = _mm_set_epi16(-1, 0, 0, 0, -1, 0, 0, 0);
    __m128i halves[2];
    for (int h = 0; h < 2; ++h) {
        const __m128i sh = h == 0 ? _mm_unpacklo_epi8(s, zero) : _mm_unpackhi_epi8(s, zero);
        const __m128i dh = h == 0 ? _mm_unpacklo_epi8(d, zero) : _mm_unpackhi_epi8(d, zero);
        const __m128i a = _mm_shufflehi_epi16(_mm_shufflelo_epi16(sh, 0xFF), 0xFF);
        const __m128i ia = _mm_sub_epi16(_mm_set1_epi16(255), a);
        __m128i x = _mm_add_epi16(_mm_mullo_epi16(sh, a), _mm_mullo_epi16(dh, ia));
        x = _mm_add_epi16(x, _mm_set1_epi16(127));
        x = _mm_add_epi16(_mm_add_epi16(x, _mm_set1_epi16(1)), _mm_srli_epi16(x, 8));
        x = _mm_srli_epi16(x, 8);
        halves[h] = _mm_or_si128(_mm_andnot_si128(keepAlpha, x), _mm_and_si128(keepAlpha, dh));
    }
    return _mm_packus_epi16(halves[0], halves[1]);
}

}  // namespace

void pairRows(const TapTable& down, int32_t y, const void* src, int32_t stride,
              std::vector<RowPair>& pairs) {
    pairs.clear();
    const size_t at = static_cast<size_t>(y);
    const int16_t* w = down.weight.data() + at * static_cast<size_t>(down.taps);
    const uint8_t* pending = nullptr;
    int16_t pendingWeight = 0;
    for (int32_t t = 0; t < down.taps; ++t) {
        if (w[t] == 0) continue;
        const uint8_t* row =
            static_cast<const uint8_t*>(src) +
            static_cast<ptrdiff_t>(static_cast<int64_t>(down.start[at] + t) * stride);
        if (pending == nullptr) {
            pending = row;
            pendingWeight = w[t];
        } else {
            pairs.push_back({pending, row, packWeights(pendingWeight, w[t])});
            pending = nullptr;
        }
    }
    if (pending != nullptr) pairs.push_back({pending, pending, packWeights(pendingWeight, 0)});
}

void verticalPass(const std::vector<RowPair>& pairs, int32_t rowBytes, int16_t* column) {
    const size_t n = static_cast<size_t>(rowBytes);
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(column + i), verticalChunk<load8>(pairs, i));
    }
    if (i < n) {  // one pixel left
        _mm_storel_epi64(reinterpret_cast<__m128i*>(column + i), verticalChunk<load4>(pairs, i));
    }
}

void horizontalPass(const int16_t* column, const TapTable& across, int32_t width, uint32_t* out) {
    const int32_t taps = across.taps;
    const __m128i half = _mm_set1_epi32(1 << (kOutputShift - 1));
    for (int32_t x = 0; x < width; ++x) {
        const size_t at = static_cast<size_t>(x);
        const int16_t* w = across.weight.data() + at * static_cast<size_t>(taps);
        const int16_t* c = column + static_cast<size_t>(across.start[at]) * 4;
        __m128i sum = half;
        int32_t t = 0;
        for (; t + 2 <= taps; t += 2) {
            // Channels of both taps interleaved: c0 c0' c1 c1' c2 c2' c3 c3'.
            const __m128i pair =
                _mm_unpacklo_epi16(loadPixel16(c + 4 * t), loadPixel16(c + 4 * t + 4));
            sum = _mm_add_epi32(sum,
                                _mm_madd_epi16(pair, _mm_set1_epi32(packWeights(w[t], w[t + 1]))));
        }
        if (t < taps) {
            const __m128i single = _mm_unpacklo_epi16(loadPixel16(c + 4 * t), _mm_setzero_si128());
            sum = _mm_add_epi32(sum, _mm_madd_epi16(single, _mm_set1_epi32(packWeights(w[t], 0))));
        }
        // Saturating packs clamp each channel to 0..255.
        const __m128i v = _mm_packs_epi32(_mm_srai_epi32(sum, kOutputShift), _mm_setzero_si128());
        out[x] = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
    }
}

void blendRow(const uint32_t* row, uint8_t* dst, int32_t width) {
    const size_t n = static_cast<size_t>(width);
    size_t x = 0;
    for (; x + 4 <= n; x += 4) {
        __m128i* d = reinterpret_cast<__m128i*>(dst + x * 4);
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + x));
        _mm_storeu_si128(d, blendFour(s, _mm_loadu_si128(d)));
    }
    if (x < n) {  // the last one to three pixels go through a small buffer
        const size_t bytes = (n - x) * 4;
        uint8_t s[16] = {};
        uint8_t d[16] = {};
        std::memcpy(s, row + x, bytes);
        std::memcpy(d, dst + x * 4, bytes);
        const __m128i out = blendFour(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s)),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(d)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), out);
        std::memcpy(dst + x * 4, d, bytes);
    }
}

}  // namespace resizer
