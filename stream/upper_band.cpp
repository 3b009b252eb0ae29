// The band above 8 kHz: how much of it belongs to the output.
#include "upper_band.h"

#include <string.h>

#include <algorithm>
#include <cmath>

#include "rate_filter.h"
#include "sample_format.h"

namespace {

constexpr double kBandFrom = 4000.0 / kCoreRateHz;  // of the rate; the gain of this band counts
constexpr double kBandTo = 7500.0 / kCoreRateHz;    // above, the filters of the rates set in
constexpr float kLevelKept = 0.96722f;  // exp(-10 ms / 300 ms): which microphone is heard
constexpr float kLeastGain = 0.1f;      // -20 dB; the core leaves some -10 dB of steady noise
constexpr float kMaxEnergy = 1e12f;     // of a step, more than sound can have

// Energy of 30 ms with one step of 16 bits a sample. Both energies get it: where the steps decide
// what the core gives, the gain goes to 1.
constexpr float kBlur = kUpperBandStep * kUpperBandSteps * kSampleStep * kSampleStep;

// Above this the core's gains cannot round everything to 0: silence is then meant.
constexpr float kNotRoundedAway = 64.0f * kBlur;

// Hann's window over the difference of two sines: 4 to 7.5 kHz, -44 dB from 0.4 kHz beyond.
void make_band_pass(float *taps) {
  const int half = kUpperBandTaps / 2;
  for (int k = 0; k < kUpperBandTaps; ++k) {
    const double n = k - half;
    const double window = 0.5 + 0.5 * std::cos(kPi * n / (half + 1));
    const double ideal =
        k == half
            ? 2.0 * (kBandTo - kBandFrom)
            : (std::sin(2.0 * kPi * kBandTo * n) - std::sin(2.0 * kPi * kBandFrom * n)) / (kPi * n);
    taps[k] = static_cast<float>(window * ideal);
  }
}

// A step after the history in `samples` is complete: gives its 4 to 7.5 kHz to `passed`, returns
// their energy, and makes room for the next step.
float band_pass(const float *taps, float *samples, float *passed) {
  rate_filter_run(samples, taps, kUpperBandTaps, passed, kUpperBandStep);
  float energy = 0.0f;
  for (int n = 0; n < kUpperBandStep; ++n) {
    energy += passed[n] * passed[n];
  }
  memmove(samples, samples + kUpperBandStep, kUpperBandHistory * sizeof(float));
  return energy;
}

float sound_energy(float energy) {
  return energy >= 0.0f && energy < kMaxEnergy ? energy : 0.0f;
}

// Gain of the core at 4 to 7.5 kHz over the last 30 ms.
float measured_gain(const upper_band *band) {
  float heard = 0.0f;
  float left = 0.0f;
  for (int k = 0; k < kUpperBandSteps; ++k) {
    heard += band->input_energy[k];
    left += band->output_energy[k];
  }
  if (left == 0.0f && heard > kNotRoundedAway) {
    return 0.0f;
  }
  const float gain = std::sqrt((left + kBlur) / (heard + kBlur));
  return std::min(std::max(gain, kLeastGain), 1.0f);
}

// Each microphone counts as it is loud, so that a dead one does not; equally loud ones give the
// mean.
float weight_of(const upper_band *band, int32_t channel, float sum_of_levels) {
  if (band->alone != kEveryChannel) {
    return channel == band->alone ? 1.0f : 0.0f;
  }
  return sum_of_levels > 0.0f ? band->level[channel] / sum_of_levels
                              : 1.0f / static_cast<float>(band->channels);
}

}  // namespace

void upper_band_open(upper_band *band, int32_t channels, int32_t enabled) {
  memset(band, 0, sizeof(*band));
  band->channels = channels;
  band->enabled = enabled;
  band->alone = kEveryChannel;
  make_band_pass(band->taps);
}

void upper_band_reset(upper_band *band) {
  memset(band->input, 0, sizeof(band->input));
  memset(band->output, 0, sizeof(band->output));
  memset(band->input_energy, 0, sizeof(band->input_energy));
  memset(band->output_energy, 0, sizeof(band->output_energy));
  memset(band->level, 0, sizeof(band->level));
  band->place = 0;
  band->alone = kEveryChannel;
}

void upper_band_use(upper_band *band, int32_t alone) {
  band->alone = alone;
}

void upper_band_step(upper_band *band, const float *const *input, const float *output,
                     float *factors) {
  float passed[kStreamMaxChannels][kUpperBandStep];
  float sum_of_levels = 0.0f;
  for (int m = 0; m < band->channels; ++m) {
    // What the core hears, but not limited: where it saturates, the band above 8 kHz falls, too.
    for (int n = 0; n < kUpperBandStep; ++n) {
      band->input[m][kUpperBandHistory + n] =
          sample_round(input[m][n] * kSampleFullScale) * kSampleStep;
    }
    const float energy = sound_energy(band_pass(band->taps, band->input[m], passed[m]));
    band->level[m] = energy + kLevelKept * (band->level[m] - energy);
    sum_of_levels += band->level[m];
  }

  float weight[kStreamMaxChannels];
  for (int m = 0; m < band->channels; ++m) {
    weight[m] = weight_of(band, m, sum_of_levels);
  }
  float input_energy = 0.0f;
  for (int n = 0; n < kUpperBandStep; ++n) {
    float mix = 0.0f;
    for (int m = 0; m < band->channels; ++m) {
      mix += weight[m] * passed[m][n];
    }
    input_energy += mix * mix;
  }
  band->input_energy[band->place] = sound_energy(input_energy);
  memcpy(band->output + kUpperBandHistory, output, kUpperBandStep * sizeof(float));
  band->output_energy[band->place] = sound_energy(band_pass(band->taps, band->output, passed[0]));
  band->place = (band->place + 1) % kUpperBandSteps;

  const float gain = band->enabled != 0 ? measured_gain(band) : 0.0f;
  for (int m = 0; m < band->channels; ++m) {
    factors[m] = gain * weight[m];
  }
}
