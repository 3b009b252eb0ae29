// Aligns two channels on the talker and mixes them.
//
// Channel 0 is delayed by half of the talker's delay and channel 1 is advanced by as much: the
// talker is then at the same place in both. Each bin takes more of the channel with less power:
// the talker is about as loud in both, so the louder one has more noise.
#ifndef TM_SE_BF_STREAM_CHANNEL_MIX_H
#define TM_SE_BF_STREAM_CHANNEL_MIX_H

#include "bin_vector.h"

struct channel_mix {
  float power0[kRefinedBins];  // smoothed power of channel 0
  float power1[kRefinedBins];  // and of channel 1
  float delay;                 // delay that `ramp` belongs to, in samples
  bin_spectrum ramp;           // of half the delay
};

// `mix` is zero-filled.
void channel_mix_init(channel_mix *mix);

// One frame. delay: of the talker in channel 1 against channel 0, in samples; mixed: the mix;
// mixed_power: its power; mean_power: power of the plain mean of the aligned channels.
void channel_mix_frame(channel_mix *mix, const bin_spectrum *x0, const bin_spectrum *x1,
                       float delay, bin_spectrum *mixed, float *mixed_power, float *mean_power);

#endif  // TM_SE_BF_STREAM_CHANNEL_MIX_H
