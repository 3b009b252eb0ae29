// Start of a lane, and a block of it.
#include "lane.h"

#include <cmath>
#include <cstring>

#include "phase_ramp.h"
#include "tm_se_bf.h"

namespace {

// Levels that no block brings near a fault: its sums are below 2^24.
constexpr mic_levels kSoundLevels = {2e9f, 1e9f};

constexpr float kMicrosecondsPerSample = 1e6f / static_cast<float>(kCoreRateHz);

// After a fault the core analyses one channel for good, and beamforming would go on to combine it
// with the last spectrum of the other, a buzz at the frame rate. Noise suppression is right.
void leave_beamforming(lane *l) {
  if (l->single || l->setting.core.mode != SE_BF_MODE_MVDR) {
    return;
  }
  l->single = true;
  if (l->shielded) {
    core_instance_change_mode(&l->core, SE_BF_MODE_OMLSA);
  }
}

// Levels that meet say nothing about the microphones unless they carry the same sound.
bool is_coincidence(mic_fault fault, const block_facts *facts) {
  return fault == MIC_FAULT_EQUAL || (fault == MIC_FAULT_IDENTICAL && !block_has_sound(facts));
}

// Processes the block in `scratch` so that the core finds no fault: the channel of a dead
// microphone is replaced as the core does it, and the levels go on as ever.
void run_unjudged(lane *l, mic_fault fault, const block_facts *facts, int16_t *out) {
  const bool dead = fault == MIC_FAULT_FIRST || fault == MIC_FAULT_SECOND;
  const int32_t good = fault == MIC_FAULT_FIRST ? 1 : 0;
  for (int32_t n = 0; n < kStreamBlock && dead; ++n) {
    l->scratch[2 * n + 1 - good] = l->scratch[2 * n + good];
  }
  core_state *state = &l->core.state;
  const mic_levels after = fault_levels(state, facts);
  state->pwr1 = kSoundLevels.first;
  state->pwr2 = kSoundLevels.second;
  core_instance_block(&l->core, l->scratch, out);
  state->pwr1 = after.first;
  state->pwr2 = after.second;
}

// Whether the mode at work does not change with the fault.
bool costs_nothing(const lane *l, mic_fault fault) {
  return l->setting.core.mode == SE_BF_MODE_OMLSA &&
         (fault == MIC_FAULT_EQUAL || fault == MIC_FAULT_SILENT);
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

// Without a spacing, or with a delay that frames do not hold, the talker is searched.
refined_setting refined_setting_of(const lane_setting *setting) {
  const core_setting *core = &setting->core;
  const float delay = refined_delay_of(core->mic_distance, core->doa);
  const bool fits = delay >= -2.0f * kLargestRampDelay && delay <= 2.0f * kLargestRampDelay;
  const bool known = core->mic_distance > 0.0f && !setting->find_direction && fits;
  return {core->channels, known, known ? delay : 0.0f, setting->max_attenuation_db};
}

// The path guards itself against dead microphones; the levels only serve reports. It bears a
// microphone that starts late, too: it need not be held back, as long as there is sound.
lane_result refined_block(lane *l, const int16_t *block, const block_facts *facts, int16_t *out) {
  core_state *state = &l->core.state;
  const bool has_sound = block_has_sound(facts);
  const bool held = l->shielded && shield_holds_back(&l->gate, state, facts);
  if (held && !has_sound) {
    std::memset(out, 0, kStreamBlock * sizeof(int16_t));
    return {false, MIC_FAULT_NONE};
  }
  refined_path_block(l->refined, block, has_sound, out);
  if (held || !l->watched) {
    return {!held, MIC_FAULT_NONE};
  }
  const mic_fault fault = fault_predict(state, facts);
  const mic_levels after = fault_levels(state, facts);
  state->pwr1 = after.first;
  state->pwr2 = after.second;
  const bool harmless = is_coincidence(fault, facts) || costs_nothing(l, fault);
  return {true, harmless ? MIC_FAULT_NONE : fault};
}

}  // namespace

// A frame that touches the last sound reaches its whole length beyond it, and comes out delayed.
int32_t lane_signal_path(const lane_setting *setting) {
  return core_fft_len(setting->core.hop) + core_signal_delay(setting->core.hop);
}

bool lane_settings_equal(const lane_setting *a, const lane_setting *b) {
  return a->core.channels == b->core.channels && a->core.mode == b->core.mode &&
         a->core.hop == b->core.hop && a->core.mic_distance == b->core.mic_distance &&
         a->core.doa == b->core.doa && (a->plain == b->plain || a->core.mode == SE_BF_MODE_MONO) &&
         a->refined == b->refined && a->find_direction == b->find_direction &&
         a->max_attenuation_db == b->max_attenuation_db;
}

void lane_create(lane *l, const lane_setting *setting, int32_t delay) {
  l->setting = *setting;
  l->delay = delay;
  l->copies = setting->core.mode == SE_BF_MODE_MONO;
  l->watched = setting->core.channels == 2 && !l->copies;
  l->shielded = l->watched && !setting->plain;
  l->single = false;
  shield_init(&l->gate, lane_signal_path(setting));
  l->refined = nullptr;
  if (setting->refined) {
    const refined_setting refined = refined_setting_of(setting);
    l->core.inst = nullptr;
    l->refined = refined_path_create(&l->core.state, &refined);
  } else if (!l->copies) {
    core_instance_create(&l->core, &setting->core);
  }
}

bool lane_init(lane *l) {
  if (l->setting.refined) {
    return refined_path_init(l->refined, &l->core.state);
  }
  return l->copies || core_instance_init(&l->core, &l->setting.core);
}

lane_result lane_block(lane *l, const int16_t *block, const block_facts *facts,
                       const int16_t *before, int16_t *out) {
  const int32_t channels = l->setting.core.channels;
  if (l->copies) {
    copy_late(block, channels, l->delay, before, out);
    return {true, MIC_FAULT_NONE};
  }
  if (l->refined != nullptr) {
    return refined_block(l, block, facts, out);
  }
  if (l->shielded && shield_holds_back(&l->gate, &l->core.state, facts)) {
    std::memset(out, 0, kStreamBlock * sizeof(int16_t));
    return {false, MIC_FAULT_NONE};
  }
  std::memcpy(l->scratch, block, static_cast<size_t>(channels * kStreamBlock) * sizeof(int16_t));
  const mic_fault fault = l->watched ? fault_predict(&l->core.state, facts) : MIC_FAULT_NONE;
  // The core's answer to a fault is noise suppression, which would spoil a mean.
  const bool coincidence = is_coincidence(fault, facts);
  if (l->shielded && (coincidence || l->setting.core.mode == SE_BF_MODE_MEAN)) {
    run_unjudged(l, fault, facts, out);
    return {true, coincidence ? MIC_FAULT_NONE : fault};
  }
  core_instance_block(&l->core, l->scratch, out);
  if (fault != MIC_FAULT_NONE) {
    leave_beamforming(l);
  }
  return {true, costs_nothing(l, fault) ? MIC_FAULT_NONE : fault};
}

bool lane_direction(const lane *l, se_bf_stream_direction_info *info) {
  const refined_path *path = l->refined;
  if (path == nullptr || path->setting.channels != 2) {
    return false;
  }
  const bool known = path->setting.direction_known;
  const float spacing = l->setting.core.mic_distance;
  const float delay = known ? path->setting.delay : path->direction.delay;
  *info = {delay * kMicrosecondsPerSample, known ? 1.0f : path->direction.confidence,
           spacing > 0.0f ? refined_doa_of(spacing, delay) : NAN, path->alone};
  return true;
}
