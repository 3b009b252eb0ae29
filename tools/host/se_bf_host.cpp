// Shared host layer: block cutting, alignment, sample conversion and life of a host.
#include "se_bf_host.h"

#include <math.h>
#include <string.h>

#include <atomic>
#include <new>

#include "host_engine.h"

static constexpr float FULL_SCALE = 32768.0f;  // 16-bit value of a float sample of 1
static constexpr float SAMPLE_MAX = 32767.0f;

struct host {
  host_engine engine;
  int32_t delay;    // samples that the library delays the signal
  int32_t drop;     // of these, still to be dropped from an aligned output
  int32_t fill;     // samples per channel in `block`
  int64_t missing;  // samples taken and not yet given back
  int16_t block[HOST_MAX_CHANNELS * HOST_BLOCK];  // input that does not fill a block yet
  int16_t done[HOST_BLOCK];                       // output of the last block
};

// All hosts of a process would share one instance pool.
static std::atomic<bool> g_occupied(false);

int32_t host_signal_delay(int32_t channels, int32_t mode, int32_t hop) {
  if (channels == 2 && mode == SE_BF_MODE_MONO) {
    return 0;
  }
  return (host_fft_len(hop) - hop) + (HOST_BLOCK - hop);
}

int16_t host_sample_from_float(float x) {
  const float scaled = x * FULL_SCALE;
  if (isnan(scaled)) {
    return 0;
  }
  return static_cast<int16_t>(lrintf(fminf(fmaxf(scaled, -FULL_SCALE), SAMPLE_MAX)));
}

static bool config_is_valid(const host_config *c) {
  const bool channels = c->channels == 1 || c->channels == 2;
  const bool mode = c->mode >= SE_BF_MODE_MEAN && c->mode <= SE_BF_MODE_MONO;
  const bool hop = c->hop == 160 || c->hop == 192 || c->hop == 320;
  return channels && mode && hop && isfinite(c->mic_distance) && isfinite(c->doa);
}

host *host_create(const host_config *config) {
  if (config == nullptr || !config_is_valid(config) || g_occupied.exchange(true)) {
    return nullptr;
  }
  host *h = new (std::nothrow) host();
  if (h == nullptr || !host_engine_open(&h->engine, config)) {
    delete h;
    g_occupied = false;
    return nullptr;
  }
  h->delay = host_signal_delay(config->channels, config->mode, config->hop);
  h->drop = h->delay;
  return h;
}

// Moves as much input as the current block has room for; returns the samples per channel taken.
static size_t take(host *h, const int16_t *in, size_t frames) {
  const size_t channels = static_cast<size_t>(h->engine.config.channels);
  const size_t fill = static_cast<size_t>(h->fill);
  const size_t room = static_cast<size_t>(HOST_BLOCK) - fill;
  const size_t taken = frames < room ? frames : room;
  memcpy(h->block + fill * channels, in, taken * channels * sizeof(int16_t));
  h->fill += static_cast<int32_t>(taken);
  return taken;
}

static void run_block(host *h) {
  host_engine_block(&h->engine, h->block, h->done);
  h->fill = 0;
}

// Copies the finished block to `out`, without the delay at the start of the stream.
static size_t give_aligned(host *h, int16_t *out) {
  const int32_t skipped = h->drop < HOST_BLOCK ? h->drop : HOST_BLOCK;
  const size_t given = static_cast<size_t>(HOST_BLOCK - skipped);
  memcpy(out, h->done + skipped, given * sizeof(int16_t));
  h->drop -= skipped;
  h->missing -= static_cast<int64_t>(given);
  return given;
}

size_t host_push_s16(host *h, const int16_t *in, size_t frames, int16_t *out) {
  const size_t channels = static_cast<size_t>(h->engine.config.channels);
  size_t taken = 0;
  size_t written = 0;
  h->missing += static_cast<int64_t>(frames);
  while (taken < frames) {
    taken += take(h, in + taken * channels, frames - taken);
    if (h->fill == HOST_BLOCK) {
      run_block(h);
      written += give_aligned(h, out + written);
    }
  }
  return written;
}

size_t host_finish_s16(host *h, int16_t *out) {
  const size_t channels = static_cast<size_t>(h->engine.config.channels);
  const int64_t missing = h->missing;
  size_t written = 0;
  while (h->missing > 0) {
    int16_t piece[HOST_BLOCK];
    const size_t fill = static_cast<size_t>(h->fill) * channels;
    memset(h->block + fill, 0, sizeof h->block - fill * sizeof(int16_t));
    run_block(h);
    size_t given = give_aligned(h, piece);
    if (static_cast<int64_t>(written + given) > missing) {
      given = static_cast<size_t>(missing) - written;
    }
    memcpy(out + written, piece, given * sizeof(int16_t));
    written += given;
  }
  return written;
}

void host_stream_s16(host *h, const int16_t *in, size_t frames, int16_t *out) {
  const size_t channels = static_cast<size_t>(h->engine.config.channels);
  size_t taken = 0;
  while (taken < frames) {
    const int32_t at = h->fill;
    const size_t piece = take(h, in + taken * channels, frames - taken);
    memcpy(out + taken, h->done + at, piece * sizeof(int16_t));
    taken += piece;
    if (h->fill == HOST_BLOCK) {
      run_block(h);
    }
  }
}

int32_t host_stream_latency(const host *h) {
  return HOST_BLOCK + h->delay;
}

void host_destroy(host *h) {
  if (h == nullptr) {
    return;
  }
  host_engine_close(&h->engine);
  delete h;
  g_occupied = false;
}
