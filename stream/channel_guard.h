// Keeps two microphones fit to be combined: finds channels that must be left out, and matches
// levels.
//
// - A dead microphone, digital silence or 34 dB below the other, is left out at once.
// - Of channels that carry the same sound but for a factor the louder one is used alone.
// - Levels that differ by more than 1 dB are matched, with a time constant of 2 s of sound.
#ifndef TM_SE_BF_STREAM_CHANNEL_GUARD_H
#define TM_SE_BF_STREAM_CHANNEL_GUARD_H

#include <cstdint>

#include "block_facts.h"

struct channel_guard {
  float level[2];       // smoothed sums of absolute values
  float log_imbalance;  // logarithm of the second level over the first
};

// Makes a block of 320 samples of both channels fit, in place; `guard` is zero-filled at first.
// Returns the channel that stands for both, which have its samples then, or kBothChannels.
int32_t channel_guard_block(channel_guard *guard, const block_facts *facts, float *first,
                            float *second);

#endif  // TM_SE_BF_STREAM_CHANNEL_GUARD_H
