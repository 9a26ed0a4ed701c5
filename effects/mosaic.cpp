// "Mosaic": two-tone tiles. The source is sampled on a square grid of
// anchors; around each anchor the neighbour whose brightness key exceeds the
// anchor's by the smallest positive amount is found, and a square patch
// around that neighbour is painted with the anchor's colour where the source
// is no brighter than the anchor and with the neighbour's colour elsewhere.
// Later anchors (row-major order) paint over earlier ones; pixels no patch
// reaches keep their previous value.
#include <algorithm>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// One anchor's patch: its top-left corner, its two colours and the
// anchor's key.
struct Patch {
    int32_t left, top;
    uint32_t low, high;
    int32_t key;
};

// The frame's geometry and parameters, fixed for the whole frame.
struct Grid {
    const uint32_t* src;
    uint32_t* dst;
    int32_t width, height;
    int64_t pitch;
    int32_t n, h, k;
    int32_t side;  // (2h + 1) * K, the patch's side
    // A search index (row-major over the (2h + 1)^2 square) as offsets.
    int8_t indexRow[256], indexColumn[256];
};

// Every anchor in its own order, each searching and painting its whole
// patch: the definition itself, used where the patches are too large for
// the row-wise painter's buffers.
void paintAnchorsInOrder(const Grid& g, int64_t firstRow, int64_t firstColumn) {
    const int64_t h = g.h;
    const int64_t before = h * g.k;       // patch offsets -h*K ...
    const int64_t after = (h + 1) * g.k;  // ... (h + 1)*K - 1
    const uint32_t* src = g.src;
    const int64_t pitch = g.pitch;
    for (int64_t y = firstRow; y < g.height; y += g.n) {
        // Search rows outside the picture read as key 0, which is never
        // brighter than an anchor: they are skipped without changing the result.
        const int64_t sy0 = std::max<int64_t>(y - h, 0);
        const int64_t sy1 = std::min<int64_t>(y + h, g.height - 1);
        for (int64_t x = firstColumn; x < g.width; x += g.n) {
            const uint32_t s = src[y * pitch + x];
            const int keyS = brightnessKey(s);
            const int64_t sx0 = std::max<int64_t>(x - h, 0);
            const int64_t sx1 = std::min<int64_t>(x + h, g.width - 1);
            int best = 100000;
            int64_t bx = x, by = y;
            for (int64_t sy = sy0; sy <= sy1; ++sy) {
                const uint32_t* row = src + sy * pitch;
                for (int64_t sx = sx0; sx <= sx1; ++sx) {
                    const int d = brightnessKey(row[sx]) - keyS;
                    if (d >= 1 && d < best) {
                        best = d;
                        bx = sx;
                        by = sy;
                    }
                }
            }
            const uint32_t hi = src[by * pitch + bx];

            const int64_t py0 = std::max<int64_t>(by - before, 0);
            const int64_t py1 = std::min<int64_t>(by + after, g.height);
            const int64_t px0 = std::max<int64_t>(bx - before, 0);
            const int64_t px1 = std::min<int64_t>(bx + after, g.width);
            for (int64_t py = py0; py < py1; ++py) {
                const uint32_t* in = src + py * pitch;
                uint32_t* out = g.dst + py * pitch;
                for (int64_t px = px0; px < px1; ++px) {
                    out[px] = brightnessKey(in[px]) > keyS ? hi : s;
                }
            }
        }
    }
}

// The row-wise painter keeps the patches of the anchor rows that reach the
// current row, and the keys of one row, in fixed buffers.
constexpr int32_t kMaxSearchHalf = 7;  // 15 x 15 search squares: indices fit a byte
constexpr int32_t kPatchBudget = 1024;
constexpr int32_t kMaxSpan = 2048;
constexpr int32_t kMaxRowsKept = 64;

// Keys of the words [x0, x1) of a row, one byte each.
REELFX_CLONES void rowKeys(const uint32_t* row, int32_t x0, int32_t x1, uint8_t* keys) {
    for (int32_t x = x0; x < x1; ++x) keys[x - x0] = static_cast<uint8_t>(brightnessKey(row[x]));
}

