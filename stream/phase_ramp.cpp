// The first bins by multiplication, the rest by doubling: no sine or cosine of a C library, and the
// same bits everywhere.
#include "phase_ramp.h"

#include "support/se_vector.h"

namespace {

constexpr double kTurn = 6.28318530717958648;

// Bins that are multiplied out one by one.
constexpr int32_t kFirstBins = 8;

struct phasor {
  double re;
  double im;
};

phasor product(phasor a, phasor b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// exp(-i phi) from the power series; for phi up to 0.4 the terms left out are below 3e-11.
phasor small_phasor(double phi) {
  const double s = phi * phi;
  const double cosine =
      1.0 - s * (1.0 / 2.0 - s * (1.0 / 24.0 - s * (1.0 / 720.0 - s * (1.0 / 40320.0))));
  const double sine =
      phi * (1.0 - s * (1.0 / 6.0 - s * (1.0 / 120.0 - s * (1.0 / 5040.0 - s * (1.0 / 362880.0)))));
  return {cosine, -sine};
}

// ramp(k + count) = ramp(k) step, k = 0 .. count - 1.
SE_BF_VECTOR_CLONES void extend(bin_spectrum *ramp, int32_t count, float step_re, float step_im) {
  for (int32_t first = 0; first < count; first += kFirstBins) {
    const float *re = ramp->re + first;
    const float *im = ramp->im + first;
    float *__restrict next_re = ramp->re + first + count;
    float *__restrict next_im = ramp->im + first + count;
    SE_BF_INDEPENDENT_ROUNDS
    for (int32_t i = 0; i < kFirstBins; ++i) {
      const float a = re[i];
      const float b = im[i];
      next_re[i] = a * step_re - b * step_im;
      next_im[i] = a * step_im + b * step_re;
    }
  }
}

}  // namespace

void phase_ramp_fill(bin_spectrum *ramp, float delay) {
  const phasor unit = small_phasor(kTurn / kRefinedFft * static_cast<double>(delay));
  phasor step = {1.0, 0.0};
  for (int32_t k = 0; k < kFirstBins; ++k) {
    ramp->re[k] = static_cast<float>(step.re);
    ramp->im[k] = static_cast<float>(step.im);
    step = product(step, unit);
  }
  for (int32_t count = kFirstBins; count < kRefinedBins; count *= 2) {
    extend(ramp, count, static_cast<float>(step.re), static_cast<float>(step.im));
    step = product(step, step);
  }
}
