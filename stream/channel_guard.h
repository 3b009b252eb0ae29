// Keeps two microphones fit to be combined: finds channels that must be left out, and matches
// levels.
//
// - A dead microphone, digital silence or 34 dB below the other, is left out at once.
// - Channels that carry the same sound but for a factor, as when one input is wired to both or with
//   reversed polarity, are no two microphones: combined they add nothing, or cancel. The louder one
//   is used alone.
// - Levels that differ by more than 1 dB are matched, with a time constant of 2 s of sound.
#ifndef TM_SE_BF_STREAM_CHANNEL_GUARD_H
#define TM_SE_BF_STREAM_CHANNEL_GUARD_H

#include <cstdint>

// Sums over samples: squares of both channels, and their product, each less its mean.
struct channel_energies {
  float first;
  float second;
  float both;
};

// A second of sound in sections, the current one included.
constexpr int32_t kGuardSections = 5;

struct channel_guard {
  float level[2];       // smoothed sums of absolute values
  float log_imbalance;  // logarithm of the second level over the first
  channel_energies sections[kGuardSections];
  int32_t section;         // the current one
  int32_t section_blocks;  // blocks in it
  bool proportional;       // the channels carry the same sound
};

// Neither channel is left out.
constexpr int32_t kBothChannels = -1;

// Makes a block of 320 samples of both channels fit, in place; `guard` is zero-filled at first.
// Returns the channel that stands for both, which have its samples then, or kBothChannels.
int32_t channel_guard_block(channel_guard *guard, float *first, float *second);

#endif  // TM_SE_BF_STREAM_CHANNEL_GUARD_H
