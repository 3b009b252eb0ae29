// One library instance behind a block interface, with the shielding against silence and faults.
#include "host_engine.h"

#include <math.h>
#include <string.h>

static constexpr int32_t FFT_LEN_SHORT = 256;  // hops up to 255
static constexpr int32_t FFT_LEN_LONG = 512;   // hops from 256 on

int32_t host_fft_len(int32_t hop) {
  return hop < FFT_LEN_SHORT ? FFT_LEN_SHORT : FFT_LEN_LONG;
}

static void copy_block(int16_t *to, const int16_t *from, int32_t samples) {
  memcpy(to, from, static_cast<size_t>(samples) * sizeof(int16_t));
}

static bool make_instance(host_engine *e) {
  const se_bf_create_param sizes = {static_cast<int16_t>(e->config.channels), HOST_BLOCK,
                                    e->config.hop};
  const se_bf_init_param scene = {e->config.mode, e->config.mic_distance, e->config.doa};
  e->inst = se_bf_create(&sizes);
  if (e->inst == nullptr) {
    return false;
  }
  se_bf_init(e->inst, &scene);
  e->single = false;
  return true;
}

bool host_engine_open(host_engine *e, const host_config *config) {
  e->config = *config;
  e->watched = config->channels == 2 && config->mode != SE_BF_MODE_MONO;
  e->shielded = e->watched && !config->plain;
  e->started = !e->shielded;
  e->start_wait = 0;
  e->silent_blocks = 0;
  // The last frame with sound reaches up to N samples beyond it, and the output is delayed.
  const int32_t reach =
      host_fft_len(config->hop) + host_signal_delay(config->channels, config->mode, config->hop);
  e->flush_blocks = (reach + HOST_BLOCK - 1) / HOST_BLOCK;
  e->time = 0;
  host_monitor_init(&e->monitor);
  e->history_next = 0;
  e->history_count = 0;
  return make_instance(e);
}

// True when the library must not get this block: before the start, or during a silence.
static bool holds_back(host_engine *e, const host_block_facts *facts) {
  const bool sound_0 = facts->sum[0] > 0.0f;
  const bool sound_1 = facts->sum[1] > 0.0f;
  if (!sound_0 && !sound_1) {
    const bool flushed = !e->started || e->silent_blocks >= e->flush_blocks;
    e->silent_blocks += flushed ? 0 : 1;
    return flushed;
  }
  e->silent_blocks = 0;
  if (e->started) {
    return false;
  }
  // A first block in which one microphone starts later than the other would count as a fault.
  const bool both = sound_0 && sound_1;
  const bool good = facts->identical || host_monitor_predict(facts) == HOST_FAULT_NONE;
  e->started = (both && good) || e->start_wait >= HOST_START_WAIT_BLOCKS;
  ++e->start_wait;
  return !e->started;
}

static void remember(host_engine *e, const int16_t *block) {
  copy_block(e->history[e->history_next], block, 2 * HOST_BLOCK);
  e->history_next = (e->history_next + 1) % HOST_HISTORY_BLOCKS;
  if (e->history_count < HOST_HISTORY_BLOCKS) {
    ++e->history_count;
  }
}

static void call_library(host_engine *e, const int16_t *block, int16_t *out) {
  copy_block(e->scratch, block, e->config.channels * HOST_BLOCK);
  se_bf_do(e->inst, out, e->scratch);
}

// After a fault the instance analyses one channel for good, and beamforming would combine it with
// the last spectrum of the other, which is heard as a buzz at the frame rate. Suppression avoids
// it.
static void leave_beamforming(host_engine *e) {
  if (!e->shielded || e->single || e->config.mode != SE_BF_MODE_MVDR) {
    return;
  }
  e->single = true;
  se_bf_change_mode(e->inst, SE_BF_MODE_OMLSA);
}

static void cross_fade(int16_t *out, const int16_t *fresh) {
  for (int32_t n = 0; n < HOST_BLOCK; ++n) {
    const float share = (static_cast<float>(n) + 0.5f) / static_cast<float>(HOST_BLOCK);
    const float mixed =
        (1.0f - share) * static_cast<float>(out[n]) + share * static_cast<float>(fresh[n]);
    out[n] = static_cast<int16_t>(lrintf(mixed));
  }
}

// Makes a new instance, runs it over the remembered input, whose last block is the current one, and
// fades from the old instance's block in `out` to the new one's.
static void renew(host_engine *e, int16_t *out) {
  int16_t fresh[HOST_BLOCK] = {};
  se_bf_destroy(e->inst);
  if (!make_instance(e)) {
    return;
  }
  const int32_t first = e->history_next - e->history_count + HOST_HISTORY_BLOCKS;
  for (int32_t i = 0; i < e->history_count; ++i) {
    const int16_t *block = e->history[(first + i) % HOST_HISTORY_BLOCKS];
    const host_block_facts facts = host_measure_block(block);
    call_library(e, block, fresh);
    const host_fault fault = host_monitor_advance(&facts);
    if (fault != HOST_FAULT_NONE) {
      leave_beamforming(e);
      e->monitor.reported = fault;
      e->monitor.clean_blocks = 0;
    }
  }
  cross_fade(out, fresh);
}

static void watch(host_engine *e, const host_block_facts *facts, int16_t *out) {
  host_event event;
  const host_fault fault = host_monitor_advance(facts);
  const bool news = host_monitor_judge(&e->monitor, facts, fault, e->time, &event);
  if (fault != HOST_FAULT_NONE) {
    leave_beamforming(e);
  }
  if (news && event.kind == HOST_EVENT_HEALED && e->single) {
    renew(e, out);
    event.beamforming = e->inst != nullptr && !e->single;
  }
  if (news && e->config.on_event != nullptr) {
    e->config.on_event(e->config.user, &event);
  }
}

static void process(host_engine *e, const int16_t *block, int16_t *out) {
  if (!e->watched) {
    call_library(e, block, out);
    return;
  }
  const host_block_facts facts = host_measure_block(block);
  host_monitor_follow(&e->monitor, &facts, e->time);
  if (e->shielded && holds_back(e, &facts)) {
    memset(out, 0, HOST_BLOCK * sizeof(int16_t));
    return;
  }
  remember(e, block);
  call_library(e, block, out);
  watch(e, &facts, out);
}

void host_engine_block(host_engine *e, const int16_t *block, int16_t *out) {
  if (e->inst == nullptr) {
    memset(out, 0, HOST_BLOCK * sizeof(int16_t));
  } else {
    process(e, block, out);
  }
  e->time += HOST_BLOCK;
}

void host_engine_close(host_engine *e) {
  se_bf_destroy(e->inst);
  e->inst = nullptr;
}