// One search row over a run of columns: each column's candidate, packed
// as excess << 8 | scan index in 16 bits (a key not above its anchor's
// gives 0xFFFF, above every real candidate), lowers that column's best.
REELFX_CLONES void lowerColumnBest(
    const uint8_t* key, const int16_t* above, const uint8_t* offset, uint16_t first,
    uint16_t* best, int32_t n) {
    for (int32_t x = 0; x < n; ++x) {
        const int32_t excess = key[x] - above[x];
        const uint32_t none = static_cast<uint32_t>(excess >> 31);  // all ones below 0
        const auto c = static_cast<uint16_t>(
            (static_cast<uint32_t>(excess) << 8 | (first + offset[x])) | none);
        best[x] = c < best[x] ? c : best[x];
    }
}

// Searches the anchors i0 ... i1 of anchor row `ay` and records their
// patches. The chosen neighbour has the smallest positive excess of key
// over the anchor's, first in scan order: the smallest candidate word.
// Anchor i's search columns x - h ... x + h start at x - h = i * N - h, so
// columns [i * N - h, i * N - h + N) belong to anchor i alone; with an
// even N the last column x + h is also the first of the next anchor's and
// is searched for anchor i on its own. Columns and rows outside the
// picture read as key 0, never brighter than an anchor: they are left out.
void searchRow(const Grid& g, int32_t ay, int32_t i0, int32_t i1, const uint8_t* offset,
               Patch* patches, uint8_t* keys) {
    const int32_t y = ay * g.n;
    const int32_t n = g.n, h = g.h;
    const int32_t side = 2 * h + 1;
    const bool even = n == 2 * h;
    const int32_t count = i1 - i0 + 1;
    int32_t anchorKey[kPatchBudget];
    uint16_t extra[kPatchBudget];  // even N: the best of column x + h
    const uint32_t* anchorRow = g.src + y * g.pitch;
    for (int32_t i = 0; i < count; ++i) {
        anchorKey[i] = brightnessKey(anchorRow[int64_t{i0 + i} * n]);
        extra[i] = 0xFFFF;
    }
    const int32_t x0 = std::max(i0 * n - h, 0);
    const int32_t x1 = std::min(i1 * n + h + 1, g.width);
    const int32_t span = x1 - x0;
    // Per column: the anchor's key + 1 (above every key for a column of
    // no anchor here), its offset in the search row, the best so far.
    int16_t above[kMaxSpan];
    uint16_t best[kMaxSpan];
    for (int32_t i = 0; i <= count; ++i) {
        const int32_t from = std::max((i0 + i) * n - h, x0);
        const int32_t to = std::min((i0 + i) * n - h + n, x1);
        const int16_t a = static_cast<int16_t>(i < count ? anchorKey[i] + 1 : 256);
        for (int32_t x = from; x < to; ++x) above[x - x0] = a;
    }
    std::fill_n(best, span, uint16_t{0xFFFF});
    for (int32_t dy = -h; dy <= h; ++dy) {
        const int32_t sy = y + dy;
        if (sy < 0 || sy >= g.height) continue;
        rowKeys(g.src + sy * g.pitch, x0, x1, keys);
        const auto first = static_cast<uint16_t>((dy + h) * side);
        lowerColumnBest(keys, above, offset, first, best, span);
        if (even) {
            for (int32_t i = 0; i < count; ++i) {
                const int32_t x = (i0 + i) * n + h;
                if (x >= x1) break;
                const int32_t excess = keys[x - x0] - (anchorKey[i] + 1);
                const auto c = static_cast<uint16_t>(excess << 8 | (first + 2 * h));
                if (excess >= 0 && c < extra[i]) extra[i] = c;
            }
        }
    }
    const int32_t reach = h * g.k;
    for (int32_t i = 0; i < count; ++i) {
        const int32_t x = (i0 + i) * n;
        uint16_t b = extra[i];
        const int32_t from = std::max(x - h, x0), to = std::min(x - h + n, x1);
        for (int32_t c = from; c < to; ++c) b = std::min(b, best[c - x0]);
        int32_t dx = 0, dy = 0;
        if (b != 0xFFFF) {
            dy = g.indexRow[b & 0xFF];
            dx = g.indexColumn[b & 0xFF];
        }
        Patch& p = patches[i];
        p.left = x + dx - reach;
        p.top = y + dy - reach;
        p.low = anchorRow[x];
        p.high = g.src[int64_t{y + dy} * g.pitch + x + dx];
        p.key = anchorKey[i];
    }
}

