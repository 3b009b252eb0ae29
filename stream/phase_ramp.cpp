// The ramp as an outer product of 16 fine and 16 coarse steps, each found by multiplication: no
// sine or cosine of a C library, and the same bits everywhere.
#include "phase_ramp.h"

#include "support/se_vector.h"

namespace {

constexpr double kTurn = 6.28318530717958648;

// Fine steps in a coarse one.
constexpr int32_t kFine = 16;
constexpr int32_t kCoarse = kRefinedBins / kFine;
static_assert(kFine * kCoarse == kRefinedBins, "the product covers all bins");

struct phasor {
  double re;
  double im;
};

phasor product(phasor a, phasor b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// exp(-i phi) from the power series; for phi up to 0.4 the first terms left out are below 1e-13.
phasor small_phasor(double phi) {
  const double s = phi * phi;
  const double cosine =
      1.0 - s / 2.0 * (1.0 - s / 12.0 * (1.0 - s / 30.0 * (1.0 - s / 56.0 * (1.0 - s / 90.0))));
  const double sine =
      phi * (1.0 - s / 6.0 * (1.0 - s / 20.0 * (1.0 - s / 42.0 * (1.0 - s / 72.0))));
  return {cosine, -sine};
}

// Powers 0 .. 15 of `step`, rounded; returns power 16.
phasor fill_powers(phasor step, float *re, float *im) {
  phasor power = {1.0, 0.0};
  for (int32_t i = 0; i < kFine; ++i) {
    re[i] = static_cast<float>(power.re);
    im[i] = static_cast<float>(power.im);
    power = product(power, step);
  }
  return power;
}

SE_BF_VECTOR_CLONES void multiply_out(const float *fine_re, const float *fine_im,
                                      const float *coarse_re, const float *coarse_im,
                                      bin_spectrum *ramp) {
  for (int32_t c = 0; c < kCoarse; ++c) {
    SE_BF_INDEPENDENT_ROUNDS
    for (int32_t f = 0; f < kFine; ++f) {
      ramp->re[c * kFine + f] = fine_re[f] * coarse_re[c] - fine_im[f] * coarse_im[c];
      ramp->im[c * kFine + f] = fine_re[f] * coarse_im[c] + fine_im[f] * coarse_re[c];
    }
  }
}

}  // namespace

static_assert(kFine == kCoarse, "one function fills both sets of steps");

void phase_ramp_fill(bin_spectrum *ramp, float delay) {
  float fine_re[kFine];
  float fine_im[kFine];
  float coarse_re[kCoarse];
  float coarse_im[kCoarse];
  const double phi = kTurn * static_cast<double>(delay) / kRefinedFft;
  const phasor coarse = fill_powers(small_phasor(phi), fine_re, fine_im);
  fill_powers(coarse, coarse_re, coarse_im);
  multiply_out(fine_re, fine_im, coarse_re, coarse_im, ramp);
}
