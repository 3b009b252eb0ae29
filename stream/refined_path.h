// Noise suppression of the best quality: one or two channels in, one out, a block at a time.
//
//   block -> channel_guard -> analysis of each channel -> talker_direction -> channel_mix
//         -> noise estimate and square-root Wiener gain of the core, on the mean of the aligned
//            channels -> second_gain -> pause_gain -> limit of the attenuation -> synthesis
//
// One channel enters at the noise estimate. Analysis and synthesis are those of the core at hop
// 320, and so is the delay of 192 samples. docs/algorithm.md has the formulas.
//
// Frames of digital silence leave every estimate as it is: they say nothing about the noise.
#ifndef TM_SE_BF_STREAM_REFINED_PATH_H
#define TM_SE_BF_STREAM_REFINED_PATH_H

#include <cstdint>

#include "bin_vector.h"
#include "block_facts.h"
#include "channel_guard.h"
#include "channel_mix.h"
#include "noise/mcra_p.h"
#include "noise/omlsa.h"
#include "pause_gain.h"
#include "second_gain.h"
#include "spectral/stft.h"
#include "support/core_state.h"
#include "talker_direction.h"

struct refined_setting {
  int32_t channels;          // 1 or 2
  bool direction_known;      // the delay is given, not searched for
  float delay;               // of the talker in channel 1 against channel 0, in samples
  float max_attenuation_db;  // limit of the attenuation; 0: none
};

#pragma pack(push, 4)
struct refined_path {
  refined_setting setting;
  float floor;            // smallest gain
  int32_t silent_blocks;  // blocks of digital silence in a row, at most kSilentFrame
  int32_t alone;          // channel that stands for both, or kBothChannels
  fft_setup *fft;
  stft_buf *stft;
  mcra_state *noise;
  omlsa_state *first_gain;
  channel_guard guard;
  talker_direction direction;
  channel_mix mix;
  second_gain second;
  pause_gain pause;
  float samples[2 * kRefinedHop];  // block of each channel; then the output
  float packed[2 * kRefinedFft];   // spectra as the transform has them
  bin_spectrum input[2];
  bin_spectrum mixed;
  float mixed_power[kRefinedBins];
  float mean_power[kRefinedBins];  // of the mean of the channels; with one channel of that
  float squared_gain[kRefinedBins];
  float over_noise[kRefinedBins];  // mixed_power in units of the noise's
};
#pragma pack(pop)

// Delay of the talker in samples from the spacing of the microphones in metres and the direction in
// degrees, 0 being on the side of microphone 0; and the direction that belongs to a delay.
float refined_delay_of(float mic_distance, float doa);
float refined_doa_of(float mic_distance, float delay);

// Make the path in two steps of about equal work. It takes all of the pool of `core`, whatever that
// held, and silent microphone levels. Null and false when the pool is exhausted, which depends on
// the channels alone.
refined_path *refined_path_create(core_state *core, const refined_setting *setting);
bool refined_path_init(refined_path *path, core_state *core);

// Changes max_attenuation_db from the next block on; frames overlap, so the step is not heard.
void refined_path_set_limit(refined_path *path, float max_attenuation_db);

// Lets a path that has just been made begin with the direction and the levels that another has
// found. Both have two channels, or one.
void refined_path_carry(refined_path *path, const refined_path *from);

// Processes a block of 320 interleaved samples per channel into 320 samples, 192 samples late.
void refined_path_block(refined_path *path, const int16_t *block, const block_facts *facts,
                        int16_t *out);

#endif  // TM_SE_BF_STREAM_REFINED_PATH_H