// Lists the patches among row[iFrom ... iTo) that reach row py, in order;
// `all` when every one does. Returns how many.
int32_t listReaching(const Patch* row, int32_t iFrom, int32_t iTo, int32_t py, int32_t side,
                     bool all, const Patch** reaching) {
    int32_t m = 0;
    if (all) {
        for (int32_t i = iFrom; i < iTo; ++i) reaching[m++] = &row[i];
        return m;
    }
    // Listed without a branch: which patches reach the row is as good as
    // random.
    for (int32_t i = iFrom; i < iTo; ++i) {
        reaching[m] = &row[i];
        m += static_cast<int32_t>(row[i].top <= py) & static_cast<int32_t>(py - side < row[i].top);
    }
    return m;
}

// Paints the listed patches over the columns [x0, x1) of one row, each cut
// where the next begins (`rowKey` and `out` indexed by column).
void paintReaching(const Patch* const* reaching, int32_t m, int32_t x0, int32_t x1,
                   int32_t side, const uint8_t* rowKey, uint32_t* out) {
    for (int32_t j = 0; j < m; ++j) {
        const Patch* p = reaching[j];
        const int32_t from = std::max(p->left, x0);
        int32_t to = std::min(p->left + side, x1);
        if (j + 1 < m) to = std::min(to, reaching[j + 1]->left);
        // A mask rather than a branch: on real footage the choice is as
        // good as random.
        const uint32_t lo = p->low, change = lo ^ p->high;
        const int32_t key = p->key;
        int32_t px = from;
#ifdef __SSE2__
        // Four at a time: the keys widened to words, compared as signed
        // words (all are 0 ... 255), the mask choosing between the colours.
        const __m128i keyV = _mm_set1_epi32(key);
        const __m128i loV = _mm_set1_epi32(static_cast<int32_t>(lo));
        const __m128i changeV = _mm_set1_epi32(static_cast<int32_t>(change));
        const __m128i zero = _mm_setzero_si128();
        auto paintFour = [&](int32_t at) {
            int32_t four;
            std::memcpy(&four, rowKey + at, 4);
            const __m128i bytes = _mm_cvtsi32_si128(four);
            const __m128i words = _mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero);
            const __m128i brighter = _mm_cmpgt_epi32(words, keyV);
            const __m128i v = _mm_xor_si128(loV, _mm_and_si128(changeV, brighter));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at), v);
        };
        if (to - from >= 4) {
            for (; px + 4 < to; px += 4) paintFour(px);
            // The last four end the segment, overlapping words already
            // painted with the same values where the length is not a
            // multiple of four.
            paintFour(to - 4);
            px = to;
        }
#endif
        for (; px < to; ++px) {
            const uint32_t brighter = 0u - static_cast<uint32_t>(rowKey[px] > key);
            out[px] = lo ^ (change & brighter);
        }
    }
}

// One row painted from colours spread over its columns: the brighter one
// where the source key is above the anchor's.
REELFX_CLONES void paintSpread(
    const uint8_t* key, const uint8_t* anchorKey, const uint32_t* low, const uint32_t* change,
    uint32_t* out, int32_t n) {
    for (int32_t x = 0; x < n; ++x) {
        const uint32_t brighter = 0u - static_cast<uint32_t>(key[x] > anchorKey[x]);
        out[x] = low[x] ^ (change[x] & brighter);
    }
}

