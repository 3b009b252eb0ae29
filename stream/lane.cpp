// Start of a lane, and a block of it.
#include "lane.h"

#include <cstring>

#include "tm_se_bf.h"

namespace {

// After a fault the core analyses one channel for good, and beamforming would go on to combine it
// with the last spectrum of the other, a buzz at the frame rate. Noise suppression is right.
void leave_beamforming(lane *l) {
  if (!l->shielded || l->single || l->setting.core.mode != SE_BF_MODE_MVDR) {
    return;
  }
  l->single = true;
  core_instance_change_mode(&l->core, SE_BF_MODE_OMLSA);
}

// delay is at most a block.
void copy_late(const int16_t *block, int32_t channels, int32_t delay, const int16_t *before,
               int16_t *out) {
  const int32_t late = kStreamBlock - delay;
  for (int32_t n = 0; n < delay; ++n) {
    out[n] = before[(late + n) * channels];
  }
  for (int32_t n = 0; n < late; ++n) {
    out[delay + n] = block[n * channels];
  }
}

}  // namespace

// With one channel the core suppresses noise in every mode; only a plain stream wants to hear that.
bool lane_setting_copies(const lane_setting *setting) {
  return setting->core.mode == SE_BF_MODE_MONO && (setting->core.channels == 2 || !setting->plain);
}

int32_t lane_setting_delay(const lane_setting *setting) {
  const core_setting *core = &setting->core;
  return lane_setting_copies(setting) ? 0
                                      : core_signal_delay(core->channels, core->mode, core->hop);
}

// A frame that touches the last sound reaches its whole length beyond it, and comes out delayed.
int32_t lane_signal_path(const lane_setting *setting) {
  return core_fft_len(setting->core.hop) + lane_setting_delay(setting);
}

bool lane_settings_equal(const lane_setting *a, const lane_setting *b) {
  return a->core.channels == b->core.channels && a->core.mode == b->core.mode &&
         a->core.hop == b->core.hop && a->core.mic_distance == b->core.mic_distance &&
         a->core.doa == b->core.doa && a->plain == b->plain;
}

void lane_create(lane *l, const lane_setting *setting, int32_t delay) {
  l->setting = *setting;
  l->delay = delay;
  l->copies = lane_setting_copies(setting);
  l->watched = setting->core.channels == 2 && !l->copies;
  l->shielded = l->watched && !setting->plain;
  l->single = false;
  shield_init(&l->gate, lane_signal_path(setting));
  if (!l->copies) {
    core_instance_create(&l->core, &setting->core);
  }
}

bool lane_init(lane *l) {
  return l->copies || core_instance_init(&l->core, &l->setting.core);
}

lane_result lane_block(lane *l, const int16_t *block, const block_facts *facts,
                       const int16_t *before, int16_t *out) {
  const int32_t channels = l->setting.core.channels;
  if (l->copies) {
    copy_late(block, channels, l->delay, before, out);
    return {true, MIC_FAULT_NONE};
  }
  if (l->shielded && shield_holds_back(&l->gate, &l->core.state, facts)) {
    std::memset(out, 0, kStreamBlock * sizeof(int16_t));
    return {false, MIC_FAULT_NONE};
  }
  std::memcpy(l->scratch, block, static_cast<size_t>(channels * kStreamBlock) * sizeof(int16_t));
  core_instance_block(&l->core, l->scratch, out);
  const mic_fault fault = l->watched ? fault_verdict(&l->core.state) : MIC_FAULT_NONE;
  if (fault != MIC_FAULT_NONE) {
    leave_beamforming(l);
  }
  return {true, fault};
}
