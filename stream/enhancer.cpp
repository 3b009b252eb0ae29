// The block, and the steps of a change.
#include "enhancer.h"

#include <cmath>
#include <cstring>

#include "tm_se_bf.h"

namespace {

lane *other_lane(enhancer *e) {
  return &e->lanes[1 - e->running];
}

void start(enhancer *e, const lane_setting *setting) {
  const lane_setting initial = *setting;
  e->time = 0;
  e->running = 0;
  e->change = CHANGE_NONE;
  fault_monitor_init(&e->monitor);
  std::memset(e->before, 0, sizeof e->before);
  history_init(&e->past, initial.core.channels, lane_signal_path(&initial));
  // Cannot fail but at open: channels and hop alone decide whether the core's pool is large enough.
  lane_create(&e->lanes[0], &initial, e->delay);
  lane_init(&e->lanes[0]);
}

void begin_change(enhancer *e, lane_change change, const lane_setting *setting) {
  e->change = change;
  e->stage = STAGE_CREATE;
  e->wanted = *setting;
}

void cross_fade(int16_t *out, const int16_t *fresh) {
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    const float share = (static_cast<float>(n) + 0.5f) / static_cast<float>(kStreamBlock);
    const float mixed =
        (1.0f - share) * static_cast<float>(out[n]) + share * static_cast<float>(fresh[n]);
    out[n] = static_cast<int16_t>(std::lrintf(mixed));
  }
}

// What the caller has been told stays; whether it has healed is counted from the new lane's faults.
void switch_lanes(enhancer *e) {
  e->running = 1 - e->running;
  e->change = CHANGE_NONE;
  if (e->lanes[e->running].watched) {
    e->monitor.clean_blocks = e->clean_blocks;
    e->monitor.clean_since = e->time - int64_t{e->clean_blocks - 1} * kStreamBlock;
  }
}

lane_result run_other_lane(enhancer *e, const int16_t *block, const block_facts *facts) {
  const lane_result result = lane_block(other_lane(e), block, facts, e->before, e->fresh);
  if (result.fault != MIC_FAULT_NONE) {
    e->clean_blocks = 0;
  } else if (e->clean_blocks < kHealBlocks) {
    e->clean_blocks += result.processed ? 1 : 0;
  }
  return result;
}

// A block's share of a change: makes half of the other lane, or lets it hear kCatchUpBlocks blocks.
// The current block, whose output of the running lane is in `out`, is the last one.
void advance_change(enhancer *e, const int16_t *block, const block_facts *facts, int16_t *out) {
  if (e->stage == STAGE_CREATE) {
    lane_create(other_lane(e), &e->wanted, e->delay);
    e->stage = STAGE_INIT;
    return;
  }
  if (e->stage == STAGE_INIT) {
    lane_init(other_lane(e));
    e->stage = STAGE_HEAR;
    e->backlog = other_lane(e)->copies ? 0 : e->past.count;
    e->clean_blocks = 0;
    return;
  }
  for (int32_t i = 0; i < kCatchUpBlocks; ++i) {
    if (e->backlog == 0) {
      run_other_lane(e, block, facts);
      cross_fade(out, e->fresh);
      switch_lanes(e);
      return;
    }
    const int16_t *past = history_block(&e->past, e->backlog);
    const block_facts past_facts = block_measure(past, e->wanted.core.channels);
    run_other_lane(e, past, &past_facts);
    --e->backlog;
  }
}

void remember(enhancer *e, const int16_t *block, const block_facts *facts) {
  std::memcpy(e->before, block, static_cast<size_t>(e->past.width) * sizeof(int16_t));
  const bool kept = history_remember(&e->past, block, block_has_sound(facts));
  const bool hearing = e->change != CHANGE_NONE && e->stage == STAGE_HEAR && !other_lane(e)->copies;
  // With the first block of a change the ring may lose one that the other lane has not heard.
  if (kept && hearing && e->backlog < e->past.count) {
    ++e->backlog;
  }
}

// Reports what the running lane found in the current block.
void watch(enhancer *e, const block_facts *facts, mic_fault fault) {
  const lane *l = &e->lanes[e->running];
  if (fault != MIC_FAULT_NONE && e->change == CHANGE_RENEWAL) {
    e->change = CHANGE_NONE;
  }
  se_bf_stream_event event;
  const bool single = l->single && e->change == CHANGE_NONE;
  if (!fault_monitor_judge(&e->monitor, facts, fault, single, e->time, &event)) {
    return;
  }
  if (event.kind == SE_BF_STREAM_HEALED) {
    event.beamforming = l->shielded && l->setting.core.mode == SE_BF_MODE_MVDR ? 1 : 0;
    if (single) {
      begin_change(e, CHANGE_RENEWAL, &l->setting);
    }
  }
  e->on_event(e->user, &event);
}

}  // namespace

bool enhancer_open(enhancer *e, const lane_setting *setting, enhancer_event_fn on_event,
                   void *user) {
  e->on_event = on_event;
  e->user = user;
  e->delay = lane_setting_delay(setting);
  // Whatever will be written is written now: no memory is first touched while sound is running.
  std::memset(e->past.blocks, 0, sizeof e->past.blocks);
  core_setting largest = setting->core;
  largest.mode = SE_BF_MODE_MVDR;
  for (lane &l : e->lanes) {
    std::memset(l.core.state.memory, 0, sizeof l.core.state.memory);
    core_instance_create(&l.core, &largest);
    if (!core_instance_init(&l.core, &largest)) {
      return false;
    }
  }
  start(e, setting);
  return true;
}

void enhancer_block(enhancer *e, const int16_t *block, int16_t *out) {
  lane *l = &e->lanes[e->running];
  const int32_t channels = l->setting.core.channels;
  const block_facts facts = block_measure(block, channels);
  if (channels == 2) {
    fault_monitor_follow(&e->monitor, &facts, e->time);
  }
  const lane_result result = lane_block(l, block, &facts, e->before, out);
  if (result.processed && l->watched) {
    watch(e, &facts, result.fault);
  }
  if (e->change != CHANGE_NONE) {
    advance_change(e, block, &facts, out);
  }
  remember(e, block, &facts);
  e->time += kStreamBlock;
}

bool enhancer_change(enhancer *e, const lane_setting *setting) {
  if (lane_setting_delay(setting) > e->delay) {
    return false;
  }
  const bool under_way = e->change == CHANGE_SETTING;
  if (lane_settings_equal(setting, &e->lanes[e->running].setting)) {
    e->change = under_way ? CHANGE_NONE : e->change;
  } else if (!under_way || !lane_settings_equal(setting, &e->wanted)) {
    begin_change(e, CHANGE_SETTING, setting);
  }
  // Before the first block there is nothing to fade from.
  if (e->time == 0) {
    enhancer_reset(e);
  }
  return true;
}

void enhancer_reset(enhancer *e) {
  const bool changing = e->change != CHANGE_NONE;
  const lane_setting setting = changing ? e->wanted : e->lanes[e->running].setting;
  start(e, &setting);
}
