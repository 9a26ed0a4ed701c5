// Float-to-integer conversions with the semantics of the x86 truncating
// conversion instructions, defined for every input: a plain cast of a NaN or
// out-of-range double is undefined behaviour in C++, these never are.
#pragma once

#include <cstdint>

// Truncate toward zero to 32 bits; NaN and out-of-range give INT32_MIN.
inline int32_t truncToInt32(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Truncate toward zero to 64 bits; NaN and out-of-range give INT64_MIN.
inline int64_t truncToInt64(double v) {
    if (!(v >= -9223372036854775808.0 && v < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<int64_t>(v);
}

// Truncate to 64 bits and keep the low 32: how whole-number, choice and
// colour parameters become integers (4294967295.0 gives 0xFFFFFFFF).
inline int32_t truncToInt64Low32(double v) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(truncToInt64(v))));
}

// Truncate toward zero a value that the caller's arithmetic keeps well inside
// the 32-bit range (sums and products of byte values): a plain conversion,
// which the compiler can vectorise, where truncToInt32 guards every input.
inline int32_t truncBounded(double v) { return static_cast<int32_t>(v); }
inline int32_t truncBounded(float v) { return static_cast<int32_t>(v); }
