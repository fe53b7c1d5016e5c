// The seven filter kernels of ScalingQPX and its mode table. A kernel is a function of a
// non-negative distance in source pixels; where it is not applied it gives no value, which the
// resampler treats like a value of exactly 0.0: no contributor is stored.
#pragma once

#include <cstdint>
#include <optional>

using FilterKernel = std::optional<double> (*)(double distance);

std::optional<double> TriangleKernel(double x);  // mode 1
std::optional<double> BoxKernel(double x);       // mode 2
std::optional<double> Lanczos3Kernel(double x);  // mode 3
std::optional<double> Lanczos8Kernel(double x);  // mode 4
std::optional<double> MitchellKernel(double x);  // mode 5
std::optional<double> CubicKernel(double x);     // mode 6
std::optional<double> Cubic6Kernel(double x);    // mode 7

// sin(t pi) / (t pi), and 1.0 for t exactly 0.0.
double Sinc(double t);

struct ResamplingMode {
  const char* name;
  FilterKernel kernel;
  double radius;           // candidates lie within it (source pixels at scale 1)
  int32_t capacityAcross;  // contributor entries of an enlarging column
  int32_t capacityDown;    // contributor entries of an enlarging row
};

// Mode 1 to 7, or null for any other number.
const ResamplingMode* FindResamplingMode(int32_t mode);
