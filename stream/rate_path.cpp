// A stream at a rate other than 16 kHz around a block function at 16 kHz.
#include "rate_path.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "rate_converter.h"
#include "rate_filter.h"
#include "tm_se_bf_stream.h"
#include "upper_band.h"

static_assert(kStreamBlock % kUpperBandStep == 0, "a block is whole steps of the upper band");

// A cache line: the polyphase tables, which are read in whole vectors, lie right behind the record.
constexpr size_t kRatePathAlignment = 64;
static_assert(kRatePathAlignment % kRateFilterAlignment == 0, "the tables' vectors are aligned");

struct alignas(kRatePathAlignment) rate_path {
  rate_path_config config;
  rate_plan plan;
  rate_filters filters;
  rate_down down[kStreamMaxChannels];
  rate_up up;
  upper_band band;

  // Chunks of the caller's samples.
  float *input[kStreamMaxChannels];  // the chunk that comes in
  float *output;                     // what goes out meanwhile
  int32_t chunk;                     // length of both, samples
  int32_t done;                      // samples of it so far

  // One turn at 16 kHz.
  float *core_in[kStreamMaxChannels];  // history of delay_16k samples, block
  float *frames;                       // block, interleaved
  float *core_out;                     // block

  // Band above 8 kHz: the input, late by the latency, with factors that run linearly between the
  // ends of steps of 10 ms.
  float *late[kStreamMaxChannels];     // the last `latency` samples of input
  float *factors[kStreamMaxChannels];  // at the ends of the last `ends` steps
  int32_t ends;
  int32_t step;   // of the next output sample, counted from the end of `factors`
  int64_t place;  // within the step, in 1 / step_places
  int64_t step_places;

  float *state;       // everything that a reset clears
  size_t state_size;  // floats
};

namespace {

bool has_upper_band(const rate_path *path) {
  return path->config.rate > kCoreRateHz;
}

void lay_out(rate_path *path, rate_memory *memory) {
  const rate_plan *plan = &path->plan;
  rate_filters_take(&path->filters, plan, memory);
  const size_t constant = memory->used;
  path->state = rate_memory_take(memory, 0);
  const size_t block = kStreamBlock;
  const size_t room = static_cast<size_t>(std::max(plan->first_chunk, plan->later_chunk)) *
                      static_cast<size_t>(plan->factor);
  for (int m = 0; m < path->config.channels; ++m) {
    rate_down_take(&path->down[m], plan, memory);
    path->input[m] = rate_memory_take(memory, room);
    path->core_in[m] = rate_memory_take(memory, static_cast<size_t>(plan->delay_16k) + block);
    path->late[m] = rate_memory_take(memory, static_cast<size_t>(plan->latency) + room);
    path->factors[m] = rate_memory_take(memory, static_cast<size_t>(path->ends));
  }
  rate_up_take(&path->up, plan, memory);
  path->output = rate_memory_take(memory, room);
  path->frames = rate_memory_take(memory, block * static_cast<size_t>(path->config.channels));
  path->core_out = rate_memory_take(memory, block);
  path->state_size = memory->used - constant;
}

// Takes out of the core's output what the delayed input will add below 8 kHz.
void take_out_lower_band(rate_path *path) {
  for (int first = 0; first < kStreamBlock; first += kUpperBandStep) {
    const float *input[kStreamMaxChannels] = {};
    for (int m = 0; m < path->config.channels; ++m) {
      input[m] = path->core_in[m] + first;
    }
    float *output = path->core_out + first;
    float factors[kStreamMaxChannels];
    upper_band_step(&path->band, input, output, factors);
    for (int m = 0; m < path->config.channels; ++m) {
      float *ends = path->factors[m];
      memmove(ends, ends + 1, static_cast<size_t>(path->ends - 1) * sizeof(float));
      ends[path->ends - 1] = factors[m];
      const float from = ends[path->ends - 2];
      const float slope = (factors[m] - from) / static_cast<float>(kUpperBandStep);
      for (int n = 0; n < kUpperBandStep; ++n) {
        output[n] -= (from + slope * static_cast<float>(n)) * input[m][n];
      }
    }
  }
}

// Adds the delayed input to `count` samples of output.
void add_late_input(rate_path *path, int32_t count) {
  const float slope = static_cast<float>(kCoreRateHz) / static_cast<float>(path->step_places);
  int32_t first = 0;
  while (first < count) {
    // The samples that lie in the present step.
    const int64_t left = (path->step_places - path->place + kCoreRateHz - 1) / kCoreRateHz;
    const int32_t run = static_cast<int32_t>(std::min<int64_t>(left, count - first));
    const float behind = static_cast<float>(path->place) / static_cast<float>(path->step_places);
    for (int m = 0; m < path->config.channels; ++m) {
      const float *to = path->factors[m] + path->ends + path->step;
      const float *late = path->late[m] + first;
      float *output = path->output + first;
      const float rise = to[0] - to[-1];
      for (int32_t n = 0; n < run; ++n) {
        output[n] += (to[-1] + rise * (behind + slope * static_cast<float>(n))) * late[n];
      }
    }
    first += run;
    path->place += static_cast<int64_t>(run) * kCoreRateHz;
    if (path->place >= path->step_places) {
      path->place -= path->step_places;
      ++path->step;
    }
  }
}

// Keeps the latest `length` samples of `history` with `count` new ones after it.
void keep_latest(float *history, int32_t length, const float *in, int32_t count) {
  memcpy(history + length, in, static_cast<size_t>(count) * sizeof(float));
  memmove(history, history + count, static_cast<size_t>(length) * sizeof(float));
}

// The input's chunk is complete: one block through the core, and output for the next chunk.
void run_turn(rate_path *path) {
  const rate_plan *plan = &path->plan;
  const int32_t channels = path->config.channels;
  const int32_t delay = plan->delay_16k;
  for (int m = 0; m < channels; ++m) {
    float *core_in = path->core_in[m];
    memmove(core_in, core_in + kStreamBlock, static_cast<size_t>(delay) * sizeof(float));
    rate_down_run(&path->down[m], plan, &path->filters, path->input[m], core_in + delay);
    for (int n = 0; n < kStreamBlock; ++n) {
      path->frames[n * channels + m] = core_in[delay + n];
    }
    keep_latest(path->late[m], plan->latency, path->input[m], path->chunk);
  }
  path->config.block(path->config.user, path->frames, path->core_out);

  if (has_upper_band(path)) {
    take_out_lower_band(path);
    path->step -= kStreamBlock / kUpperBandStep;
  }
  const int32_t chunk = rate_down_chunk(&path->down[0], plan);
  rate_up_run(&path->up, plan, &path->filters, path->core_out, chunk, path->output);
  path->chunk = chunk * plan->factor;
  path->done = 0;
  if (has_upper_band(path)) {
    add_late_input(path, path->chunk);
  }
}

const char *refusal(const rate_path_config *config) {
  const int32_t rate = config->rate;
  if (rate < SE_BF_STREAM_MIN_RATE || rate > SE_BF_STREAM_MAX_RATE || rate == kCoreRateHz) {
    return "the rate is out of range, or 16000 Hz, at which there is nothing to convert";
  }
  if (config->channels < 1 || config->channels > kStreamMaxChannels) {
    return "there must be 1 or 2 channels";
  }
  if (config->delay_16k < 0 || config->delay_16k > kCoreRateHz || config->block == nullptr) {
    return "the block function is missing or too late";
  }
  return nullptr;
}

// Puts the channels of `count` frames behind those of the chunk that have come.
void take_input(const rate_path *path, const float *in, size_t count) {
  float *first = path->input[0] + path->done;
  if (path->config.channels == 1) {
    memcpy(first, in, count * sizeof(float));
    return;
  }
  float *second = path->input[1] + path->done;
  for (size_t n = 0; n < count; ++n) {
    first[n] = in[2 * n];
    second[n] = in[2 * n + 1];
  }
}

}  // namespace

