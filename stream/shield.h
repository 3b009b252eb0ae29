// Keeps from the core what would spoil its estimates: a start that one microphone enters later than
// the other, and digital silence.
//
// Zeros, or a substitute dither, would pull the noise floor down and make all noise after a pause
// count as speech. So the blocks that flush the signal path are processed, and then the core's time
// stands still until sound returns. Whole blocks are left out of input and output alike: the
// alignment holds.
//
// Dither alone, +-1 step of 16 bits, is not silence here. Before a noisy scene it costs 4 to 6 dB
// of SDR for 2 s, as it leaves the noise floor far too low. But it is also all that a clean
// recording has between words, and without it the core takes speech for noise: holding such blocks
// back cost 7 dB (noise suppression) to 15 dB (beamformer) in the first second, and bridging pauses
// of them 1.6 dB throughout.
#ifndef TM_SE_BF_STREAM_SHIELD_H
#define TM_SE_BF_STREAM_SHIELD_H

#include <cstdint>

#include "fault_monitor.h"

// 0.2 s of sound: more skew than two inputs of one device have.
constexpr int32_t kStartWaitBlocks = 10;

struct shield {
  bool started;           // both microphones have carried sound
  int32_t start_wait;     // blocks with sound held back so far
  int32_t silent_blocks;  // blocks of digital silence processed in a row
  int32_t flush_blocks;   // blocks of digital silence that empty the signal path
};

// signal_path: samples until the last trace of a sound has come out.
void shield_init(shield *s, int32_t signal_path);

// True when the core must not process the block. `core` holds the levels so far.
bool shield_holds_back(shield *s, const core_state *core, const block_facts *facts);

#endif  // TM_SE_BF_STREAM_SHIELD_H
