// Transcendental functions that give the same bits on every platform.
//
// The C library's sin, cos, atan, atan2, log and pow differ in the last bit
// between the 32-bit and 64-bit x86 libraries for a fraction of a percent of
// inputs, and the effects truncate their results, so one bit can change a
// pixel. These functions use only IEEE addition, multiplication, division and
// square root, which are exact-rounded in both builds, so the 32-bit and
// 64-bit modules render identical pixels.
//
// Accuracy: fxSin, fxCos, fxAtan and fxAtan2 are within about one unit in the
// last place (arguments of sine and cosine are reduced exactly up to 2^30,
// and modulo the double nearest 2 pi beyond). fxLog and fxPow evaluate in
// double-double arithmetic and round once, so they give the correctly
// rounded result except in vanishingly rare cases; integral powers are exact
// products rounded once.
#pragma once

double fxSin(double x);
double fxCos(double x);
double fxAtan(double x);
double fxAtan2(double y, double x);
double fxLog(double x);
double fxPow(double x, double y);
