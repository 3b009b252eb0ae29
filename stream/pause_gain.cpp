// The share of the energy that passes, and what follows from it.
#include "pause_gain.h"

#include "bin_vector.h"
#include "fixed_maths.h"
#include "support/se_vector.h"

namespace {

// Bins 8 to 128, 250 to 4000 Hz, where speech has its energy. The last one has no full row of sums.
constexpr int32_t kFirstBin = 8;
constexpr int32_t kLastBin = 128;
static_assert((kLastBin - kFirstBin) % kSumLanes == 0, "whole rows");

// Natural logarithm of the smallest gain, 0.25, -12 dB: noise is to remain audible.
constexpr float kLogFloor = -1.38629436f;

// Shares of the energy at which the gain is smallest and 1.
constexpr float kLowShare = 0.1f;
constexpr float kHighShare = 0.3f;

// Closing: 5 frames.
constexpr float kRelease = 0.8f;

// Keeps the share of silence defined, and low.
constexpr float kLeastEnergy = 1.0f / kRefinedPowerScale;

struct energies {
  float all;
  float passed;
};

SE_BF_VECTOR_CLONES void band_energies(const float *power, const float *squared_gain,
                                       energies *sums) {
  float all[kSumLanes] = {};
  float passed[kSumLanes] = {};
  for (int32_t k = kFirstBin; k < kLastBin; k += kSumLanes) {
    for (int32_t i = 0; i < kSumLanes; ++i) {
      all[i] += power[k + i];
      passed[i] += squared_gain[k + i] * power[k + i];
    }
  }
  *sums = {add_lanes(all) + power[kLastBin],
           add_lanes(passed) + squared_gain[kLastBin] * power[kLastBin]};
}

float within_unit(float x) {
  const float below = x < 1.0f ? x : 1.0f;
  return below > 0.0f ? below : 0.0f;
}

}  // namespace

void pause_gain_init(pause_gain *pause) {
  pause->gain = 1.0f;
}

float pause_gain_frame(pause_gain *pause, const float *power, const float *squared_gain) {
  energies sums;
  band_energies(power, squared_gain, &sums);
  const float share = sums.passed / (sums.all + kLeastEnergy);
  const float open = within_unit((share - kLowShare) / (kHighShare - kLowShare));
  const double log_gain = static_cast<double>(kLogFloor) * static_cast<double>(1.0f - open);
  const float target = static_cast<float>(fixed_exp(log_gain));
  const bool opens = target > pause->gain;
  pause->gain = opens ? target : kRelease * pause->gain + (1.0f - kRelease) * target;
  return pause->gain;
}
