// One instance of the core with a state of its own: it shares nothing with any other.
#ifndef TM_SE_BF_STREAM_CORE_INSTANCE_H
#define TM_SE_BF_STREAM_CORE_INSTANCE_H

#include <cstdint>

#include "stream_format.h"
#include "support/core_state.h"

// What the core runs.
struct core_setting {
  int32_t channels;    // 1 or 2
  int32_t mode;        // SE_BF_MODE_*
  int32_t hop;         // 160, 192 or 320 samples
  float mic_distance;  // metres; 0: direction unknown
  float doa;           // degrees
};

struct core_instance {
  core_state state;  // zero-filled before the first use
  se_bf_inst *inst;  // lies in the pool of `state`, or null
};

// FFT length that belongs to a hop.
int32_t core_fft_len(int32_t hop);

// Samples by which the core delays the signal where it does not merely copy: overlap of the
// analysis frames plus the initial fill of its block buffer.
int32_t core_signal_delay(int32_t hop);

// Make the instance in two steps of about equal work, anew if there is one, with silent microphone
// levels. The second is false when the pool does not hold it; that depends on channels and hop
// alone.
void core_instance_create(core_instance *core, const core_setting *setting);
bool core_instance_init(core_instance *core, const core_setting *setting);

// Changes the mode of a running instance.
void core_instance_change_mode(core_instance *core, int32_t mode);

// Processes kStreamBlock samples per channel into kStreamBlock samples. With the levels of a dead
// microphone its channel of `block` is overwritten with the other.
void core_instance_block(core_instance *core, int16_t *block, int16_t *out);

#endif  // TM_SE_BF_STREAM_CORE_INSTANCE_H
