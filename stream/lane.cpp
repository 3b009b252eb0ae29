// Start of a lane, and a block of it.
#include "lane.h"

#include <cmath>
#include <cstring>

#include "phase_ramp.h"
#include "sample_format.h"
#include "support/se_vector.h"
#include "tm_se_bf.h"

namespace {

// Levels before a block that lead the core to a verdict, whatever the block holds: its sums are
// below 2^24.
constexpr mic_levels kSoundLevels = {2e9f, 1e9f};
constexpr mic_levels kFirstDeadLevels = {1.0f, 2e9f};
constexpr mic_levels kSecondDeadLevels = {2e9f, 1.0f};
constexpr mic_levels kEqualLevels = {1e9f, 1e9f};  // of equal samples

// Sum of absolute values of a block without sound.
constexpr float kSilentSum = 1.0f;

constexpr float kMicrosecondsPerSample = 1e6f / static_cast<float>(kCoreRateHz);

// After a fault the core analyses one channel for good, and beamforming would go on to combine it
// with the last spectrum of the other, a buzz at the frame rate. Noise suppression is right.
void leave_beamforming(lane *l) {
  if (!l->single && l->setting.core.mode == SE_BF_MODE_MVDR) {
    l->single = true;
    if (l->shielded) {
      core_instance_change_mode(&l->core, SE_BF_MODE_OMLSA);
    }
  }
}

// Stays with the microphone that works until the lane is renewed: what the noise estimate has
// learnt of it does not hold for both. A mean has none.
void stay_alone(lane *l, int32_t alone) {
  if (alone != kBothChannels && l->setting.core.mode != SE_BF_MODE_MEAN) {
    l->single = true;
    l->alone = alone;
  }
}

// Levels that meet say nothing about the microphones unless they carry the same sound.
bool is_coincidence(mic_fault fault, const block_facts *facts) {
  return fault == MIC_FAULT_EQUAL || (fault == MIC_FAULT_IDENTICAL && !block_has_sound(facts));
}

// What a shield and the refined path make of the core's verdict.
mic_fault refine_verdict(mic_fault fault, const block_facts *facts) {
  const mic_fault known = is_coincidence(fault, facts) ? MIC_FAULT_NONE : fault;
  return known == MIC_FAULT_NONE && facts->copies.proven ? MIC_FAULT_COPIES : known;
}

bool beamforms(const lane *l) {
  return l->setting.core.mode == SE_BF_MODE_MVDR && !l->single;
}

// The channel that stands for both, or kBothChannels. A microphone is left out before it counts as
// dead: weights that rely on both would make its silence loud. One block may look like copies by
// accident: a beamformer would lose by that, a mean would not.
int32_t channel_alone(const lane *l, mic_fault fault, const block_facts *facts) {
  const bool silent[2] = {facts->sum[0] < kSilentSum, facts->sum[1] < kSilentSum};
  if (fault == MIC_FAULT_FIRST || fault == MIC_FAULT_SECOND) {
    return fault == MIC_FAULT_FIRST ? 1 : 0;
  }
  if (silent[0] != silent[1]) {
    return silent[0] ? 1 : 0;
  }
  if (l->alone != kBothChannels || fault == MIC_FAULT_IDENTICAL || facts->identical) {
    return l->alone;
  }
  return facts->copies.proven || !beamforms(l) ? facts->copies.louder : kBothChannels;
}

void copy_over_other(int16_t *block, int32_t good) {
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    block[2 * n + 1 - good] = block[2 * n + good];
  }
}

SE_BF_VECTOR_CLONES void lower(const int16_t *__restrict block, int16_t *__restrict lowered) {
  for (int32_t n = 0; n < 2 * kStreamBlock; ++n) {
    lowered[n] = sample_lower(block[n]);
  }
}

// The levels that make the core do what is right: leave a channel out, which also ends beamforming
// and the analysis of both, or nothing.
mic_levels levels_that_say(int32_t alone, mic_fault fault) {
  if (alone != kBothChannels) {
    return alone == 0 ? kSecondDeadLevels : kFirstDeadLevels;
  }
  return fault == MIC_FAULT_IDENTICAL ? kEqualLevels : kSoundLevels;
}

