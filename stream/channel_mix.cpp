// Phase ramps, and weights by amplitude.
#include "channel_mix.h"

#include "phase_ramp.h"
#include "support/se_maths.h"
#include "support/se_vector.h"

namespace {

// Smoothing of the power over 5 frames, 0.1 s: about a syllable.
constexpr float kPowerDecay = 0.8f;
constexpr float kPowerIntake = 1.0f - kPowerDecay;

// Keeps the weights of two silent bins defined: both count the same. Added to powers, it keeps
// them from becoming subnormal, which some processors handle slowly.
constexpr float kLeastPower = 1e-18f;

//   a = ramp x0, b = conj(ramp) x1
//   M0 = 0.8 M0 + 0.2 |a|^2, M1 likewise
//   z = (sqrt(M1) a + sqrt(M0) b) / (sqrt(M0) + sqrt(M1))
SE_BF_VECTOR_CLONES void mix_bins(channel_mix *__restrict mix, const bin_spectrum *__restrict x0,
                                  const bin_spectrum *__restrict x1, bin_spectrum *__restrict mixed,
                                  float *__restrict mixed_power, float *__restrict mean_power) {
  for (int32_t k = 0; k < kRefinedBins; ++k) {
    const float ramp_re = mix->ramp.re[k];
    const float ramp_im = mix->ramp.im[k];
    const float a_re = x0->re[k] * ramp_re - x0->im[k] * ramp_im;
    const float a_im = x0->re[k] * ramp_im + x0->im[k] * ramp_re;
    const float b_re = x1->re[k] * ramp_re + x1->im[k] * ramp_im;
    const float b_im = x1->im[k] * ramp_re - x1->re[k] * ramp_im;

    const float power0 = a_re * a_re + a_im * a_im + kLeastPower;
    const float power1 = b_re * b_re + b_im * b_im + kLeastPower;
    const float smooth0 = kPowerDecay * mix->power0[k] + kPowerIntake * power0;
    const float smooth1 = kPowerDecay * mix->power1[k] + kPowerIntake * power1;
    mix->power0[k] = smooth0;
    mix->power1[k] = smooth1;

    const float level0 = se_sqrt(smooth0);
    const float level1 = se_sqrt(smooth1);
    const float share0 = level1 / (level0 + level1);
    const float z_re = b_re + share0 * (a_re - b_re);
    const float z_im = b_im + share0 * (a_im - b_im);
    mixed->re[k] = z_re;
    mixed->im[k] = z_im;
    mixed_power[k] = z_re * z_re + z_im * z_im;

    const float mean_re = (a_re + b_re) * 0.5f;
    const float mean_im = (a_im + b_im) * 0.5f;
    mean_power[k] = mean_re * mean_re + mean_im * mean_im;
  }
}

}  // namespace

void channel_mix_init(channel_mix *mix) {
  mix->delay = 0.0f;
  phase_ramp_fill(&mix->ramp, 0.0f);
}

void channel_mix_frame(channel_mix *mix, const bin_spectrum *x0, const bin_spectrum *x1,
                       float delay, bin_spectrum *mixed, float *mixed_power, float *mean_power) {
  if (delay != mix->delay) {
    mix->delay = delay;
    phase_ramp_fill(&mix->ramp, 0.5f * delay);
  }
  mix_bins(mix, x0, x1, mixed, mixed_power, mean_power);
}
