#include "pixel/fxmath.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// ---- double-double arithmetic -------------------------------------------------
// A value hi + lo with |lo| <= half an ulp of hi; about 106 significant bits.

struct DD {
    double hi;
    double lo;
};

inline DD twoSum(double a, double b) {
    const double s = a + b;
    const double bb = s - a;
    return {s, (a - (s - bb)) + (b - bb)};
}

inline DD quickTwoSum(double a, double b) {  // |a| >= |b|
    const double s = a + b;
    return {s, b - (s - a)};
}

inline void split(double a, double* hi, double* lo) {
    const double c = 134217729.0 * a;  // 2^27 + 1
    *hi = c - (c - a);
    *lo = a - *hi;
}

inline DD twoProd(double a, double b) {
    const double p = a * b;
    double ah, al, bh, bl;
    split(a, &ah, &al);
    split(b, &bh, &bl);
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}

inline DD add(DD a, DD b) {
    const DD s = twoSum(a.hi, b.hi);
    const DD t = twoSum(a.lo, b.lo);
    DD r = quickTwoSum(s.hi, s.lo + t.hi);
    return quickTwoSum(r.hi, r.lo + t.lo);
}

inline DD mul(DD a, DD b) {
    const DD p = twoProd(a.hi, b.hi);
    return quickTwoSum(p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi));
}

inline DD mul(DD a, double b) {
    const DD p = twoProd(a.hi, b);
    return quickTwoSum(p.hi, p.lo + a.lo * b);
}

inline DD div(DD a, DD b) {
    const double q1 = a.hi / b.hi;
    DD r = add(a, mul(b, -q1));
    const double q2 = r.hi / b.hi;
    r = add(r, mul(b, -q2));
    const double q3 = r.hi / b.hi;
    return add(quickTwoSum(q1, q2), DD{q3, 0.0});
}

constexpr DD kLn2 = {0.6931471805599453, 2.3190468138462996e-17};
constexpr double kLn2Hi32 = 0.6931471803691238;  // 32 significant bits: k * kLn2Hi32 is exact
constexpr double kLn2Mid = 1.9082149292705877e-10;
constexpr double kLn2Lo = 1.1612227229362532e-26;

// ln(x) for finite x > 0, in double-double.
DD logDD(double x) {
    int e = 0;
    double m = std::frexp(x, &e);  // x = m * 2^e, 0.5 <= m < 1 (exact)
    if (m < 0.7071067811865476) {
        m *= 2.0;
        --e;
    }
    // ln(m) = 2 atanh(s), s = (m - 1) / (m + 1), |s| < 0.1716.
    const DD num = {m - 1.0, 0.0};  // exact: m is within a factor of two of 1
    const DD den = twoSum(m, 1.0);
    const DD s = div(num, den);
    const DD s2 = mul(s, s);
    // atanh(s) / s = sum s^(2k) / (2k + 1); 21 terms reach 2^-106 for |s| < 0.1716.
    DD sum = {1.0 / 43.0, 0.0};
    for (int k = 20; k >= 1; --k) {
        sum = add(mul(sum, s2), div(DD{1.0, 0.0}, DD{2.0 * k + 1.0, 0.0}));
    }
    sum = add(mul(sum, s2), DD{1.0, 0.0});
    const DD lnm = mul(mul(sum, s), 2.0);
    return add(mul(kLn2, static_cast<double>(e)), lnm);
}

