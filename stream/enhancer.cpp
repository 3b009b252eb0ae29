// The block, and the steps of a change.
#include "enhancer.h"

#include <cstring>

#include "sample_format.h"
#include "tm_se_bf.h"

namespace {

lane *other_lane(enhancer *e) {
  return &e->lanes[1 - e->running];
}

// Starts with the setting that is wanted.
void start(enhancer *e) {
  e->time = 0;
  e->running = 0;
  e->change = CHANGE_NONE;
  e->copies = {};
  fault_monitor_init(&e->monitor);
  std::memset(e->before, 0, sizeof e->before);
  history_init(&e->past, e->wanted.core.channels, lane_signal_path(&e->wanted));
  // Cannot fail but at open: channels and hop alone decide whether the core's pool is large enough.
  lane_create(&e->lanes[0], &e->wanted, e->delay);
  lane_init(&e->lanes[0]);
}

void begin_change(enhancer *e, lane_change change) {
  e->change = change;
  e->stage = STAGE_CREATE;
}

bool is_running(const enhancer *e, const lane_setting *setting) {
  return lane_settings_equal(setting, &e->lanes[e->running].setting);
}

void begin_wanted_change(enhancer *e) {
  e->change = CHANGE_NONE;
  if (!is_running(e, &e->wanted)) {
    begin_change(e, CHANGE_SETTING);
  }
}

// With the headroom of the other block, if floats are raised together.
int16_t sample_at(const enhanced_block *block, int32_t n, bool lowered) {
  const int16_t sample = block->samples[n];
  return lowered && !block->lowered ? sample_lower(sample) : sample;
}

// In integers: exact, and rounded to the nearest without a call of the C library.
void cross_fade(enhanced_block *out, const enhanced_block *fresh, bool words) {
  constexpr int32_t kWhole = 2 * kStreamBlock;
  const bool lowered = !words && (out->lowered || fresh->lowered);
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    const int32_t share = 2 * n + 1;  // of kWhole
    const int16_t from = sample_at(out, n, lowered);
    const int16_t to = sample_at(fresh, n, lowered);
    const int32_t mixed = (kWhole - share) * from + share * to;
    const int32_t half = mixed < 0 ? -kWhole / 2 : kWhole / 2;
    out->samples[n] = static_cast<int16_t>((mixed + half) / kWhole);
  }
  out->lowered = lowered;
}

// What the caller has been told stays; whether it has healed is counted from the new lane's faults.
void switch_lanes(enhancer *e) {
  e->running = 1 - e->running;
  if (e->lanes[e->running].watched) {
    e->monitor.clean_blocks = e->clean_blocks;
    e->monitor.clean_since = e->clean_since;
  }
}

// time: first sample of the block.
void run_other_lane(enhancer *e, int16_t *block, const block_facts *facts, int64_t time) {
  lane *l = other_lane(e);
  const lane_result result = lane_block(l, block, facts, e->before, e->fresh.samples);
  e->fresh.lowered = l->lowered;
  if (result.fault != MIC_FAULT_NONE) {
    e->clean_blocks = 0;
  } else if (result.processed && e->clean_blocks < kHealBlocks) {
    e->clean_since = e->clean_blocks == 0 ? time : e->clean_since;
    ++e->clean_blocks;
  }
}

// Ends the change with the current block, whose output of the running lane is in `out`. A wish that
// was taken back meanwhile is not heard.
void finish_change(enhancer *e, int16_t *block, const block_facts *facts, enhanced_block *out) {
  if (e->change == CHANGE_RENEWAL || !is_running(e, &e->wanted)) {
    run_other_lane(e, block, facts, e->time);
    cross_fade(out, &e->fresh, e->words);
    switch_lanes(e);
  }
  begin_wanted_change(e);
}