// Paints the columns [c0, c1) of every row. Within one row the patches
// are painted anchor row by anchor row, in order, so every pixel receives
// its writes in the order the anchors give them. Within an anchor row the
// patches' left edges never decrease (N >= 2h), so a patch that reaches
// the row is cut where the next one reaching it begins: that one paints
// over the rest anyway.
void paintColumns(const Grid& g, int32_t c0, int32_t c1, int32_t rowsKept, Patch* patches,
                  uint8_t* keys) {
    const int32_t n = g.n, h = g.h, side = g.side, reach = h * g.k;
    const int32_t lastAnchor = (g.width - 1) / n;
    const int32_t lastAnchorRow = (g.height - 1) / n;
    // Anchors whose patch can reach a column of [c0, c1).
    const int32_t i0 = std::max((c0 - side + reach - h + n) / n, 0);
    const int32_t i1 = std::min((c1 - 1 + reach + h) / n, lastAnchor);
    if (i0 > i1) return;
    const int32_t count = i1 - i0 + 1;
    // Per anchor row kept: the rows [from, to) that all its patches reach,
    // and the columns [left, right) they cover together when they leave no
    // gap between them (right = left otherwise).
    struct Span {
        int32_t from, to, left, right;
    };
    Span spans[kMaxRowsKept];
    const Patch* reaching[kPatchBudget];
    // The colours of the last anchor row that covered a whole row, spread
    // over its columns: every row it covers is then painted in one loop.
    int32_t spread = -1;
    uint8_t spreadKey[kMaxSpan];
    uint32_t spreadLow[kMaxSpan], spreadChange[kMaxSpan];
    // Each search column's offset in its anchor's search row: 0 ... N - 1
    // repeating from the first anchor's first column, the same in every
    // anchor row.
    uint8_t offset[kMaxSpan];
    {
        const int32_t x0 = std::max(i0 * n - h, 0);
        const int32_t x1 = std::min(i1 * n + h + 1, g.width);
        for (int32_t x = x0, j = x0 - (i0 * n - h); x < x1; ++x, j = j + 1 == n ? 0 : j + 1) {
            offset[x - x0] = static_cast<uint8_t>(j);
        }
    }
    int32_t searched = -1;  // the last anchor row searched
    for (int32_t py = 0; py < g.height; ++py) {
        // The anchor rows whose patches can reach row py.
        const int32_t a0 = std::max((py - side + reach - h + n) / n, 0);
        const int32_t a1 = std::min((py + reach + h) / n, lastAnchorRow);
        while (searched < a1) {
            ++searched;
            Patch* row = patches + (searched % rowsKept) * count;
            searchRow(g, searched, i0, i1, offset, row, keys);
            int32_t lowest = row[0].top, highest = row[0].top;
            bool gapless = true;
            for (int32_t i = 0; i < count; ++i) {
                lowest = std::max(lowest, row[i].top);
                highest = std::min(highest, row[i].top);
                if (i + 1 < count && row[i + 1].left > row[i].left + side) gapless = false;
            }
            const int32_t left = std::max(row[0].left, c0);
            const int32_t right = gapless ? std::min(row[count - 1].left + side, c1) : left;
            spans[searched % rowsKept] = Span{lowest, highest + side, left, std::max(left, right)};
        }
        rowKeys(g.src + py * g.pitch, c0, c1, keys);
        const uint8_t* rowKey = keys - c0;
        uint32_t* out = g.dst + py * g.pitch;
        // Paints the patches of one anchor row that reach row py, within
        // the columns [x0, x1); `all` when every patch of the row does.
        auto paint = [&](int32_t ay, int32_t x0, int32_t x1, bool all) {
            if (x0 >= x1) return;
            const Patch* row = patches + (ay % rowsKept) * count;
            // Only anchors whose patch can reach a column of [x0, x1).
            const int32_t iFrom = std::max((x0 - side + reach - h + n) / n - i0, 0);
            const int32_t iTo = std::min((x1 - 1 + reach + h) / n - i0 + 1, count);
            const int32_t m = listReaching(row, iFrom, iTo, py, side, all, reaching);
            paintReaching(reaching, m, x0, x1, side, rowKey, out);
        };
        // An anchor row whose patches all reach row py and leave no gap
        // paints over everything the rows before it painted in the columns
        // it covers: those rows are painted only outside them.
        int32_t last = a0 - 1;
        for (int32_t ay = a1; ay >= a0; --ay) {
            const Span& span = spans[ay % rowsKept];
            if (span.from <= py && py < span.to && span.left < span.right) {
                last = ay;
                break;
            }
        }
        const int32_t coverLeft = last >= a0 ? spans[last % rowsKept].left : c1;
        const int32_t coverRight = last >= a0 ? spans[last % rowsKept].right : c1;
        for (int32_t ay = a0; ay < last; ++ay) {
            paint(ay, c0, coverLeft, false);
            paint(ay, coverRight, c1, false);
        }
        if (last >= a0) {
            if (spread != last) {
                spread = last;
                const int32_t m = listReaching(patches + (last % rowsKept) * count, 0, count, py,
                                               side, true, reaching);
                for (int32_t j = 0; j < m; ++j) {
                    const Patch* p = reaching[j];
                    const int32_t from = std::max(p->left, coverLeft);
                    int32_t to = std::min(p->left + side, coverRight);
                    if (j + 1 < m) to = std::min(to, reaching[j + 1]->left);
                    for (int32_t x = from; x < to; ++x) {
                        spreadKey[x - c0] = static_cast<uint8_t>(p->key);
                        spreadLow[x - c0] = p->low;
                        spreadChange[x - c0] = p->low ^ p->high;
                    }
                }
            }
            paintSpread(rowKey + coverLeft, spreadKey + (coverLeft - c0),
                        spreadLow + (coverLeft - c0), spreadChange + (coverLeft - c0),
                        out + coverLeft, coverRight - coverLeft);
        }
        for (int32_t ay = std::max(last + 1, a0); ay <= a1; ++ay) paint(ay, c0, c1, false);
    }
}

}  // namespace