// e^x for a double-double argument; the result as double-double scaled by
// 2^k separately so huge and tiny results round only once.
double expDD(DD x) {
    if (x.hi > 709.8) return kInf;
    if (x.hi < -745.2) return 0.0;
    const double k = std::floor(x.hi / kLn2.hi + 0.5);
    // r = x - k ln2, with k * ln2 split so every product is exact.
    DD r = add(x, DD{-k * kLn2Hi32, 0.0});
    r = add(r, twoProd(-k, kLn2Mid));
    r = add(r, twoProd(-k, kLn2Lo));
    // e^r = (e^(r / 256))^256; Taylor for |r / 256| < 0.00136, 11 terms.
    const DD t = {r.hi / 256.0, r.lo / 256.0};  // exact scaling
    DD sum = {1.0, 0.0};
    for (int n = 11; n >= 1; --n) {
        sum = add(mul(div(sum, DD{static_cast<double>(n), 0.0}), t), DD{1.0, 0.0});
    }
    for (int i = 0; i < 8; ++i) sum = mul(sum, sum);
    // Scale by 2^k in two steps so an intermediate never overflows early.
    const int ki = static_cast<int>(k);
    const double v = sum.hi + sum.lo;
    return std::ldexp(std::ldexp(v, ki / 2), ki - ki / 2);
}

bool isOddInteger(double y) {
    if (std::fabs(y) >= 9007199254740992.0) return false;  // 2^53 and above are even
    const double h = y * 0.5;
    return std::floor(y) == y && std::floor(h) != h;
}

// ---- sine and cosine ----------------------------------------------------------------

// pi / 2 in four parts of 33 significant bits: k times a part is exact for |k| < 2^20.
constexpr double kPio2[4] = {1.5707963267341256, 6.077100506303966e-11, 2.0222662487111665e-21,
                             8.478427660348229e-32};
constexpr double kTwoOverPi = 0.6366197723675814;
constexpr double kTwoPi = 6.283185307179586;

// x = k pi/2 + (r.hi + r.lo), |r| <= about pi/4; returns k mod 4.
int reduce(double x, DD* r) {
    if (std::fabs(x) > 1073741824.0) {
        // Far out, exactness is pointless: reduce modulo the double nearest
        // 2 pi (an exact operation), which keeps the result defined.
        x = std::fmod(x, kTwoPi);
    }
    if (std::fabs(x) <= 0.7853981633974483) {
        *r = {x, 0.0};
        return 0;
    }
    const double k = std::floor(x * kTwoOverPi + 0.5);
    // Each k * part is exact; the sum is carried in double-double.
    DD acc = {x - k * kPio2[0], 0.0};  // exact for |k| < 2^20 (Sterbenz)
    for (int i = 1; i < 4; ++i) acc = add(acc, twoProd(-k, kPio2[i]));
    *r = quickTwoSum(acc.hi, acc.lo);
    const int64_t ki = static_cast<int64_t>(k);
    return static_cast<int>(ki & 3);
}

// sin(r.hi + r.lo) for |r| <= pi/4 (Taylor series to r^17).
double sinKernel(DD r) {
    const double x = r.hi;
    const double z = x * x;
    constexpr double s3 = -1.0 / 6.0, s5 = 1.0 / 120.0, s7 = -1.0 / 5040.0, s9 = 1.0 / 362880.0,
                     s11 = -1.0 / 39916800.0, s13 = 1.0 / 6227020800.0,
                     s15 = -1.0 / 1307674368000.0, s17 = 1.0 / 355687428096000.0;
    const double p = s5 + z * (s7 + z * (s9 + z * (s11 + z * (s13 + z * (s15 + z * s17)))));
    // x + x^3 (s3 + z p) + lo (1 - z / 2): the small terms first.
    const double tail = (z * x) * (s3 + z * p);
    return x + (tail + r.lo * (1.0 - 0.5 * z));
}

