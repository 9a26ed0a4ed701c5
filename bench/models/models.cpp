#include "bench/models/models.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace models {

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Values stay well inside 32 bits wherever the models convert (initial
// parameters, byte arithmetic), so a plain conversion truncates as wanted.
int32_t trunc32(double v) { return static_cast<int32_t>(v); }

int32_t key(uint32_t p) {
    return (2 * static_cast<int32_t>((p >> 16) & 0xFF) + 5 * static_cast<int32_t>((p >> 8) & 0xFF) +
            static_cast<int32_t>(p & 0xFF)) >>
           3;
}

uint32_t argbToAyuv(uint32_t p) {
    const int32_t r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
    const int32_t v = 128 - trunc32((0.3678 * g + 0.0714 * b) - 0.4392 * r);
    const int32_t u = 128 - trunc32((0.291 * g - 0.4392 * b) + 0.1482 * r);
    const int32_t y = 16 + trunc32((0.5041 * g + 0.2568 * r) + 0.097924 * b);
    return (p & 0xFF000000u) | static_cast<uint32_t>(y & 0xFF) << 16 |
           static_cast<uint32_t>(u & 0xFF) << 8 | static_cast<uint32_t>(v & 0xFF);
}

int32_t clampByte(int32_t v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

uint32_t ayuvToArgb(uint32_t p) {
    const int32_t y = static_cast<int32_t>((p >> 16) & 0xFF) - 16;
    const int32_t u = static_cast<int32_t>((p >> 8) & 0xFF) - 128;
    const int32_t v = static_cast<int32_t>(p & 0xFF) - 128;
    const double ys = 1.164383 * y;
    const int32_t b = clampByte(trunc32((2.017234 * u + ys) - 0.000135 * v));
    const int32_t g = clampByte(trunc32(ys - (0.813013 * v + 0.391781 * u)));
    const int32_t r = clampByte(trunc32((1.596002 * v - 0.000151 * u) + ys));
    return (p & 0xFF000000u) | static_cast<uint32_t>(r) << 16 | static_cast<uint32_t>(g) << 8 |
           static_cast<uint32_t>(b);
}

uint32_t frameToArgb(uint32_t p, bool ayuv) { return ayuv ? ayuvToArgb(p) : p; }
uint32_t argbToFrame(uint32_t p, bool ayuv) { return ayuv ? argbToAyuv(p) : p; }

uint32_t mixPixel(uint32_t a, uint32_t b, double t) {
    uint32_t out = 0;
    for (int k = 0; k < 32; k += 8) {
        const int32_t ak = (a >> k) & 0xFF, bk = (b >> k) & 0xFF;
        out |= static_cast<uint32_t>(trunc32(((bk - ak) * t) + ak) & 0xFF) << k;
    }
    return out;
}

uint32_t pixelOrZero(const Frame& f, int32_t x, int32_t y) {
    if (x < 0 || y < 0 || x >= f.w || y >= f.h) return 0;
    return f.src[static_cast<int64_t>(y) * f.w + x];
}

uint32_t blockAverage(const Frame& f, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    if (x0 < 0) x0 = 0;
    if (y0 < 0) y0 = 0;
    if (x1 > f.w - 1) x1 = f.w - 1;
    if (y1 > f.h - 1) y1 = f.h - 1;
    const int32_t n = (x1 - x0) * (y1 - y0) + 1;
    int32_t s0 = 0, s1 = 0, s2 = 0;
    for (int32_t y = y0; y < y1; ++y) {
        for (int32_t x = x0; x < x1; ++x) {
            const uint32_t p = f.src[static_cast<int64_t>(y) * f.w + x];
            s0 += p & 0xFF;
            s1 += (p >> 8) & 0xFF;
            s2 += (p >> 16) & 0xFF;
        }
    }
    return 0xFF000000u | static_cast<uint32_t>(s2 / n) << 16 | static_cast<uint32_t>(s1 / n) << 8 |
           static_cast<uint32_t>(s0 / n);
}

}  // namespace

void newsPrint(const Frame& f) {
    const double resolution = 0.54, brightness = 0.83, contrast = 1.09;
    const uint32_t ink = f.ayuv ? 0xFF108080u : 0xFF000000u;
    const uint32_t paper = f.ayuv ? 0xFFEA8080u : 0xFFFFFFFFu;
    for (int64_t i = 0; i < static_cast<int64_t>(f.w) * f.h; ++i) f.dst[i] = paper;
    const int32_t q = trunc32(resolution * 100.0);
    int32_t n = (f.w / 2) - ((f.w / 2) * q) / 100;
    if (n == 0) n = 1;
    if (n < 0) return;
    const float wc = static_cast<float>(static_cast<double>(f.w) / n);
    const float hc = static_cast<float>(static_cast<double>(f.h) / n);
    std::vector<int32_t> cols(static_cast<size_t>(n) + 1), rows(static_cast<size_t>(n) + 1);
    for (int32_t k = 0; k < n; ++k) {
        cols[static_cast<size_t>(k)] = trunc32(k * static_cast<double>(wc));
        rows[static_cast<size_t>(k)] = trunc32(k * static_cast<double>(hc));
    }
    cols[static_cast<size_t>(n)] = f.w;
    rows[static_cast<size_t>(n)] = f.h;
    const float b = static_cast<float>(brightness);
    const float scale = static_cast<float>((wc * contrast) * static_cast<double>(0.7f));
    // The spiral's points 10 x j (j = 1 ... 359) once per frame, each offset
    // listed once, in the order of the first point that lands on it: a mark
    // of length L sets the first reach[L] of them.
    std::vector<int32_t> dxs, dys;
    int32_t reach[361] = {0, 0};
    for (int32_t j = 1; j < 360; ++j) {
        const int32_t i = 10 * j;
        const float rho = static_cast<float>(wc * i * static_cast<double>(1.0f / 3600.0f));
        const double theta = i * static_cast<double>(1.0f / 57.0f);
        const int32_t dx = trunc32(std::cos(theta) * rho), dy = trunc32(std::sin(theta) * rho);
        bool seen = false;
        for (size_t m = 0; m < dxs.size(); ++m) seen = seen || (dxs[m] == dx && dys[m] == dy);
        if (!seen) {
            dxs.push_back(dx);
            dys.push_back(dy);
        }
        reach[j + 1] = static_cast<int32_t>(dxs.size());
    }
    for (int32_t r = 0; r < n; ++r) {
        for (int32_t c = r & 1; c < n; c += 2) {
            const int32_t left = cols[static_cast<size_t>(c)],
                          right = cols[static_cast<size_t>(c) + 1];
            const int32_t top = rows[static_cast<size_t>(r)],
                          bottom = rows[static_cast<size_t>(r) + 1];
            const int32_t k = key(blockAverage(f, left, top, right, bottom));
            const int32_t cx = (left + right) >> 1, cy = (top + bottom) >> 1;
            int32_t length = trunc32((255.0 - 2 * k * b) * scale);
            if (length > 360) length = 360;
            for (int32_t m = 0; length > 1 && m < reach[length]; ++m) {
                const int32_t x = cx + dxs[static_cast<size_t>(m)],
                              y = cy + dys[static_cast<size_t>(m)];
                if (x >= 0 && x < f.w && y >= 0 && y < f.h)
                    f.dst[static_cast<int64_t>(y) * f.w + x] = ink;
            }
        }
    }
}

void colorCircleShift(const Frame& f, double progress) {
    const double offset = 0.5, period = 1.0;
    const double c2 = 0.7071067811865476, c6 = 0.408248290463863, k = -0.816496580927726;
    const double theta = ((progress * period) + offset) * kTwoPi;
    for (int32_t y = 0; y < f.h; ++y) {
        for (int32_t x = 0; x < f.w; ++x) {
            uint32_t p = f.src[static_cast<int64_t>(y) * f.w + x];
            if (f.ayuv) p = ayuvToArgb(p);
            const int32_t R = (p >> 16) & 0xFF, G = (p >> 8) & 0xFF, B = p & 0xFF;
            const double m = (R + G + B) * 0.3333333333333333;
            const double b = B - m, g = G - m, r = R - m;
            const double u = (b - g) * c2, v = ((b + g) - (r + r)) * c6;
            const double X = (u + v) * c2, Y = (v - u) * c2;
            const double rho = std::sqrt((Y * Y) + (X * X));
            double phi =
                X != 0.0 ? std::atan(Y / X) : (Y >= 0.0 ? 1.5707963267948966 : -1.5707963267948966);
            if (X < 0.0) phi += 3.141592653589793;
            phi += theta;
            const double X2 = std::cos(phi) * rho, Y2 = std::sin(phi) * rho;
            const double u2 = (X2 - Y2) * c2, v2 = (Y2 + X2) * c2;
            const double a = u2 * c2, w = v2 * c6;
            const int32_t B0 = trunc32(w + a), G0 = trunc32(w - a), R0 = trunc32(v2 * k);
            const int32_t B1 = clampByte(trunc32(B0 + m)), G1 = clampByte(trunc32(G0 + m)),
                          R1 = clampByte(trunc32(R0 + m));
            uint32_t out = (p & 0xFF000000u) | static_cast<uint32_t>(R1) << 16 |
                           static_cast<uint32_t>(G1) << 8 | static_cast<uint32_t>(B1);
            if (f.ayuv) out = argbToAyuv(out);
            f.dst[static_cast<int64_t>(y) * f.w + x] = out;
        }
    }
}

void mosaic(const Frame& f) {
    const double resolution = 0.5, overlap = 2.0;
    int32_t n = trunc32(resolution * 10.0);
    if (n < 1) n = 1;
    const int32_t K = trunc32(overlap), h = n >> 1;
    for (int32_t y = 0; y < f.h; y += n) {
        for (int32_t x = 0; x < f.w; x += n) {
            const uint32_t s = pixelOrZero(f, x, y);
            const int32_t ks = key(s);
            int32_t best = 100000, bx = 0, by = 0;
            for (int32_t dy = -h; dy <= h; ++dy) {
                for (int32_t dx = -h; dx <= h; ++dx) {
                    const int32_t d = key(pixelOrZero(f, x + dx, y + dy)) - ks;
                    if (d >= 1 && d < best) {
                        best = d;
                        bx = dx;
                        by = dy;
                    }
                }
            }
            const uint32_t hi = pixelOrZero(f, x + bx, y + by);
            if (K < 1) continue;
            for (int32_t py = y + by - h * K; py <= y + by + (h + 1) * K - 1; ++py) {
                for (int32_t px = x + bx - h * K; px <= x + bx + (h + 1) * K - 1; ++px) {
                    if (px < 0 || py < 0 || px >= f.w || py >= f.h) continue;
                    const uint32_t q = pixelOrZero(f, px, py);
                    f.dst[static_cast<int64_t>(py) * f.w + px] = key(q) - ks > 0 ? hi : s;
                }
            }
        }
    }
}

void flood(const Frame& f) {
    const double intensity = 2.0;
    int32_t passes = trunc32(intensity);
    if (passes < 1) passes = 1;
    const int64_t count = static_cast<int64_t>(f.w) * f.h;
    std::vector<uint32_t> work(f.src, f.src + count);
    // No walk writes the edge rows and columns: they keep the source's.
    for (int32_t y = 0; y < f.h; ++y) {
        for (int32_t x = 0; x < f.w; ++x) {
            if (y == 0 || x == 0 || y == f.h - 1 || x == f.w - 1) {
                f.dst[static_cast<int64_t>(y) * f.w + x] = f.src[static_cast<int64_t>(y) * f.w + x];
            }
        }
    }
    for (int32_t pass = 0; pass < passes; ++pass) {
        for (int32_t y = 1; y < f.h - 1; ++y) {
            for (int32_t x = 1; x < f.w - 1; ++x) {
                int32_t cx = x, cy = y;
                for (;;) {
                    if (cx == 0 || cy == 0 || cx == f.w - 1 || cy == f.h - 1) break;
                    int32_t best = key(work[static_cast<size_t>(cy * f.w + cx)]);
                    int32_t nx = -1, ny = -1;
                    const int32_t around[4][2] = {
                        {cx, cy - 1}, {cx, cy + 1}, {cx - 1, cy}, {cx + 1, cy}};
                    for (const auto& a : around) {
                        const int32_t kn = key(work[static_cast<size_t>(a[1] * f.w + a[0])]);
                        if (kn < best) {
                            best = kn;
                            nx = a[0];
                            ny = a[1];
                        }
                    }
                    if (nx < 0) break;
                    cx = nx;
                    cy = ny;
                    if (best == 0) break;
                }
                f.dst[static_cast<int64_t>(y) * f.w + x] = work[static_cast<size_t>(cy * f.w + cx)];
            }
        }
        for (int64_t i = 0; i < count; ++i) work[static_cast<size_t>(i)] = f.dst[i];
    }
}

namespace {

struct Tables {
    uint32_t t[3][256];
    int32_t bias = 0;
    int32_t groups = 0;
};

Tables buildTables(float weight, int32_t n) {
    Tables tb;
    for (int32_t i = 0; i < n; i += 3) {
        float w[3];
        for (int32_t j = 0; j < 3; ++j) w[j] = i + j < n ? weight : 0.0f;
        if (i == 0) w[0] = 0.5f * weight;
        int32_t off[3];
        for (int32_t j = 0; j < 3; ++j) {
            off[j] = w[j] < 0 ? trunc32(w[j] * -1024.0) : 0;
            tb.bias += 2 * off[j];
        }
        for (int32_t v = 0; v < 256; ++v) {
            int32_t field[3];
            for (int32_t j = 0; j < 3; ++j) {
                field[j] =
                    (trunc32(w[j] * v * 262144.0 + 32768.0) >> 16) + off[j] + (j == 1 ? 1 : 0);
            }
            tb.t[tb.groups][v] =
                static_cast<uint32_t>(field[0] + (field[1] << 10) + (field[2] << 20));
        }
        ++tb.groups;
    }
    return tb;
}

int32_t field(const Tables& tb, int32_t d, uint32_t p, int32_t byte) {
    const uint32_t v = (p >> (8 * byte)) & 0xFF;
    return static_cast<int32_t>((tb.t[d / 3][v] >> (10 * (d % 3))) & 0x3FF);
}

// One line by the written sum over the kernel distances, edges repeated.
void filterLine(const uint32_t* src, int32_t count, int64_t step, const Tables& tb, uint32_t* dst) {
    const int32_t radius = 3 * tb.groups - 1;
    auto at = [&](int32_t i) { return src[(i < 0 ? 0 : i >= count ? count - 1 : i) * step]; };
    for (int32_t i = 0; i < count; ++i) {
        uint32_t out = 0;
        for (int32_t byte = 0; byte < 4; ++byte) {
            int32_t s = 0;
            for (int32_t d = 0; d <= radius; ++d)
                s += field(tb, d, at(i - d), byte) + field(tb, d, at(i + d), byte);
            int32_t r = (s - tb.bias) >> 2;
            r = r <= 0 ? 0 : r > 255 ? 255 : r;
            out |= static_cast<uint32_t>(r) << (8 * byte);
        }
        dst[i * step] = out;
    }
}

void boxBlur(uint32_t* dst, const uint32_t* src, int32_t w, int32_t h, int32_t code) {
    static const float kWeights[8] = {0.333333f, 0.2f,      0.142857f, 0.111111f,
                                      0.090909f, 0.076923f, 0.066667f, 0.058823f};
    const int32_t n = code - 100;
    const Tables tb = buildTables(kWeights[n - 2], n);
    std::vector<uint32_t> mid(static_cast<size_t>(w) * h);
    for (int32_t y = 0; y < h; ++y)
        filterLine(src + static_cast<int64_t>(y) * w, w, 1, tb,
                   mid.data() + static_cast<int64_t>(y) * w);
    for (int32_t x = 0; x < w; ++x) filterLine(mid.data() + x, h, w, tb, dst + x);
}

int32_t filterCode(int32_t m) { return m < 3 ? 102 : 100 + m; }

}  // namespace

void dream(const Frame& f) {
    const double blur = 0.0, glare = 0.5;
    boxBlur(f.dst, f.src, f.w, f.h, filterCode(trunc32(blur * glare * 9.0)));
    std::vector<uint32_t> g(static_cast<size_t>(f.w) * f.h);
    boxBlur(g.data(), f.src, f.w, f.h, filterCode(trunc32(glare * 9.0)));
    for (int64_t i = 0; i < static_cast<int64_t>(f.w) * f.h; ++i) {
        const uint32_t D = f.dst[i], G = g[static_cast<size_t>(i)];
        auto byteOf = [](uint32_t p, int k) { return static_cast<int32_t>((p >> (8 * k)) & 0xFF); };
        int32_t d, t, one, shift;
        if (f.ayuv) {
            d = byteOf(G, 2) - byteOf(D, 2);
            one = 8;
            shift = 3;
        } else {
            d = 28 * (byteOf(G, 0) - byteOf(D, 0)) + 154 * (byteOf(G, 1) - byteOf(D, 1)) +
                74 * (byteOf(G, 2) - byteOf(D, 2));
            one = 2048;
            shift = 11;
        }
        if (d < 0) continue;
        t = d < one ? d : one;
        uint32_t out = 0;
        for (int k = 0; k < 4; ++k) {
            out |= static_cast<uint32_t>((byteOf(G, k) * t + byteOf(D, k) * (one - t)) >> shift)
                   << (8 * k);
        }
        f.dst[i] = out;
    }
}

void flipXY(const Frame& f) {
    for (int32_t y = 0; y < f.h; ++y) {
        for (int32_t x = 0; x < f.w; ++x) {
            f.dst[static_cast<int64_t>(y) * f.w + (f.w - 1 - x)] =
                f.src[static_cast<int64_t>(y) * f.w + x];
        }
    }
}

PrismMap buildPrismMap(int32_t w, int32_t h) {
    const int32_t n = 6;
    const double centerRadius = 0.5, refraction = 0.75;
    PrismMap map{w, h, std::vector<int16_t>(static_cast<size_t>(w) * h * 2)};
    const int32_t halfW = w >> 1, halfH = h >> 1, cx = halfW, cy = halfH;
    const double halfDiagonal = std::sqrt(static_cast<double>(halfW * halfW + halfH * halfH));
    const int32_t R = trunc32(halfDiagonal * centerRadius);
    const double shift = halfDiagonal * refraction;
    double start[20];
    int32_t dx[20], dy[20];
    for (int32_t k = 0; k < n; ++k) {
        start[k] = (1.0 / n) * k * kTwoPi;
        const double mid = (1.0 / n) * (k + 0.5) * kTwoPi;
        dx[k] = -trunc32(shift * std::sin(mid));
        dy[k] = -trunc32(-shift * std::cos(mid));
    }
    for (int32_t row = 0; row < h; ++row) {
        for (int32_t col = 0; col < w; ++col) {
            const int32_t X = col - cx, Y = cy - row;
            int16_t* e = &map.offsets[(static_cast<size_t>(row) * w + col) * 2];
            if (X * X + (row - cy) * (row - cy) <= R * R) {
                e[0] = e[1] = 0;
                continue;
            }
            double phi = std::atan2(X, Y);
            if (phi < 0) phi += kTwoPi;
            int32_t facet = 0;
            for (int32_t k = 0; k < n; ++k) {
                if (start[k] <= phi) facet = k;
            }
            e[0] = static_cast<int16_t>(dx[facet]);
            e[1] = static_cast<int16_t>(dy[facet]);
        }
    }
    return map;
}

void applyPrismMap(const Frame& f, const PrismMap& map) {
    const uint32_t fill = f.ayuv ? argbToAyuv(0xFF000000u) : 0xFF000000u;
    for (int32_t row = 0; row < f.h; ++row) {
        for (int32_t col = 0; col < f.w; ++col) {
            const int16_t* e = &map.offsets[(static_cast<size_t>(row) * f.w + col) * 2];
            const int32_t sx = col + e[0], sy = row + e[1];
            f.dst[static_cast<int64_t>(row) * f.w + col] =
                sx >= 0 && sx < f.w && sy >= 0 && sy < f.h
                    ? f.src[static_cast<int64_t>(sy) * f.w + sx]
                    : fill;
        }
    }
}

void toneMap(const Frame& f, uint32_t K) {
    const double e = 1.0;  // "Intensity" 1, profile "Constant"
    const int32_t R = (K >> 16) & 0xFF, G = (K >> 8) & 0xFF, B = K & 0xFF;
    uint32_t table[220];
    for (int32_t i = 0; i < 220; ++i) {
        table[i] = argbToFrame(0xFF000000u | static_cast<uint32_t>((i * R) / 219) << 16 |
                                   static_cast<uint32_t>((i * G) / 219) << 8 |
                                   static_cast<uint32_t>((i * B) / 219),
                               f.ayuv);
    }
    const double lo[4] = {f.ayuv ? 16.0 : 0.0, f.ayuv ? 16.0 : 0.0, f.ayuv ? 16.0 : 0.0, 0.0};
    const double hi[4] = {f.ayuv ? 240.0 : 255.0, f.ayuv ? 240.0 : 255.0, f.ayuv ? 235.0 : 255.0,
                          255.0};
    for (int32_t y = 0; y < f.h; ++y) {
        for (int32_t x = 0; x < f.w; ++x) {
            const uint32_t s = f.src[static_cast<int64_t>(y) * f.w + x];
            int32_t L = ((f.ayuv ? s : argbToAyuv(s)) >> 16) & 0xFF;
            L = L < 16 ? 16 : L > 235 ? 235 : L;
            const uint32_t t = table[L - 16];
            uint32_t m = 0;
            for (int k = 0; k < 4; ++k) {
                const int32_t sk = (s >> (8 * k)) & 0xFF, tk = (t >> (8 * k)) & 0xFF;
                double c = ((tk - sk) * e) + sk;
                c = c < lo[k] ? lo[k] : c > hi[k] ? hi[k] : c;
                m |= static_cast<uint32_t>(trunc32(c)) << (8 * k);
            }
            f.dst[static_cast<int64_t>(y) * f.w + x] = (m & 0xFFFFFFu) | (s & 0xFF000000u);
        }
    }
}

void nightVision(const Frame& f) {
    const double I = 1.0, M = 0.0, K = 1.0, Z = 0.0;
    for (int32_t y = 0; y < f.h; ++y) {
        for (int32_t x = 0; x < f.w; ++x) {
            const uint32_t s = f.src[static_cast<int64_t>(y) * f.w + x];
            const uint32_t p = frameToArgb(s, f.ayuv);
            const int32_t R = (p >> 16) & 0xFF, G = (p >> 8) & 0xFF;
            const double b = Z * 255.0;
            const double level = ((((G - b) - (R - b)) * M) + (R - b)) * K + b;
            const int32_t g = clampByte(trunc32(level));
            const uint32_t q =
                argbToFrame((p & 0xFF000000u) | static_cast<uint32_t>(g) << 8, f.ayuv);
            f.dst[static_cast<int64_t>(y) * f.w + x] = mixPixel(s, q, I);
        }
    }
}

void binoculars(const Frame& f) {
    const double Rf = 0.5, Df = 0.3;
    const uint32_t bg = argbToFrame(0u, f.ayuv) | 0xFF000000u;
    const double r = std::sqrt((((f.w * f.w + f.h * f.h) * Rf) * Rf) * 0.25);
    const double d = r * Df;
    const int32_t cx = f.w >> 1, cy = f.h >> 1;
    for (int32_t y = 0; y < f.h; ++y) {
        const int32_t dy = y - cy;
        for (int32_t x = 0; x < f.w; ++x) {
            const double mL = r - std::sqrt((x - (cx - d)) * (x - (cx - d)) + dy * dy);
            const double mR = r - std::sqrt((x - (cx + d)) * (x - (cx + d)) + dy * dy);
            const double m = mL > mR ? mL : mR;
            const uint32_t s = f.src[static_cast<int64_t>(y) * f.w + x];
            f.dst[static_cast<int64_t>(y) * f.w + x] = m >= 1.0   ? s
                                                       : m <= 0.0 ? bg
                                                                  : mixPixel(bg, s, m);
        }
    }
}

void stainedGlass(const Frame& f) {
    const double intensity = 15.0;
    int32_t G = trunc32(intensity);
    if (G == 0) G = 1;
    const float cw = static_cast<float>(static_cast<double>(f.w) / G);
    const float ch = static_cast<float>(static_cast<double>(f.h) / G);
    std::vector<int32_t> cols(static_cast<size_t>(G) + 1), rows(static_cast<size_t>(G) + 1);
    for (int32_t k = 0; k < G; ++k) {
        cols[static_cast<size_t>(k)] = trunc32(k * static_cast<double>(cw));
        rows[static_cast<size_t>(k)] = trunc32(k * static_cast<double>(ch));
    }
    cols[static_cast<size_t>(G)] = f.w;
    rows[static_cast<size_t>(G)] = f.h;
    const size_t cells = static_cast<size_t>(G) * G;
    std::vector<int32_t> seedX(cells), seedY(cells);
    std::vector<uint32_t> colour(cells);
    for (int32_t r = 0; r < G; ++r) {
        for (int32_t c = 0; c < G; ++c) {
            const size_t i = static_cast<size_t>(r * G + c);
            colour[i] =
                blockAverage(f, cols[static_cast<size_t>(c)], rows[static_cast<size_t>(r)],
                             cols[static_cast<size_t>(c) + 1], rows[static_cast<size_t>(r) + 1]);
            int32_t best = 256;
            seedX[i] = cols[static_cast<size_t>(c)];
            seedY[i] = rows[static_cast<size_t>(r)];
            for (int32_t y = rows[static_cast<size_t>(r)]; y < rows[static_cast<size_t>(r) + 1];
                 ++y) {
                for (int32_t x = cols[static_cast<size_t>(c)]; x < cols[static_cast<size_t>(c) + 1];
                     ++x) {
                    const int32_t k = key(f.src[static_cast<int64_t>(y) * f.w + x]);
                    if (k < best) {
                        best = k;
                        seedX[i] = x;
                        seedY[i] = y;
                    }
                }
            }
        }
    }
    static const int32_t kAround[9][2] = {{0, 0}, {-1, -1}, {-1, 1}, {-1, 0}, {1, -1},
                                          {1, 1}, {1, 0},   {0, -1}, {0, 1}};
    for (int32_t r = 0; r < G; ++r) {
        for (int32_t c = 0; c < G; ++c) {
            for (int32_t y = rows[static_cast<size_t>(r)]; y < rows[static_cast<size_t>(r) + 1];
                 ++y) {
                for (int32_t x = cols[static_cast<size_t>(c)]; x < cols[static_cast<size_t>(c) + 1];
                     ++x) {
                    int32_t bestD = 0;
                    size_t chosen = 0;
                    for (int32_t n = 0; n < 9; ++n) {
                        int32_t rr = r + kAround[n][0], cc = c + kAround[n][1];
                        rr = rr < 0 ? 0 : rr > G - 1 ? G - 1 : rr;
                        cc = cc < 0 ? 0 : cc > G - 1 ? G - 1 : cc;
                        const size_t i = static_cast<size_t>(rr * G + cc);
                        const int32_t d =
                            (x - seedX[i]) * (x - seedX[i]) + (y - seedY[i]) * (y - seedY[i]);
                        if (n == 0 || d <= bestD) {
                            bestD = d;
                            chosen = i;
                        }
                    }
                    f.dst[static_cast<int64_t>(y) * f.w + x] = colour[chosen];
                }
            }
        }
    }
}

void randomRotateSquares(const Frame& f) {
    const double scale = 0.5;
    const uint32_t fill = f.ayuv ? 0xFF108080u : 0xFF000000u;
    int32_t n = trunc32(std::exp2(scale * std::log2(static_cast<double>(f.w))));
    if (n < 1) n = 1;
    if (n > f.w) n = f.w;
    uint32_t g = 2002;
    for (int32_t y0 = 0; y0 < f.h; y0 += n) {
        for (int32_t x0 = 0; x0 < f.w; x0 += n) {
            g = g * 1664525u + 1013904223u;
            const int32_t mode = (static_cast<int32_t>(g % 256) - 1) & 6;
            for (int32_t i = 0; i < n; ++i) {
                for (int32_t j = 0; j < n; ++j) {
                    if (x0 + j >= f.w || y0 + i >= f.h) continue;
                    int32_t sx = x0 + j, sy = y0 + i;
                    if (mode == 2) {
                        sx = x0 + i;
                        sy = y0 + n - 1 - j;
                    } else if (mode == 4) {
                        sx = x0 + n - 1 - j;
                        sy = y0 + n - 1 - i;
                    } else if (mode == 6) {
                        sx = x0 + n - 1 - i;
                        sy = y0 + j;
                    }
                    const bool inside = sx >= 0 && sy >= 0 && sx < f.w && sy < f.h;
                    f.dst[static_cast<int64_t>(y0 + i) * f.w + x0 + j] =
                        inside ? f.src[static_cast<int64_t>(sy) * f.w + sx] : fill;
                }
            }
        }
    }
}

void fade(const Frame& f, uint32_t colour, double progress) {
    const double amount = progress;  // "Direction" "Video To Color", the initial choice
    const int32_t alpha = trunc32(255 * amount) & 0xFF;
    const uint32_t block =
        argbToFrame((colour & 0xFFFFFFu) | static_cast<uint32_t>(alpha) << 24, f.ayuv);
    for (int64_t i = 0; i < static_cast<int64_t>(f.w) * f.h; ++i) f.dst[i] = f.src[i];
    for (int64_t i = 0; i < static_cast<int64_t>(f.w) * f.h; ++i) {
        const uint32_t d = f.dst[i];
        uint32_t out = d & 0xFF000000u;
        for (int k = 0; k < 24; k += 8) {
            const int32_t sk = (block >> k) & 0xFF, dk = (d >> k) & 0xFF;
            out |= static_cast<uint32_t>((sk * alpha + dk * (255 - alpha) + 127) / 255) << k;
        }
        f.dst[i] = out;
    }
}

// Lantern: the spot's place on its path of twelve points and the beam's
// terms once per frame, then per pixel the turned offset, the cone's
// radius and the rim coordinate, and the shading of the three cases.
void lantern(const Frame& f, double progress) {
    const double fading = 30.0, spotRadius = 10.0, antiAliasing = 50.0;
    const int32_t w = f.w, h = f.h;
    double px[12], py[12];
    px[0] = 0.01 * w;
    py[0] = 0.01 * h;
    uint32_t state = 2002;
    auto draw = [&state]() {
        state = state * 1664525u + 1013904223u;
        const uint32_t bits = (state & 0x7FFFFFu) | 0x3F800000u;
        float v;
        std::memcpy(&v, &bits, sizeof v);
        return 2.0 * (static_cast<double>(v) - 1.0 - 0.5);
    };
    for (int k = 1; k < 12; ++k) {
        const double rx = draw();
        const double ry = draw();
        px[k] = 0.5 * w * rx;
        py[k] = 0.5 * h * ry;
    }
    const double t = progress > 0.0 ? std::min(progress, 1.0) : 0.0;
    const int32_t T = trunc32(t * 100000.0);
    double x = px[0], y = py[0];
    if (T >= 0 && T < 100000) {
        const int32_t starts[12] = {0,     9090,  18181, 27272, 36363, 45454,
                                    54545, 63636, 72727, 81818, 90909, 100000};
        int k = 0;
        while (T >= starts[k + 1]) ++k;
        const double sk = (T - k * 9090.909090909092) * 0.00011;
        x = (1 - sk) * px[k] + sk * px[k + 1];
        y = (1 - sk) * py[k] + sk * py[k + 1];
    }
    const int32_t q = 20 - trunc32(spotRadius);
    const double radius = static_cast<double>(std::min(w, h)) / q;
    const double z = (static_cast<int64_t>(w) + h) * 0.1;
    const double r2 = x * x + y * y;
    const double c = z / std::sqrt(r2 + z * z);
    const double zz = z * z;
    const double kk = c * (radius * radius) / zz;
    const double uxx = c * (x * x) + y * y, uxy = (c - 1) * x * y, vyy = c * (y * y) + x * x;
    const double inv = 1 / r2, cx = c * x, cy = c * y;
    const double aaLow = 0.5 - antiAliasing * 0.005, aaHigh = 1.0 - aaLow;
    // The fade weight of the source, in 1/65536.
    const double d = fading * 0.0033333333333333335 * 100000.0;
    const double e0 = (1.0 - fading * 0.0033333333333333335) * 100000.0;
    int32_t g = 0;
    if (T < d) g = trunc32((d - T) * 65536.0 / d);
    if (T > e0) g = trunc32((T - e0) * 65536.0 / d);
    const uint32_t G = static_cast<uint32_t>(g), keep = 65536u - G;
    for (int32_t row = 0; row < h; ++row) {
        for (int32_t col = 0; col < w; ++col) {
            const double dx = col - 0.5 * w;
            const double dy = 0.5 * h - row;
            const double u = (uxx * dx + uxy * dy) * inv - cx;
            const double v = (vyy * dy + uxy * dx) * inv - cy;
            const double rho2 = u * u + v * v;
            const double wr = (dx * x + dy * y + zz) * kk;
            const double e = 2.0 * (wr / rho2 - 1.0) + 0.5;
            const bool band = aaLow < e && e < aaHigh;
            const bool lit = rho2 < wr;
            const uint32_t p = f.src[static_cast<int64_t>(row) * w + col];
            const uint32_t b0 = p & 0xFF, b1 = (p >> 8) & 0xFF, b2 = (p >> 16) & 0xFF;
            const uint32_t dk =
                static_cast<uint32_t>(trunc32((b0 + b1 + b2 + (p >> 24)) * 0.06666666666666667));
            uint32_t out;
            if (f.ayuv) {
                uint32_t sh = lit ? b2 : dk;
                if (band) {
                    const int32_t fr = trunc32(65536.0 * e);
                    sh = static_cast<uint32_t>(((fr * static_cast<int32_t>(b2)) >> 16) +
                                               (((65536 - fr) * static_cast<int32_t>(dk)) >> 16)) &
                         0xFF;
                }
                const uint32_t yy = (((G * b2) >> 16) + ((keep * sh) >> 16)) & 0xFF;
                out = 0xFF000000u | (yy << 16) | (p & 0xFFFFu);
            } else {
                uint32_t s0 = lit ? b0 : dk, s1 = lit ? b1 : dk, s2 = lit ? b2 : dk;
                if (band) {
                    const int32_t fr = trunc32(10000.0 * e);
                    const int32_t f2 = trunc32(10000.0 * (1.0 - e));
                    const int32_t dark = f2 * static_cast<int32_t>(dk) / 10000;
                    s0 = static_cast<uint32_t>(fr * static_cast<int32_t>(b0) / 10000 + dark) & 0xFF;
                    s1 = static_cast<uint32_t>(fr * static_cast<int32_t>(b1) / 10000 + dark) & 0xFF;
                    s2 = static_cast<uint32_t>(fr * static_cast<int32_t>(b2) / 10000 + dark) & 0xFF;
                }
                const uint32_t o0 = (((keep * s0) >> 16) + ((G * b0) >> 16)) & 0xFF;
                const uint32_t o1 = (((keep * s1) >> 16) + ((G * b1) >> 16)) & 0xFF;
                const uint32_t o2 = (((keep * s2) >> 16) + ((G * b2) >> 16)) & 0xFF;
                out = 0xFF000000u | (o2 << 16) | (o1 << 8) | o0;
            }
            f.dst[static_cast<int64_t>(row) * w + col] = out;
        }
    }
}

}  // namespace models
