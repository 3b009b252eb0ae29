// Keeps from the core what would spoil its estimates: a start that one microphone enters later than
// the other, and digital silence.
//
// Zeros, or a substitute dither, would pull the noise floor down and make all noise after a pause
// count as speech. So the blocks that flush the signal path are processed, and then the core's time
// stands still until sound returns. Whole blocks are left out of input and output alike: the
// alignment holds.
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