// cos(r.hi + r.lo) for |r| <= pi/4 (Taylor series to r^18).
double cosKernel(DD r) {
    const double x = r.hi;
    const double z = x * x;
    constexpr double c4 = 1.0 / 24.0, c6 = -1.0 / 720.0, c8 = 1.0 / 40320.0, c10 = -1.0 / 3628800.0,
                     c12 = 1.0 / 479001600.0, c14 = -1.0 / 87178291200.0,
                     c16 = 1.0 / 20922789888000.0, c18 = -1.0 / 6402373705728000.0;
    const double q =
        z * z *
        (c4 + z * (c6 + z * (c8 + z * (c10 + z * (c12 + z * (c14 + z * (c16 + z * c18)))))));
    const double hz = 0.5 * z;
    const double w = 1.0 - hz;
    // 1 - z/2 carried exactly: (1 - w) - hz recovers what the subtraction lost.
    return w + (((1.0 - w) - hz) + (q - x * r.lo));
}

// ---- arctangent ---------------------------------------------------------------------

// atan(i / 16) for i = 0 ... 16, as hi + lo.
constexpr DD kAtanTable[17] = {
    {0.0, 0.0},
    {0.06241880999595735, -1.5490756308295046e-18},
    {0.12435499454676144, -3.1253241424539383e-18},
    {0.18534794999569476, 4.180692268843079e-18},
    {0.24497866312686414, 1.0698755618734451e-17},
    {0.3028848683749714, -1.1010827903001369e-17},
    {0.35877067027057225, -2.4623815582638635e-17},
    {0.4124104415973873, -1.587652227770689e-17},
    {0.4636476090008061, 2.2698777452961687e-17},
    {0.5123894603107377, -2.5462781472855804e-17},
    {0.5585993153435624, -5.4556305485916264e-18},
    {0.6022873461349642, 2.950430737228402e-17},
    {0.6435011087932844, 1.5834785051444286e-17},
    {0.6823165548747481, 6.943223671560008e-18},
    {0.7188299996216245, -2.1478388444456983e-17},
    {0.7531512809621944, -2.4256934659182068e-17},
    {0.7853981633974483, 3.061616997868383e-17},
};
constexpr DD kPio2DD = {1.5707963267948966, 6.123233995736766e-17};
constexpr DD kPiDD = {3.141592653589793, 1.2246467991473532e-16};

// atan(a) for 0 <= a <= 1: atan(c) + atan((a - c) / (1 + a c)) with c the
// nearest sixteenth, so the series argument stays below 1/32.
double atanUnit(double a) {
    const int i = static_cast<int>(a * 16.0 + 0.5);
    const double c = i / 16.0;
    const double t = (a - c) / (1.0 + a * c);
    const double z = t * t;
    constexpr double a3 = -1.0 / 3.0, a5 = 1.0 / 5.0, a7 = -1.0 / 7.0, a9 = 1.0 / 9.0,
                     a11 = -1.0 / 11.0, a13 = 1.0 / 13.0;
    const double tail = (z * t) * (a3 + z * (a5 + z * (a7 + z * (a9 + z * (a11 + z * a13)))));
    return kAtanTable[i].hi + (kAtanTable[i].lo + (t + tail));
}

// atan(a) for a >= 0, finite or infinite.
double atanPositive(double a) {
    if (a <= 1.0) return atanUnit(a);
    if (a > 1.0e20) return kPio2DD.hi;
    // atan(a) = pi/2 - atan(1/a).
    return kPio2DD.hi + (kPio2DD.lo - atanUnit(1.0 / a));
}

}  // namespace

double fxSin(double x) {
    if (!std::isfinite(x)) return kNan;
    if (std::fabs(x) < 1.0e-9) return x;
    DD r;
    switch (reduce(x, &r)) {
        case 0: return sinKernel(r);
        case 1: return cosKernel(r);
        case 2: return -sinKernel(r);
        default: return -cosKernel(r);
    }
}

double fxCos(double x) {
    if (!std::isfinite(x)) return kNan;
    if (std::fabs(x) < 1.0e-9) return 1.0;
    DD r;
    switch (reduce(x, &r)) {
        case 0: return cosKernel(r);
        case 1: return -sinKernel(r);
        case 2: return -cosKernel(r);
        default: return sinKernel(r);
    }
}

