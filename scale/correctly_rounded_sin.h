// A sine that gives the same double on every processor: the exact sine rounded to the nearest
// double, computed with plain IEEE double additions and multiplications only. The standard
// library's sin differs in the last bit between processors (and even between x86-64 machines,
// which pick an FMA or a non-FMA version at run time), so the Lanczos kernels use this one.
#pragma once

#include <optional>

// Below this magnitude the argument reduction is exact enough for correct rounding.
inline constexpr double kCorrectlyRoundedSinLimit = 1048576.0;  // 2^20

// sin(y) rounded to nearest for finite |y| < kCorrectlyRoundedSinLimit; sin(-y) = -sin(y) and
// sin(+-0) = +-0. The result is correctly rounded unless the exact sine lies within about 2^-100
// (relative) of the midpoint between two doubles; it is the same double on every processor in
// either case. NaN and infinities give a quiet NaN; finite arguments beyond the limit (which no
// kernel gives) are passed to std::sin, which is accurate but not bit-identical everywhere.
double CorrectlyRoundedSin(double y);

// The two halves of CorrectlyRoundedSin, which tries the first and falls back on the second.
// The fast one gives the correctly rounded sine when a cheaper evaluation with a proven error
// bound decides the rounding, and nothing otherwise: near multiples of pi/2 where the sine is
// tiny, for rare arguments whose sine lies close to a midpoint, and outside
// 2^-26 <= |y| < kCorrectlyRoundedSinLimit. The accurate one handles every argument.
std::optional<double> CorrectlyRoundedSinFast(double y);
double CorrectlyRoundedSinAccurate(double y);
