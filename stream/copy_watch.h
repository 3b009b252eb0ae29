// Finds channels that carry the same sound but for a factor, as when one input is wired to both or
// with reversed polarity. They are no two microphones: combined they add nothing, or cancel.
//
// The measure is the energy of one channel that the other does not explain, over the last second.
// It is taken of the differences of successive samples: neighbouring microphones are alike at low
// frequencies, where most of the energy is, and an offset has no difference.
#ifndef TM_SE_BF_STREAM_COPY_WATCH_H
#define TM_SE_BF_STREAM_COPY_WATCH_H

#include <cstdint>

// Neither channel stands for both.
constexpr int32_t kBothChannels = -1;

// Sums of squares of both channels, and of their product.
struct copy_energies {
  float first;
  float second;
  float both;
};

// Sections before the current one: together they hold 0.8 to 1 s.
constexpr int32_t kCopySections = 4;

struct copy_watch {
  copy_energies sections[kCopySections];  // the oldest first
  copy_energies older;                    // their sum
  copy_energies current;                  // of the section under way
  int32_t section_blocks;                 // blocks in it
  int32_t alike_blocks;  // blocks with sound since the channels are proportional, up to a limit
  bool proportional;     // the channels carry the same sound
  bool proven;           // the last verdict
};

struct copy_verdict {
  int32_t louder;  // channel that stands for both, at once; or kBothChannels
  bool proven;     // for 0.2 s of sound, and a factor other than 1
  bool alike;      // the block alone shows it
};

// The verdict with a block of 320 interleaved samples of two channels; `watch` is zero-filled at
// first. identical: the samples of both channels are the same throughout the block.
copy_verdict copy_watch_block(copy_watch *watch, const int16_t *block, bool identical);

#endif  // TM_SE_BF_STREAM_COPY_WATCH_H
