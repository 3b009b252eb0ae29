// The decision block by block.
#include "shield.h"

#include "core_instance.h"

void shield_init(shield *s, int32_t signal_path) {
  *s = {false, 0, 0, (signal_path + kStreamBlock - 1) / kStreamBlock};
}

bool shield_holds_back(shield *s, const core_state *core, const block_facts *facts) {
  if (!block_has_sound(facts)) {
    const bool flushed = !s->started || s->silent_blocks >= s->flush_blocks;
    s->silent_blocks += flushed ? 0 : 1;
    return flushed;
  }
  s->silent_blocks = 0;
  if (s->started) {
    return false;
  }
  // A first block that one microphone enters later than the other would count as a fault.
  const bool both = facts->sum[0] > 0.0f && facts->sum[1] > 0.0f;
  const mic_levels levels = fault_levels(core, facts);
  const mic_fault fault = fault_verdict(&levels, facts);
  const bool comparable = fault != MIC_FAULT_FIRST && fault != MIC_FAULT_SECOND;
  s->started = (both && comparable) || s->start_wait >= kStartWaitBlocks;
  ++s->start_wait;
  return !s->started;
}
