// Sines and cosines of the unit circle in Q31, evaluated by the compiler for the constant tables.
#ifndef TM_SE_BF_SPECTRAL_Q31_CIRCLE_H
#define TM_SE_BF_SPECTRAL_Q31_CIRCLE_H

#include <cstddef>
#include <cstdint>

#include "spectral/q31_format.h"

inline constexpr double kCirclePi = 3.14159265358979323846;
inline constexpr int32_t kQ31Max = INT32_MAX;

// Terms of the Taylor series below, after the first; at 45 degrees the next one is under 1e-21.
inline constexpr int kTaylorTerms = 10;

// Sine (start = 1) or cosine (start = 0) of 0 <= x <= pi/4 from the Taylor series.
constexpr double circle_taylor(double x, int start) {
  double term = start == 0 ? 1.0 : x;
  double sum = term;
  for (int n = start + 1; n < start + 2 * kTaylorTerms; n += 2) {
    term *= -x * x / (n * (n + 1.0));
    sum += term;
  }
  return sum;
}

// sin(2 pi index / length). The angle is folded into one octant in exact integer arithmetic, so
// that the zeros and ones of the circle come out exact.
constexpr double circle_sin(size_t index, size_t length) {
  const size_t position = index % length;
  const size_t in_half = position % (length / 2);
  const size_t in_quarter = in_half > length / 4 ? length / 2 - in_half : in_half;
  const bool first_octant = in_quarter <= length / 8;
  const size_t in_octant = first_octant ? in_quarter : length / 4 - in_quarter;

  const double angle =
      2.0 * kCirclePi * static_cast<double>(in_octant) / static_cast<double>(length);
  const double magnitude = circle_taylor(angle, first_octant ? 1 : 0);
  return position < length / 2 ? magnitude : -magnitude;
}

constexpr double circle_cos(size_t index, size_t length) {
  return circle_sin(index + length / 4, length);
}

// Largest integer not above x; |x| <= 2^31.
constexpr int64_t round_down(double x) {
  const int64_t truncated = static_cast<int64_t>(x);
  return static_cast<double>(truncated) > x ? truncated - 1 : truncated;
}

constexpr int32_t to_q31(int64_t scaled) {
  return scaled > kQ31Max ? kQ31Max : static_cast<int32_t>(scaled);
}

constexpr int32_t q31_down(double x) {
  return to_q31(round_down(x * kQ31One));
}

constexpr int32_t q31_nearest(double x) {
  return to_q31(round_down(x * kQ31One + 0.5));
}

#endif  // TM_SE_BF_SPECTRAL_Q31_CIRCLE_H