// A block behind the shield: the verdict is made here, and the core is led to it. Its own answer
// would be noise suppression, which spoils a mean, and ends beamforming.
lane_result shielded_block(lane *l, int16_t *block, const block_facts *facts, int16_t *out) {
  core_state *state = &l->core.state;
  const mic_levels after = fault_levels(state, facts);
  const mic_fault fault = refine_verdict(fault_verdict(&after, facts), facts);
  const int32_t alone = channel_alone(l, fault, facts);
  const bool goes_on =
      l->setting.core.mode == SE_BF_MODE_MEAN || (beamforms(l) && fault == MIC_FAULT_NONE);
  int16_t *in = l->lowered || alone != kBothChannels ? l->scratch : block;
  if (l->lowered) {
    lower(block, in);
  } else if (in != block) {
    std::memcpy(in, block, sizeof l->scratch);
  }
  if (goes_on && alone != kBothChannels) {
    copy_over_other(in, alone);
  }
  const mic_levels led = goes_on ? kSoundLevels : levels_that_say(alone, fault);
  state->pwr1 = led.first;
  state->pwr2 = led.second;
  core_instance_block(&l->core, in, out);
  state->pwr1 = after.first;
  state->pwr2 = after.second;
  if (fault != MIC_FAULT_NONE) {
    leave_beamforming(l);
    stay_alone(l, alone);
  }
  return {true, fault};
}

// Whether the mode at work does not change with the fault.
bool costs_nothing(const lane *l, mic_fault fault) {
  return l->setting.core.mode == SE_BF_MODE_OMLSA &&
         (fault == MIC_FAULT_EQUAL || fault == MIC_FAULT_SILENT);
}

// A block as the core takes it.
lane_result plain_block(lane *l, const int16_t *block, const block_facts *facts, int16_t *out) {
  const int32_t channels = l->setting.core.channels;
  std::memcpy(l->scratch, block, static_cast<size_t>(channels * kStreamBlock) * sizeof(int16_t));
  mic_fault fault = MIC_FAULT_NONE;
  if (l->watched) {
    const mic_levels after = fault_levels(&l->core.state, facts);
    fault = fault_verdict(&after, facts);
  }
  core_instance_block(&l->core, l->scratch, out);
  if (fault != MIC_FAULT_NONE) {
    leave_beamforming(l);
  }
  return {true, costs_nothing(l, fault) ? MIC_FAULT_NONE : fault};
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

// Without a spacing, or with a delay that frames do not hold, the talker is searched for.
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
  refined_path_block(l->refined, block, facts, out);
  if (held || !l->watched) {
    return {!held, MIC_FAULT_NONE};
  }
  const mic_levels after = fault_levels(state, facts);
  const mic_fault fault = refine_verdict(fault_verdict(&after, facts), facts);
  state->pwr1 = after.first;
  state->pwr2 = after.second;
  return {true, costs_nothing(l, fault) ? MIC_FAULT_NONE : fault};
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
         a->refined == b->refined && a->find_direction == b->find_direction;
}

void lane_create(lane *l, const lane_setting *setting, int32_t delay) {
  l->setting = *setting;
  l->delay = delay;
  l->copies = setting->core.mode == SE_BF_MODE_MONO;
  l->watched = setting->core.channels == 2 && !l->copies;
  l->shielded = l->watched && !setting->plain;
  l->lowered = l->shielded && setting->core.mode == SE_BF_MODE_MVDR;
  l->single = false;
  l->alone = kBothChannels;
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

lane_result lane_block(lane *l, int16_t *block, const block_facts *facts, const int16_t *before,
                       int16_t *out) {
  if (l->copies) {
    copy_late(block, l->setting.core.channels, l->delay, before, out);
    return {true, MIC_FAULT_NONE};
  }
  if (l->refined != nullptr) {
    return refined_block(l, block, facts, out);
  }
  if (!l->shielded) {
    return plain_block(l, block, facts, out);
  }
  if (shield_holds_back(&l->gate, &l->core.state, facts)) {
    std::memset(out, 0, kStreamBlock * sizeof(int16_t));
    return {false, MIC_FAULT_NONE};
  }
  return shielded_block(l, block, facts, out);
}

void lane_set_limit(lane *l, float max_attenuation_db) {
  if (l->refined != nullptr) {
    l->setting.max_attenuation_db = max_attenuation_db;
    refined_path_set_limit(l->refined, max_attenuation_db);
  }
}

void lane_carry(lane *l, const lane *from) {
  if (l->refined != nullptr && from->refined != nullptr) {
    refined_path_carry(l->refined, from->refined);
  }
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
