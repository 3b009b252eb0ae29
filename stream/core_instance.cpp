// The core's functions on a state of the stream's.
#include "core_instance.h"

#include "interface/multi_channels_enhance.h"
#include "interface/se_bf_instance.h"
#include "support/tamrin_memory.h"

namespace {

constexpr int32_t kFftLenShort = 256;  // hops up to 255
constexpr int32_t kFftLenLong = 512;   // hops from 256 on

}  // namespace

static_assert(kStreamBlock == kBlockLen, "a call of the core is one block");

int32_t core_fft_len(int32_t hop) {
  return hop < kFftLenShort ? kFftLenShort : kFftLenLong;
}

int32_t core_signal_delay(int32_t hop) {
  return (core_fft_len(hop) - hop) + (kStreamBlock - hop);
}

void core_instance_create(core_instance *core, const core_setting *setting) {
  const se_bf_create_param sizes = {static_cast<int16_t>(setting->channels), kStreamBlock,
                                    setting->hop};
  core_state *state = &core->state;
  tamrin_free_in(state, core->inst);
  state->pwr1 = 0.0f;
  state->pwr2 = 0.0f;
  state->quiet = 1;
  core->inst = se_bf_instance_create(state, &sizes);
}

bool core_instance_init(core_instance *core, const core_setting *setting) {
  const se_bf_init_param scene = {setting->mode, setting->mic_distance, setting->doa};
  se_bf_instance_init(&core->state, core->inst, &scene);
  return core->inst != nullptr && core->inst->stream_state == SE_BF_STREAM_READY;
}

void core_instance_change_mode(core_instance *core, int32_t mode) {
  se_bf_instance_change_mode(&core->state, core->inst, mode);
}

void core_instance_block(core_instance *core, int16_t *block, int16_t *out) {
  se_bf_instance_do(&core->state, core->inst, out, block);
}
