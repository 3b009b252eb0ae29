// Tells which microphone failed, when it did, and when it works again.
//
// The core compares smoothed levels of the channels, one step a block, and repairs its input
// without a word. The monitor repeats the comparison before each block, and dates what it finds by
// the blocks before. It never changes what is processed.
#ifndef TM_SE_BF_STREAM_FAULT_MONITOR_H
#define TM_SE_BF_STREAM_FAULT_MONITOR_H

#include <cstdint>

#include "block_facts.h"
#include "support/core_state.h"
#include "tm_se_bf_stream.h"

// 2 s without a fault count as healed: a loose contact shows as dead within 44 to 88 blocks.
constexpr int32_t kHealBlocks = 100;

enum mic_fault : int32_t {
  MIC_FAULT_NONE,
  MIC_FAULT_FIRST,      // microphone 0 is replaced by microphone 1
  MIC_FAULT_SECOND,     // microphone 1 is replaced by microphone 0
  MIC_FAULT_IDENTICAL,  // equal levels, and the same samples
  MIC_FAULT_EQUAL,      // equal levels of different samples, a coincidence
  MIC_FAULT_SILENT,     // neither microphone has a level
  MIC_FAULT_COPIES,     // the same sound but for a factor; the core does not know it
};

// Smoothed levels of the channels, as the core compares them.
struct mic_levels {
  float first;
  float second;
};

struct fault_monitor {
  mic_fault reported;       // fault reported last and not healed, or none
  int32_t clean_blocks;     // blocks without a fault since the last one with a fault
  int64_t clean_since;      // first sample of them
  int64_t weak_since[2];    // first sample of the stretch in which a microphone is weak, or -1
  int64_t identical_since;  // first sample of the stretch of identical blocks, or -1
  int64_t alike_since;      // and of blocks that show the same sound but for a factor
};

void fault_monitor_init(fault_monitor *monitor);

// The levels that the core has once it has processed the block, to the bit.
mic_levels fault_levels(const core_state *core, const block_facts *facts);

// The verdict that the core comes to with a block and the levels after it.
mic_fault fault_verdict(const mic_levels *levels, const block_facts *facts);

// Dates the onset of a fault: follows every block of input, processed or not, before it is judged.
// time: first sample of the block at 16 kHz.
void fault_monitor_follow(fault_monitor *monitor, const block_facts *facts, int64_t time);

// Follows the verdicts on the blocks processed. single: because of a fault one microphone is used
// as if it were alone, and the lane could be renewed. Returns true and fills `event` when there is
// something to report; its times are at 16 kHz.
bool fault_monitor_judge(fault_monitor *monitor, const block_facts *facts, mic_fault fault,
                         bool single, int64_t time, se_bf_stream_event *event);

#endif  // TM_SE_BF_STREAM_FAULT_MONITOR_H
