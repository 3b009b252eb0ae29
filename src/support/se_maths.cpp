// Scalar complex arithmetic and the exponential integral.
#include "support/se_maths.h"

namespace {

// Relative change at which the series of the exponential integral counts as converged.
constexpr float kExpintToleranceSingle = 1.19e-6f;
constexpr double kExpintToleranceDouble = 2.220446049250313e-15;

// Euler's constant; the single-precision form is short on purpose (see the header).
constexpr float kEulerGammaShort = 0.5772f;
constexpr double kEulerGamma = 0.5772156649015329;

}  // namespace

float se_exp(float x) {
  return std::exp(x);
}

float se_log(float x) {
  return std::log(x);
}

float se_log10(float x) {
  return std::log10(x);
}

float se_expint(float x) {
  float sum = x;
  float power = x;
  float factorial = 1.0f;
  float order = 1.0f;
  float harmonic = 1.0f;

  bool converging = std::fabs(x) > 0.0f;
  while (converging) {
    order += 1.0f;
    power *= x;
    factorial *= order;
    harmonic += 1.0f / order;

    const float next = sum + power * harmonic / factorial;
    const double change = static_cast<double>(std::fabs(next - sum));
    const double limit =
        static_cast<double>(std::fabs(sum)) * static_cast<double>(kExpintToleranceSingle);
    converging = change > limit;
    sum = next;
  }

  return -((std::log(std::fabs(x)) + kEulerGammaShort) - std::exp(-x) * sum);
}

float expint_f(float x) {
  return se_expint(x);
}

double expint_d(double x) {
  double sum = x;
  double power = x;
  double factorial = 1.0;
  double order = 1.0;
  double harmonic = 1.0;

  bool converging = std::fabs(x) > 0.0;
  while (converging) {
    order += 1.0;
    power *= x;
    factorial *= order;
    harmonic += 1.0 / order;

    const double next = sum + power * harmonic / factorial;
    converging = std::fabs(next - sum) > std::fabs(sum) * kExpintToleranceDouble;
    sum = next;
  }

  return -((std::log(std::fabs(x)) + kEulerGamma) - std::exp(-x) * sum);
}

float complex_abs(se_complex a) {
  const double re = static_cast<double>(a.re);
  const double im = static_cast<double>(a.im);
  return static_cast<float>(std::sqrt(re * re + im * im));
}

se_complex complex_div_complex(se_complex a, se_complex b) {
  const float divisor = b.re * b.re + b.im * b.im;
  return {(a.re * b.re + a.im * b.im) / divisor, (a.im * b.re - a.re * b.im) / divisor};
}

se_complex float_div_complex(float f, se_complex b) {
  const float t = f / (b.re * b.re + b.im * b.im);
  return {t * b.re, -t * b.im};
}