// A block's share of a change: makes half of the other lane, or lets it hear kCatchUpBlocks blocks.
// The current block, whose output of the running lane is in `out`, is the last one.
void advance_change(enhancer *e, int16_t *block, const block_facts *facts, enhanced_block *out) {
  if (e->stage == STAGE_CREATE) {
    lane_create(other_lane(e), &e->wanted, e->delay);
    e->stage = STAGE_INIT;
    return;
  }
  if (e->stage == STAGE_INIT) {
    lane_init(other_lane(e));
    lane_carry(other_lane(e), &e->lanes[e->running]);
    e->stage = STAGE_HEAR;
    e->backlog = other_lane(e)->copies ? 0 : e->past.count;
    e->clean_blocks = 0;
    return;
  }
  for (int32_t i = 0; i < kCatchUpBlocks; ++i) {
    if (e->backlog == 0) {
      finish_change(e, block, facts, out);
      return;
    }
    const int32_t slot = history_slot(&e->past, e->backlog);
    run_other_lane(e, e->past.blocks[slot], &e->past.facts[slot], e->past.times[slot]);
    --e->backlog;
  }
}

void remember(enhancer *e, const int16_t *block, const block_facts *facts) {
  if (e->change != CHANGE_NONE || e->lanes[e->running].copies) {
    std::memcpy(e->before, block, static_cast<size_t>(e->past.width) * sizeof(int16_t));
  }
  const bool kept = history_remember(&e->past, block, facts, e->time);
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
  const bool stays = e->change != CHANGE_RENEWAL && is_running(e, &e->wanted);
  const bool to_renew = l->shielded && l->single && stays;
  if (!fault_monitor_judge(&e->monitor, facts, fault, to_renew, e->time, &event)) {
    return;
  }
  if (event.kind == SE_BF_STREAM_HEALED) {
    const bool lost = l->single && stays && !l->shielded;
    event.beamforming = e->wanted.core.mode == SE_BF_MODE_MVDR && !lost ? 1 : 0;
    if (to_renew) {
      begin_change(e, CHANGE_RENEWAL);
    }
  }
  e->on_event(e->user, &event);
}

}  // namespace

bool enhancer_open(enhancer *e, const lane_setting *setting, enhancer_event_fn on_event,
                   void *user) {
  e->on_event = on_event;
  e->user = user;
  e->wanted = *setting;
  // A copy is as late as any other mode, so that a change between them is possible; in a plain
  // stream it is at once, as the core does it.
  const bool copies_at_once = setting->plain && setting->core.mode == SE_BF_MODE_MONO;
  e->delay = copies_at_once ? 0 : core_signal_delay(setting->core.hop);
  // Whatever will be written is written now: no memory is first touched while sound is running.
  std::memset(&e->past, 0, sizeof e->past);
  core_setting largest = setting->core;
  largest.mode = SE_BF_MODE_MVDR;
  for (lane &l : e->lanes) {
    std::memset(l.core.state.memory, 0, sizeof l.core.state.memory);
    core_instance_create(&l.core, &largest);
    if (!core_instance_init(&l.core, &largest)) {
      return false;
    }
  }
  start(e);
  return true;
}

void enhancer_block(enhancer *e, int16_t *block, enhanced_block *out) {
  lane *l = &e->lanes[e->running];
  const int32_t channels = l->setting.core.channels;
  const block_facts facts = block_measure(block, channels, &e->copies);
  if (channels == 2) {
    fault_monitor_follow(&e->monitor, &facts, e->time);
  }
  const lane_result result = lane_block(l, block, &facts, e->before, out->samples);
  out->lowered = l->lowered;
  out->alone = l->shielded || l->setting.refined ? facts.copies.louder : kBothChannels;
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
  if (setting->core.mode != SE_BF_MODE_MONO && e->delay < core_signal_delay(setting->core.hop)) {
    return false;
  }
  e->wanted = *setting;
  for (int32_t i = 0; i < 2 && setting->refined; ++i) {
    lane_set_limit(&e->lanes[i], setting->max_attenuation_db);
  }
  if (e->change == CHANGE_SETTING || is_running(e, setting)) {
    return true;
  }
  if (e->time == 0) {
    start(e);  // nothing to fade from
  } else {
    begin_change(e, CHANGE_SETTING);  // a renewal in progress is of no use any more
  }
  return true;
}

void enhancer_reset(enhancer *e) {
  start(e);
}