double fxAtan(double x) {
    if (std::isnan(x)) return x;
    if (std::fabs(x) < 1.0e-9) return x;
    const double a = atanPositive(std::fabs(x));
    return x < 0 ? -a : a;
}

double fxAtan2(double y, double x) {
    if (std::isnan(x) || std::isnan(y)) return kNan;
    const bool negY = std::signbit(y);
    const bool negX = std::signbit(x);
    double a;
    if (y == 0.0) {
        a = negX ? kPiDD.hi : 0.0;
    } else if (x == 0.0) {
        a = kPio2DD.hi;
    } else if (std::isinf(x)) {
        if (std::isinf(y)) {
            a = negX ? 2.356194490192345 : 0.7853981633974483;  // 3pi/4, pi/4
        } else {
            a = negX ? kPiDD.hi : 0.0;
        }
    } else if (std::isinf(y)) {
        a = kPio2DD.hi;
    } else {
        const double ay = std::fabs(y);
        const double ax = std::fabs(x);
        double base;  // angle in the first quadrant
        // The quotient's rounding error enters through atan' = 1 / (1 + q^2).
        auto atanOfQuotient = [](double num, double den) {
            const double q = num / den;
            const DD p = twoProd(q, den);
            const double qlo = ((num - p.hi) - p.lo) / den;
            return atanUnit(q) + qlo / (1.0 + q * q);
        };
        if (ay <= ax) {
            base = atanOfQuotient(ay, ax);
        } else {
            base = kPio2DD.hi + (kPio2DD.lo - atanOfQuotient(ax, ay));
        }
        a = negX ? kPiDD.hi + (kPiDD.lo - base) : base;
    }
    return negY ? -a : a;
}

double fxLog(double x) {
    if (std::isnan(x) || x < 0.0) return kNan;
    if (x == 0.0) return -kInf;
    if (std::isinf(x)) return x;
    const DD r = logDD(x);
    return r.hi + r.lo;
}

double fxPow(double x, double y) {
    // The special cases of the C library's pow.
    if (y == 0.0 || x == 1.0) return 1.0;
    if (std::isnan(x) || std::isnan(y)) return kNan;
    const bool yInt = std::floor(y) == y;
    const bool yOdd = isOddInteger(y);
    if (x == 0.0) {
        if (y < 0.0) return (yOdd && std::signbit(x)) ? -kInf : kInf;
        return yOdd ? x : 0.0;
    }
    if (std::isinf(y)) {
        const double ax = std::fabs(x);
        if (ax == 1.0) return 1.0;
        return (ax > 1.0) == (y > 0.0) ? kInf : 0.0;
    }
    if (std::isinf(x)) {
        const bool neg = x < 0.0 && yOdd;
        const double v = y > 0.0 ? kInf : 0.0;
        return neg ? -v : v;
    }
    if (x < 0.0 && !yInt) return kNan;

    const double ax = std::fabs(x);
    double v;
    if (yInt && std::fabs(y) <= 1024.0 && ax > 1.0e-300 && ax < 1.0e300) {
        // Whole exponents: the exact product, carried in double-double and
        // rounded once.
        int64_t n = static_cast<int64_t>(std::fabs(y));
        DD base = {ax, 0.0};
        DD acc = {1.0, 0.0};
        while (n > 0) {
            if (n & 1) acc = mul(acc, base);
            base = mul(base, base);
            n >>= 1;
        }
        if (!std::isfinite(acc.hi)) {
            v = y > 0.0 ? kInf : 0.0;  // the product overflowed
        } else if (acc.hi == 0.0) {
            v = y > 0.0 ? 0.0 : kInf;  // the product underflowed
        } else {
            if (y < 0.0) acc = div(DD{1.0, 0.0}, acc);
            v = acc.hi + acc.lo;
        }
    } else {
        const DD l = logDD(ax);
        v = expDD(mul(l, y));
    }
    return (x < 0.0 && yOdd) ? -v : v;
}