rate_path *rate_path_open(const rate_path_config *config, const char **error) {
  const char *reason = refusal(config);
  rate_path *path = nullptr;
  if (reason == nullptr) {
    rate_path plan = {};
    plan.config = *config;
    rate_plan_make(&plan.plan, config->rate, config->delay_16k);
    plan.step_places = static_cast<int64_t>(kUpperBandStep) * config->rate;
    plan.ends = plan.plan.up_history / kUpperBandStep + 3;
    rate_memory memory = {};
    lay_out(&plan, &memory);
    // One piece of memory: the record, and behind it everything whose size follows from the rate.
    const size_t size = sizeof(rate_path) + memory.used * sizeof(float);
    path = static_cast<rate_path *>(
        aligned_alloc(kRatePathAlignment,
                      (size + kRatePathAlignment - 1) / kRatePathAlignment * kRatePathAlignment));
    if (path != nullptr) {
      *path = plan;
      memory.base = reinterpret_cast<float *>(path + 1);
      memory.used = 0;
      lay_out(path, &memory);
      rate_filters_fill(&path->filters, &path->plan);
      upper_band_open(&path->band, config->channels, config->full_band);
      rate_path_reset(path);
    } else {
      reason = "out of memory";
    }
  }
  if (error != nullptr) {
    *error = reason;
  }
  return path;
}

int32_t rate_path_latency(const rate_path *path) {
  return path->plan.latency;
}

void rate_path_process(rate_path *path, const float *in, size_t frames, float *out) {
  const int32_t channels = path->config.channels;
  while (frames > 0) {
    const size_t left = static_cast<size_t>(path->chunk - path->done);
    const size_t count = std::min(frames, left);
    take_input(path, in, count);
    memcpy(out, path->output + path->done, count * sizeof(float));
    path->done += static_cast<int32_t>(count);
    in += count * static_cast<size_t>(channels);
    out += count;
    frames -= count;
    if (path->done == path->chunk) {
      run_turn(path);
    }
  }
}

void rate_path_set_full_band(rate_path *path, int32_t full_band) {
  path->band.enabled = full_band;
}

void rate_path_use(rate_path *path, int32_t alone) {
  upper_band_use(&path->band, alone);
}

void rate_path_reset(rate_path *path) {
  const rate_plan *plan = &path->plan;
  memset(path->state, 0, path->state_size * sizeof(float));
  for (int m = 0; m < path->config.channels; ++m) {
    rate_down_reset(&path->down[m], plan);
  }
  rate_up_reset(&path->up, plan);
  upper_band_reset(&path->band);
  path->chunk = plan->first_chunk * plan->factor;
  path->done = 0;
  // The first turn's output begins at its chunk's end, less the latency, more the core's delay.
  const int64_t place = static_cast<int64_t>(path->chunk - plan->latency) * kCoreRateHz +
                        static_cast<int64_t>(plan->delay_16k) * plan->rate_hz;
  int64_t step = place / path->step_places;
  if (place < step * path->step_places) {
    --step;
  }
  path->step = static_cast<int32_t>(step);
  path->place = place - step * path->step_places;
}

void rate_path_close(rate_path *path) {
  free(path);
}
