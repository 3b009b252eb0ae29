// Detection of a dead microphone from smoothed levels, and its repair in the caller's block.
#ifndef TM_SE_BF_INTERFACE_CHANNEL_FAULT_H
#define TM_SE_BF_INTERFACE_CHANNEL_FAULT_H

#include <cstdint>

#include "support/core_state.h"

// Compares the levels of two microphones and returns 1 for a fault, else 0. A level is the sum of
// the absolute samples of a call, smoothed over calls with a factor of 0.9. A microphone without
// signal, or more than 40 dB below the other, is dead: the good channel is copied over it in `in`
// ([n][2] interleaved samples). Exactly equal levels, as of two channels with the same signal, are
// a fault without a copy.
//
// n <= 0 lets the levels decay. The levels belong to the core. They start at 0 and are never reset:
// a later instance starts from those of an earlier one. The second form is for the core of the
// process and ignores its first argument.
int channel_fault_check(core_state *core, int16_t *in, int32_t n);
inline int is_one_channel_brocken(int, int16_t *in, int32_t n) {
  return channel_fault_check(&process_core, in, n);
}

#endif  // TM_SE_BF_INTERFACE_CHANNEL_FAULT_H
