// Comparison of two smoothed levels, and the dates of what it finds.
#include "fault_monitor.h"

#include "core_instance.h"

namespace {

// The core's smoothing of the levels from block to block, in single precision as there.
constexpr float kLevelDecay = 0.9f;
constexpr float kLevelIntake = 1.0f - kLevelDecay;

// Ratio of levels, 40 dB, beyond which the weaker microphone counts as dead.
constexpr float kDeadRatio = 100.0f;

// Level of a channel without sound for a long time; compared in double precision, as in the core.
constexpr double kSilentLevel = 1e-10;

constexpr int64_t kNever = -1;

bool silent(float level) {
  return static_cast<double>(level) < kSilentLevel;
}

mic_fault compare(float first, float second) {
  if (silent(first) && silent(second)) {
    return MIC_FAULT_SILENT;
  }
  if (first < second) {
    const bool dead = silent(first) || kDeadRatio * first < second;
    return dead ? MIC_FAULT_FIRST : MIC_FAULT_NONE;
  }
  if (silent(second) || first > kDeadRatio * second) {
    return MIC_FAULT_SECOND;
  }
  return first == second ? MIC_FAULT_EQUAL : MIC_FAULT_NONE;
}

void follow_stretch(int64_t *since, bool lasts, int64_t time) {
  if (!lasts) {
    *since = kNever;
  } else if (*since == kNever) {
    *since = time;
  }
}

void describe_fault(const fault_monitor *monitor, const block_facts *facts, mic_fault fault,
                    se_bf_stream_event *event) {
  int64_t since = monitor->identical_since;
  if (fault == MIC_FAULT_FIRST || fault == MIC_FAULT_SECOND) {
    event->kind = SE_BF_STREAM_DEAD;
    event->mic = fault == MIC_FAULT_SECOND ? 1 : 0;
    since = monitor->weak_since[event->mic];
  } else if (fault == MIC_FAULT_COPIES) {
    event->kind = SE_BF_STREAM_COPIES;
    event->mic = facts->copies.louder;
    since = monitor->alike_since;
  } else if (fault == MIC_FAULT_SILENT) {
    event->kind = SE_BF_STREAM_SILENT;
  } else {
    event->kind = fault == MIC_FAULT_IDENTICAL ? SE_BF_STREAM_IDENTICAL : SE_BF_STREAM_EQUAL_LEVELS;
  }
  if (since != kNever) {
    event->since = since;
  }
}

}  // namespace

void fault_monitor_init(fault_monitor *monitor) {
  *monitor = {MIC_FAULT_NONE, 0, 0, {kNever, kNever}, kNever, kNever};
}

mic_levels fault_levels(const core_state *core, const block_facts *facts) {
  return {kLevelDecay * core->pwr1 + kLevelIntake * facts->sum[0],
          kLevelDecay * core->pwr2 + kLevelIntake * facts->sum[1]};
}

mic_fault fault_verdict(const mic_levels *levels, const block_facts *facts) {
  const mic_fault fault = compare(levels->first, levels->second);
  return fault == MIC_FAULT_EQUAL && facts->identical ? MIC_FAULT_IDENTICAL : fault;
}

// The smoothed levels notice a failure about 0.9 s late; the plain sums of the blocks date it.
void fault_monitor_follow(fault_monitor *monitor, const block_facts *facts, int64_t time) {
  for (int32_t m = 0; m < 2 && block_has_sound(facts); ++m) {
    const bool weak = kDeadRatio * facts->sum[m] < facts->sum[1 - m];
    follow_stretch(&monitor->weak_since[m], weak, time);
  }
  follow_stretch(&monitor->identical_since, facts->identical, time);
  follow_stretch(&monitor->alike_since, facts->copies.alike, time);
}

bool fault_monitor_judge(fault_monitor *monitor, const block_facts *facts, mic_fault fault,
                         bool single, int64_t time, se_bf_stream_event *event) {
  *event = {SE_BF_STREAM_HEALED, 0, time, time, 0, 0};
  if (fault != MIC_FAULT_NONE) {
    const bool news = monitor->reported != fault;
    monitor->reported = fault;
    monitor->clean_blocks = 0;
    describe_fault(monitor, facts, fault, event);
    return news;
  }
  if (monitor->clean_blocks == 0) {
    monitor->clean_since = time;
  }
  if (monitor->clean_blocks < kHealBlocks) {
    ++monitor->clean_blocks;
  }
  const bool both = facts->sum[0] > 0.0f && facts->sum[1] > 0.0f;
  const bool ill = monitor->reported != MIC_FAULT_NONE || single;
  if (!ill || monitor->clean_blocks < kHealBlocks || !both) {
    return false;
  }
  monitor->reported = MIC_FAULT_NONE;
  event->since = monitor->clean_since;
  return true;
}
