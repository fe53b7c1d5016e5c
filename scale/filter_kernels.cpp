// Each kernel beside its support, written in the order its operations are done: every
// comparison has the strictness it has always had, and the constants are the doubles given.
#include "filter_kernels.h"

#include "correctly_rounded_sin.h"

namespace {

constexpr double kPi = 3.141592653589793;

}  // namespace

// The sine is correctly rounded, so the weights are the same on every processor.
double Sinc(double t) {
  if (t == 0.0) return 1.0;
  const double y = t * kPi;
  return CorrectlyRoundedSin(y) / y;
}

std::optional<double> TriangleKernel(double x) {
  if (x < 1.0) return 1.0 - x;
  return std::nullopt;
}

// The boundary 0.5 is included; beyond it the value is 0.0, which is not stored either.
std::optional<double> BoxKernel(double x) {
  if (x <= 0.5) return 1.0;
  return 0.0;
}

std::optional<double> Lanczos3Kernel(double x) {
  if (x >= 3.0) return std::nullopt;
  return Sinc(x) * Sinc(x / 3.0);
}

std::optional<double> Lanczos8Kernel(double x) {
  if (x >= 8.0) return std::nullopt;
  return Sinc(x) * Sinc(x * 0.125);
}

// Mitchell-Netravali with B = C = 1/3.
std::optional<double> MitchellKernel(double x) {
  const double x2 = x * x;
  if (x < 1.0) return (7.0 * x * x2 - 12.0 * x2 + 5.333333333333333) / 6.0;
  if (x < 2.0) {
    return (-2.3333333333333335 * x2 * x + 12.0 * x2 - 20.0 * x + 10.666666666666666) / 6.0;
  }
  return std::nullopt;
}

// Cubic convolution with a = -0.75.
std::optional<double> CubicKernel(double x) {
  if (x < 1.0) return (1.25 * x - 2.25) * x * x + 1.0;
  if (x < 2.0) return ((-0.75 * x + 3.75) * x - 6.0) * x + 3.0;
  return std::nullopt;
}

// Six-point cubic convolution, each piece (c3 x^2) x + c2 x^2 + c1 x + c0 from left to right.
std::optional<double> Cubic6Kernel(double x) {
  const double x2 = x * x;
  if (x <= 1.0) return 1.3333333333333333 * x2 * x + -2.3333333333333335 * x2 + 1.0;
  if (x <= 2.0) {
    return -0.5833333333333334 * x2 * x + 3.0 * x2 + -4.916666666666667 * x + 2.5;
  }
  if (x <= 3.0) {
    return 0.08333333333333333 * x2 * x + -0.6666666666666666 * x2 + 1.75 * x + -1.5;
  }
  return std::nullopt;
}

const ResamplingMode* FindResamplingMode(int32_t mode) {
  // The candidate radius of mode 6 is twice its kernel's support, and the box's capacities
  // differ across and down; both have always been so and change no weight.
  static constexpr ResamplingMode kModes[] = {
      {"triangle", TriangleKernel, 1.0, 4, 4}, {"box", BoxKernel, 0.5, 2, 3},
      {"lanczos3", Lanczos3Kernel, 3.0, 8, 8}, {"lanczos8", Lanczos8Kernel, 8.0, 18, 18},
      {"mitchell", MitchellKernel, 2.0, 6, 6}, {"cubic", CubicKernel, 4.0, 10, 10},
      {"cubic6", Cubic6Kernel, 3.0, 8, 8},
  };
  if (mode < 1 || mode > 7) return nullptr;
  return &kModes[mode - 1];
}
