// Mirror of the library's dead-microphone detector: finds out which microphone failed, and when.
#include "host_monitor.h"

#include <stdlib.h>

static constexpr float LEVEL_DECAY = 0.9f;  // per library call
static constexpr float LEVEL_GAIN =
    1.0f - LEVEL_DECAY;                       // in single precision, as the library has it
static constexpr float FAULT_RATIO = 100.0f;  // 40 dB between the microphones
static constexpr double DEAD_LEVEL = 1e-10;   // no sound for a long time
static constexpr int64_t NEVER = -1;

struct host_levels {
  float mic[2];  // smoothed sums of absolute values over a call
};

// The library's own levels outlive its instances, so their mirror outlives the hosts.
static host_levels g_levels = {{0.0f, 0.0f}};

void host_monitor_init(host_monitor *mon) {
  mon->reported = HOST_FAULT_NONE;
  mon->clean_blocks = 0;
  mon->clean_since = 0;
  mon->weak_since[0] = NEVER;
  mon->weak_since[1] = NEVER;
  mon->identical_since = NEVER;
}

host_block_facts host_measure_block(const int16_t *block) {
  host_block_facts facts = {{0.0f, 0.0f}, true};
  for (int32_t n = 0; n < HOST_BLOCK; ++n) {
    const int32_t a = block[2 * n];
    const int32_t b = block[2 * n + 1];
    facts.sum[0] += static_cast<float>(abs(a));
    facts.sum[1] += static_cast<float>(abs(b));
    facts.identical = facts.identical && a == b;
  }
  return facts;
}

static host_levels next_levels(const host_block_facts *facts) {
  host_levels next;
  for (int m = 0; m < 2; ++m) {
    const float decayed = LEVEL_DECAY * g_levels.mic[m];
    const float fresh = LEVEL_GAIN * facts->sum[m];
    next.mic[m] = decayed + fresh;
  }
  return next;
}

static bool is_dead(float level) {
  return static_cast<double>(level) < DEAD_LEVEL;  // the limit is a double in the library
}

static host_fault verdict(const host_levels *levels) {
  const float p0 = levels->mic[0];
  const float p1 = levels->mic[1];
  if (is_dead(p0) && is_dead(p1)) {
    return HOST_FAULT_SILENT;
  }
  if (p0 < p1) {
    return is_dead(p0) || FAULT_RATIO * p0 < p1 ? HOST_FAULT_MIC_0 : HOST_FAULT_NONE;
  }
  if (is_dead(p1) || p0 > FAULT_RATIO * p1) {
    return HOST_FAULT_MIC_1;
  }
  return p0 == p1 ? HOST_FAULT_EQUAL : HOST_FAULT_NONE;
}

host_fault host_monitor_predict(const host_block_facts *facts) {
  const host_levels levels = next_levels(facts);
  return verdict(&levels);
}

host_fault host_monitor_advance(const host_block_facts *facts) {
  g_levels = next_levels(facts);
  return verdict(&g_levels);
}

// The smoothed levels show a failure about 0.9 s late; the unsmoothed sums of the blocks date it.
void host_monitor_follow(host_monitor *mon, const host_block_facts *facts, int64_t time) {
  const bool sound = facts->sum[0] > 0.0f || facts->sum[1] > 0.0f;
  for (int m = 0; m < 2 && sound; ++m) {
    const bool weak = FAULT_RATIO * facts->sum[m] < facts->sum[1 - m];
    if (!weak) {
      mon->weak_since[m] = NEVER;
    } else if (mon->weak_since[m] == NEVER) {
      mon->weak_since[m] = time;
    }
  }
  if (!facts->identical) {
    mon->identical_since = NEVER;
  } else if (mon->identical_since == NEVER) {
    mon->identical_since = time;
  }
}

static void describe_fault(const host_monitor *mon, host_fault fault, const host_block_facts *facts,
                           host_event *event) {
  int64_t since = NEVER;
  if (fault == HOST_FAULT_MIC_0 || fault == HOST_FAULT_MIC_1) {
    event->kind = HOST_EVENT_DEAD;
    event->mic = fault == HOST_FAULT_MIC_1 ? 1 : 0;
    since = mon->weak_since[event->mic];
  } else if (fault == HOST_FAULT_SILENT) {
    event->kind = HOST_EVENT_SILENT;
    since = mon->identical_since;
  } else {
    event->kind = facts->identical ? HOST_EVENT_IDENTICAL : HOST_EVENT_EQUAL_LEVELS;
    since = mon->identical_since;
  }
  if (since != NEVER) {
    event->since = since;
  }
}

bool host_monitor_judge(host_monitor *mon, const host_block_facts *facts, host_fault fault,
                        int64_t time, host_event *event) {
  *event = {HOST_EVENT_HEALED, 0, time, time, false};
  if (fault != HOST_FAULT_NONE) {
    const bool news = mon->reported != fault;
    mon->reported = fault;
    mon->clean_blocks = 0;
    describe_fault(mon, fault, facts, event);
    return news;
  }
  if (mon->clean_blocks == 0) {
    mon->clean_since = time;
  }
  if (mon->clean_blocks < HOST_HEAL_BLOCKS) {
    ++mon->clean_blocks;
  }
  const bool both = facts->sum[0] > 0.0f && facts->sum[1] > 0.0f;
  if (mon->reported == HOST_FAULT_NONE || mon->clean_blocks < HOST_HEAL_BLOCKS || !both) {
    return false;
  }
  mon->reported = HOST_FAULT_NONE;
  event->since = mon->clean_since;
  return true;
}
