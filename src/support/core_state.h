// What instances share: the memory pool that holds them, and what outlives them.
//
// The library has one such record for the process. A program that links the modules may make more,
// zero-filled: instances of different records know nothing of each other and may run in different
// threads.
#ifndef TM_SE_BF_SUPPORT_CORE_STATE_H
#define TM_SE_BF_SUPPORT_CORE_STATE_H

#include <cstdint>

struct se_bf_inst;

// Size of the pool in bytes: 100 KiB, which holds any supported configuration.
constexpr int32_t kStaticMemorySize = 102400;

// Granule and alignment of blocks in bytes.
constexpr int32_t kPoolAlignment = 4;

struct core_state {
  alignas(kPoolAlignment) uint8_t memory[kStaticMemorySize];  // the pool
  int32_t position;            // bytes handed out so far, a multiple of 4
  uint32_t generation;         // fillings that were given up: tells a live block from a dead one
  se_bf_inst *newest;          // chain of the instances, newest first, or null
  uint32_t newest_generation;  // the filling that the chain is of
  float pwr1;                  // smoothed levels of channel 0 and 1, see channel_fault.h
  float pwr2;
  uint32_t told_mistakes;  // of calls, since an instance was made; see stream_check.h
  int32_t quiet;           // 1: prints nothing
};

// The record of the process.
extern core_state process_core;

#endif  // TM_SE_BF_SUPPORT_CORE_STATE_H