void renderMosaic(const FrameContext* ctx, const ParameterBlock* block, uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    const int64_t pitch = ctx->stride >> 2;
    if (!haveBothPictures(dst, src, ctx->stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    int32_t n = truncToInt32(paramValue(block, kMosaicResolution) * 10.0);
    if (n < 1) n = 1;
    int32_t k = truncToInt32(paramValue(block, kMosaicOverlap));
    if (k < 1) return;  // the patch is empty: nothing is painted
    const int32_t h = n >> 1;

    if (h == 0) {
        // The search square holds only the anchor, so every patch is the
        // anchor's own colour over [x, x + K) x [y, y + K); the last patch
        // covering a pixel is the one anchored on it. The result is an
        // exact copy, made directly rather than through K^2 writes per pixel.
        for (int32_t y = 0; y < height; ++y) {
            std::memmove(dst + y * pitch, src + y * pitch, static_cast<size_t>(width) * 4);
        }
        return;
    }
    // A patch never needs to reach further than the picture: once K exceeds
    // both sides, every patch covers the whole picture either way, so a
    // larger K paints exactly the same pixels. Then each patch paints over
    // the whole of the one before, and only the last anchor's remains.
    const int64_t cover = int64_t{std::max(width, height)} + 1;
    const bool lastOnly = k >= cover;
    if (lastOnly) k = static_cast<int32_t>(cover);
    Grid g{src, dst, width, height, pitch, n, h, k, 0, {}, {}};
    if (lastOnly) {
        paintAnchorsInOrder(g, (height - 1) / n * int64_t{n}, (width - 1) / n * int64_t{n});
        return;
    }

    // Row-wise painting, in column strips narrow enough for the buffers.
    const int64_t side = int64_t{2 * h + 1} * k;
    const int64_t rowsKept = side / n + 2;
    const int64_t perRow = kPatchBudget / rowsKept;  // anchors kept per anchor row
    const int64_t strip = std::min<int64_t>((perRow - 2) * n - side, kMaxSpan - side - 4 * h);
    if (h > kMaxSearchHalf || strip < 4 * n || rowsKept > kMaxRowsKept) {
        paintAnchorsInOrder(g, 0, 0);
        return;
    }
    g.side = static_cast<int32_t>(side);
    for (int32_t i = 0; i < (2 * h + 1) * (2 * h + 1); ++i) {
        g.indexRow[i] = static_cast<int8_t>(i / (2 * h + 1) - h);
        g.indexColumn[i] = static_cast<int8_t>(i % (2 * h + 1) - h);
    }
    Patch patches[kPatchBudget];
    uint8_t keys[kMaxSpan];
    for (int64_t c0 = 0; c0 < width; c0 += strip) {
        const int32_t c1 = static_cast<int32_t>(std::min<int64_t>(c0 + strip, width));
        paintColumns(g, static_cast<int32_t>(c0), c1, static_cast<int32_t>(rowsKept), patches,
                     keys);
    }
}
