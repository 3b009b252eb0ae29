// Mirror of the library's dead-microphone detector: finds out which microphone failed, and when.
//
// The library compares smoothed absolute sums of the channels, one step a call, and keeps them for
// the life of the process. The mirror repeats the same single-precision arithmetic on the same
// blocks; it never changes what is handed over.
#ifndef SE_BF_HOST_MONITOR_H
#define SE_BF_HOST_MONITOR_H

#include "se_bf_host.h"

enum host_fault {
  HOST_FAULT_NONE,
  HOST_FAULT_MIC_0,   // microphone 0 is replaced by microphone 1
  HOST_FAULT_MIC_1,   // microphone 1 is replaced by microphone 0
  HOST_FAULT_EQUAL,   // equal levels
  HOST_FAULT_SILENT,  // neither microphone has a level
};

// What one two-channel block of HOST_BLOCK samples contains.
struct host_block_facts {
  float sum[2];    // sum of absolute values per channel
  bool identical;  // both channels carry the same samples
};

struct host_monitor {
  host_fault reported;      // fault reported last and not healed, or none
  int32_t clean_blocks;     // blocks without a fault since the last one with a fault
  int64_t clean_since;      // first sample of them
  int64_t weak_since[2];    // first sample of the stretch in which a microphone is weak, or -1
  int64_t identical_since;  // first sample of the stretch of identical blocks, or -1
};

void host_monitor_init(host_monitor *mon);

host_block_facts host_measure_block(const int16_t *block);

// The verdict that the library would come to if the block were handed to it now.
host_fault host_monitor_predict(const host_block_facts *facts);

// Follows one library call: moves the process-wide levels and returns the library's verdict.
host_fault host_monitor_advance(const host_block_facts *facts);

// Dates the onset of a fault: follows every block of input, handed over or not, before it is
// judged.
void host_monitor_follow(host_monitor *mon, const host_block_facts *facts, int64_t time);

// Follows the verdicts on the blocks handed over. Returns true and fills `event` when there is
// something to report.
bool host_monitor_judge(host_monitor *mon, const host_block_facts *facts, host_fault fault,
                        int64_t time, host_event *event);

#endif  // SE_BF_HOST_MONITOR_H
