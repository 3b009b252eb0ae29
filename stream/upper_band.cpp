// The band above 8 kHz: how much of it belongs to the output.
#include "upper_band.h"

#include <string.h>

#include <cmath>

#include "rate_filter.h"

namespace {

constexpr int kQuarter = (kUpperBandTaps + 1) / 4;  // of the half-band filter
constexpr float kLevelKept = 0.96722f;  // exp(-10 ms / 300 ms): which microphone is heard
constexpr float kSilence = 1e-10f;      // energy a step at full scale 1: less than a bit of 16
constexpr float kMaxEnergy = 1e12f;     // more than sound can have

// Puts a step after the history in `samples` and gives what lies above 4 kHz to `high`. Returns
// its energy.
float high_pass(const float *taps, const float *step, float *samples, float *high) {
  const int history = kUpperBandTaps - 1;
  memcpy(samples + history, step, kUpperBandStep * sizeof(float));
  rate_filter_run(samples, taps, kUpperBandTaps, high, kUpperBandStep);
  float energy = 0.0f;
  for (int n = 0; n < kUpperBandStep; ++n) {
    energy += high[n] * high[n];
  }
  memmove(samples, samples + kUpperBandStep, history * sizeof(float));
  return energy;
}

float sound_energy(float energy) {
  return energy >= 0.0f && energy < kMaxEnergy ? energy : 0.0f;
}

}  // namespace

void upper_band_open(upper_band *band, int32_t channels, int32_t enabled) {
  memset(band, 0, sizeof(*band));
  band->channels = channels;
  band->enabled = enabled;
  // High-pass filter: a pulse less the half-band low-pass filter, whose even taps these are.
  float even[2 * kQuarter];
  rate_filter_half_band(kQuarter, even);
  band->taps[kUpperBandTaps / 2] = 0.5f;
  for (int k = 0; k < 2 * kQuarter; ++k) {
    band->taps[2 * k] = -even[k];
  }
}

void upper_band_reset(upper_band *band) {
  memset(band->input, 0, sizeof(band->input));
  memset(band->output, 0, sizeof(band->output));
  memset(band->input_energy, 0, sizeof(band->input_energy));
  memset(band->output_energy, 0, sizeof(band->output_energy));
  memset(band->level, 0, sizeof(band->level));
  band->place = 0;
}

void upper_band_step(upper_band *band, const float *const *input, const float *output,
                     float *factors) {
  float high[kUpperBandChannels][kUpperBandStep];
  float sum_of_levels = 0.0f;
  for (int m = 0; m < band->channels; ++m) {
    const float energy = sound_energy(high_pass(band->taps, input[m], band->input[m], high[m]));
    band->level[m] = energy + kLevelKept * (band->level[m] - energy);
    sum_of_levels += band->level[m];
  }

  // Each microphone counts as it is loud, so that a dead one does not; equally loud ones give the
  // mean.
  float weight[kUpperBandChannels];
  for (int m = 0; m < band->channels; ++m) {
    weight[m] = sum_of_levels > kSilence ? band->level[m] / sum_of_levels
                                         : 1.0f / static_cast<float>(band->channels);
  }
  float input_energy = 0.0f;
  for (int n = 0; n < kUpperBandStep; ++n) {
    float mix = 0.0f;
    for (int m = 0; m < band->channels; ++m) {
      mix += weight[m] * high[m][n];
    }
    input_energy += mix * mix;
  }
  band->input_energy[band->place] = sound_energy(input_energy);
  band->output_energy[band->place] =
      sound_energy(high_pass(band->taps, output, band->output, high[0]));
  band->place = (band->place + 1) % kUpperBandSteps;

  float heard = 0.0f;
  float left = 0.0f;
  for (int k = 0; k < kUpperBandSteps; ++k) {
    heard += band->input_energy[k];
    left += band->output_energy[k];
  }
  // Where 4 to 8 kHz are silent nothing is known, and the band above stays as it is.
  float gain = 1.0f;
  if (band->enabled == 0) {
    gain = 0.0f;
  } else if (heard > kSilence && left < heard) {
    gain = std::sqrt(left / heard);
  }
  for (int m = 0; m < band->channels; ++m) {
    factors[m] = gain * weight[m];
  }
}
