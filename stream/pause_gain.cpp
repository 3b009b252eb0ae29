// The share of the energy that passes, and what follows from it.
#include "pause_gain.h"

#include "bin_vector.h"
#include "fixed_maths.h"
#include "support/se_vector.h"

namespace {

// Bins 8 to 127, 250 to 4000 Hz, where speech has its energy.
constexpr int32_t kFirstBin = 8;
constexpr int32_t kEndBin = 128;

// Energy in units of the noise's is counted up to 5.2 kHz. From DC on: the pitch of a voice often
// stands out of the noise alone.
constexpr int32_t kEndOverNoise = 168;

// Smallest gain, -12 dB: noise is to remain audible. And its natural logarithm.
constexpr float kFloor = 0.25f;
constexpr float kLogFloor = -1.38629436f;

// Shares of the energy at which the gain is smallest and 1.
constexpr float kLowShare = 0.1f;
constexpr float kHighShare = 0.3f;

// Closing: 5 frames.
constexpr float kRelease = 0.8f;

// Keep the shares of silence defined, and low.
constexpr float kLeastEnergy = 1.0f / kRefinedPowerScale;
constexpr float kLeastOverNoise = 1e-9f;

// Sums over a band.
struct energies {
  float all;
  float passed;
  float squared_gain;
};

// passed = sum of G^2 energy, of which there is sum of energy.
SE_BF_VECTOR_CLONES void sum_energies(const float *energy, const float *squared_gain, int32_t first,
                                      int32_t end, energies *sums) {
  sum_row all = {};
  sum_row passed = {};
  sum_row gains = {};
  for (int32_t k = first; k < end; k += kSumLanes) {
    sum_row e;
    sum_row g;
    load_row(&e, energy + k);
    load_row(&g, squared_gain + k);
    all += e;
    passed += g * e;
    gains += g;
  }
  *sums = {add_row(&all), add_row(&passed), add_row(&gains)};
}

// G^2 becomes G^2 + alike (mean - G^2).
SE_BF_VECTOR_CLONES void draw_together(float *squared_gain, float mean, float alike) {
  for (int32_t k = 0; k < kRefinedBins; ++k) {
    squared_gain[k] += alike * (mean - squared_gain[k]);
  }
}

float within_unit(float x) {
  const float below = x < 1.0f ? x : 1.0f;
  return below > 0.0f ? below : 0.0f;
}

}  // namespace

void pause_gain_init(pause_gain *pause) {
  pause->gain = 1.0f;
}

// Each share misses speech that the other one sees: that of the energy where the noise is coloured,
// that of the energy in units of the noise's where a strong vowel leaves most bins to the noise.
float pause_gain_frame(pause_gain *pause, const float *power, const float *over_noise,
                       float *squared_gain) {
  energies sums;
  sum_energies(over_noise, squared_gain, 0, kEndOverNoise, &sums);
  const float clear_share = sums.passed / (sums.all + kLeastOverNoise);
  sum_energies(power, squared_gain, kFirstBin, kEndBin, &sums);
  const float energy_share = sums.passed / (sums.all + kLeastEnergy);
  const float share = clear_share > energy_share ? clear_share : energy_share;
  const float open = within_unit((share - kLowShare) / (kHighShare - kLowShare));
  const double log_gain = static_cast<double>(kLogFloor) * static_cast<double>(1.0f - open);
  const float target = static_cast<float>(fixed_exp(log_gain));
  const bool opens = target > pause->gain;
  pause->gain = opens ? target : kRelease * pause->gain + (1.0f - kRelease) * target;
  const float mean = sums.squared_gain / static_cast<float>(kEndBin - kFirstBin);
  draw_together(squared_gain, mean, (1.0f - pause->gain) / (1.0f - kFloor));
  return pause->gain;
}
