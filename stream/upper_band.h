// The band above 8 kHz, which the enhancement at 16 kHz does not hear: how much of it belongs to
// the output. It gets the gain that the enhancement has at 4 to 7.5 kHz at that moment: 1 where the
// sound there is near the steps of 16 bits and tells nothing, -20 dB at least, and 0 where the
// enhancement gives silence for sound.
//
// Every 10 ms the module gives one factor a channel; in between they run linearly. The output is
//   core output + sum over channels of factor * (input - input as 16 kHz can hold it),
// in which the last two terms cancel below 8 kHz. Where the enhancement passes its input with gain
// 1, the output is the input: there is no crossover whose halves could disagree.
#ifndef TM_SE_BF_STREAM_UPPER_BAND_H
#define TM_SE_BF_STREAM_UPPER_BAND_H

#include <stdint.h>

#include "stream_format.h"

constexpr int32_t kUpperBandStep = 160;  // samples at 16 kHz: 10 ms
constexpr int32_t kUpperBandSteps = 3;   // the gain is measured over the last 30 ms
constexpr int32_t kUpperBandTaps = 63;   // of the band-pass filter, 4 to 7.5 kHz
constexpr int32_t kUpperBandHistory = kUpperBandTaps - 1;

// No channel is used alone.
constexpr int32_t kEveryChannel = -1;

struct upper_band {
  int32_t channels;
  int32_t enabled;             // 0: the factors go to 0 within a step
  float taps[kUpperBandTaps];  // constant once opened
  float input[kStreamMaxChannels][kUpperBandHistory + kUpperBandStep];  // history, step
  float output[kUpperBandHistory + kUpperBandStep];                     // history, step
  float input_energy[kUpperBandSteps];
  float output_energy[kUpperBandSteps];
  float level[kStreamMaxChannels];  // mean energy a step, 4 to 7.5 kHz
  int32_t place;                    // in the rings of energies
  int32_t alone;                    // channel that is used alone, or kEveryChannel
};

void upper_band_open(upper_band *band, int32_t channels, int32_t enabled);
void upper_band_reset(upper_band *band);

// Says which channel the enhancement uses alone, or kEveryChannel: copies with reversed polarity
// would cancel.
void upper_band_use(upper_band *band, int32_t alone);

// Takes one step at 16 kHz: the enhancement's input, late by as much as its output, and the output.
// `factors` (a value a channel) is what the factors reach at the end of the step. A step of values
// that are no numbers counts as silence.
void upper_band_step(upper_band *band, const float *const *input, const float *output,
                     float *factors);

#endif  // TM_SE_BF_STREAM_UPPER_BAND_H
