// Converts a stream to 16 kHz and back with linear-phase filters (Crochiere and Rabiner, Multirate
// digital signal processing, 1983).
#include "rate_converter.h"

#include <string.h>

#include <algorithm>

#include "rate_filter.h"

namespace {

constexpr int32_t kLowestMiddleHz = 20000;  // leaves half-band filters 4 kHz and more of transition
constexpr int64_t kMaxPhases = 1024;        // above, neighbouring rows are interpolated: -118 dB

int64_t common_divisor(int64_t a, int64_t b) {
  return b == 0 ? a : common_divisor(b, a % b);
}

int64_t floor_div(int64_t a, int64_t b) {
  return a >= 0 ? a / b : -((b - 1 - a) / b);
}

int64_t ceil_div(int64_t a, int64_t b) {
  return -floor_div(-a, b);
}

int32_t to_int(int64_t value) {
  return static_cast<int32_t>(value);
}

// Half-band stages: their delays, seen from the middle rate, are whole samples on the way down, so
// that the polyphase filter's phases stay what they are without them.
void plan_halvings(rate_plan *plan) {
  plan->halvings = 0;
  while (plan->halvings < kRateMaxHalvings &&
         plan->rate_hz >> (plan->halvings + 1) >= kLowestMiddleHz) {
    ++plan->halvings;
  }
  plan->factor = 1 << plan->halvings;
  for (int s = 0; s < plan->halvings; ++s) {
    const double rate_hz = static_cast<double>(plan->rate_hz) / (1 << s);
    // The band up to 8 kHz is kept, its image below half the rate is not.
    const int quarter = rate_filter_quarter(0.5 - kCoreRateHz / rate_hz);
    const int grid = 1 << (plan->halvings - 1 - s);
    plan->quarter[s] = (quarter - 1 + grid - 1) / grid * grid + 1;
  }
}

// Last middle sample that sample n at 16 kHz looks at, with the delay of the stages before.
int64_t last_middle(const rate_plan *plan, int64_t n) {
  return floor_div(n * plan->step, plan->base) + plan->down_ahead;
}

// Middle samples that must have come for block b.
int64_t chunk_end(const rate_plan *plan, int64_t b) {
  return last_middle(plan, kStreamBlock * b + kStreamBlock - 1) + 1;
}

// What a polyphase filter works with.
struct polyphase {
  const float *table;
  int32_t taps;
  int32_t phases;  // that the table was made for
  int64_t phase_end;
};

float row_sum(const polyphase *filter, int64_t row, const float *forth, const float *back) {
  const bool turned = 2 * row > filter->phases;
  const int64_t stored = turned ? filter->phases - row : row;
  return rate_filter_dot(turned ? back : forth, filter->table + stored * filter->taps,
                         filter->taps);
}

// Weighted sum at `phase` / phase_end behind the middle sample; `ahead` is the last tap, counted
// from the end of the history.
float interpolate(const polyphase *filter, const rate_history *history, int32_t length,
                  int64_t ahead, int64_t phase) {
  const float *forth = history->forth + length + ahead - filter->taps + 1;
  const float *back = history->back - ahead - 1;
  if (filter->phase_end <= kMaxPhases) {
    return row_sum(filter, phase, forth, back);
  }
  const int64_t place = phase * filter->phases;
  const int64_t row = place / filter->phase_end;
  const float weight =
      static_cast<float>(place % filter->phase_end) / static_cast<float>(filter->phase_end);
  const float before = row_sum(filter, row, forth, back);
  return before + weight * (row_sum(filter, row + 1, forth, back) - before);
}

// Moves the last `keep` of `count` samples to the front.
void keep_last(float *samples, int32_t keep, int32_t count) {
  memmove(samples, samples + count - keep, static_cast<size_t>(keep) * sizeof(float));
}

rate_history take_history(int32_t length, rate_memory *memory) {
  const size_t count = static_cast<size_t>(length);
  float *forth = rate_memory_take(memory, count);
  return {forth, rate_memory_take(memory, count)};
}

void append(const rate_history *history, int32_t length, const float *in, int32_t count) {
  keep_last(history->forth, length - count, length);
  memcpy(history->forth + length - count, in, static_cast<size_t>(count) * sizeof(float));
  memmove(history->back + count, history->back,
          static_cast<size_t>(length - count) * sizeof(float));
  for (int32_t n = 0; n < count; ++n) {
    history->back[n] = in[count - 1 - n];
  }
}

int32_t half_band_history(const rate_plan *plan, int s) {
  return 2 * plan->quarter[s] - 1;
}

int32_t longest_chunk(const rate_plan *plan) {
  return std::max(plan->first_chunk, plan->later_chunk);
}

}  // namespace

void rate_plan_make(rate_plan *plan, int32_t rate_hz, int32_t delay_16k) {
  memset(plan, 0, sizeof(*plan));
  plan->rate_hz = rate_hz;
  plan->delay_16k = delay_16k;
  plan_halvings(plan);
  const int64_t divisor = common_divisor(rate_hz, static_cast<int64_t>(kCoreRateHz) * plan->factor);
  plan->step = rate_hz / divisor;
  plan->base = static_cast<int64_t>(kCoreRateHz) * plan->factor / divisor;

  const double middle_hz = static_cast<double>(rate_hz) / plan->factor;
  const double lower_hz = std::min(middle_hz, static_cast<double>(kCoreRateHz));
  plan->down_taps = rate_filter_taps(kRateTransition * lower_hz / middle_hz);
  plan->up_taps = rate_filter_taps(kRateTransition * lower_hz / kCoreRateHz);
  plan->down_phases = to_int(std::min(plan->base, kMaxPhases));
  plan->up_phases = to_int(std::min(plan->step, kMaxPhases));

  plan->down_ahead = plan->down_taps / 2;
  int64_t doubling_delay = 0;
  for (int s = 0; s < plan->halvings; ++s) {
    plan->down_ahead += ((plan->quarter[s] - 1) << (s + 1)) / plan->factor;
    doubling_delay += (2 * plan->quarter[s] - 1) << s;
  }
  plan->down_history =
      to_int(plan->down_taps + (plan->base - 1 + (kStreamBlock - 1) * plan->step) / plan->base);

  // With `lag` middle samples between input and output, output k lies at (k - lag) * base / step +
  // delay_16k of the blocks. The last one of a turn, right before the next block is there, must not
  // look past this block's end: that gives the lag. The chunks repeat after `period` turns.
  const int64_t period = plan->base / common_divisor(plan->base, kStreamBlock);
  int64_t lag = 0;
  for (int64_t b = -1; b < period; ++b) {
    const int64_t end = kStreamBlock * (b + 1) - delay_16k - plan->up_taps / 2;
    lag = std::max(lag, chunk_end(plan, b + 1) - ceil_div(end * plan->step, plan->base));
    plan->later_chunk =
        std::max(plan->later_chunk, to_int(chunk_end(plan, b + 1) - chunk_end(plan, b)));
  }
  plan->first_chunk = to_int(chunk_end(plan, 0));
  const int64_t place = (chunk_end(plan, 0) - lag) * plan->base;
  const int64_t floor_place = floor_div(place, plan->step);
  plan->up_phase = to_int(place - floor_place * plan->step);
  plan->up_ahead = to_int(floor_place + delay_16k + plan->up_taps / 2);
  for (int64_t b = 0; b < period; ++b) {
    const int64_t first = floor_div((chunk_end(plan, b) - lag) * plan->base, plan->step) +
                          delay_16k - plan->up_taps / 2 + 1;
    plan->up_history = std::max(plan->up_history, to_int(kStreamBlock * (b + 1) - first));
  }
  plan->latency = to_int(lag * plan->factor + doubling_delay);
}

float *rate_memory_take(rate_memory *memory, size_t count) {
  float *part = memory->base == nullptr ? nullptr : memory->base + memory->used;
  memory->used += count;
  return part;
}

void rate_filters_take(rate_filters *filters, const rate_plan *plan, rate_memory *memory) {
  filters->down =
      rate_memory_take(memory, static_cast<size_t>(rate_filter_rows(plan->down_phases)) *
                                   static_cast<size_t>(plan->down_taps));
  filters->up = rate_memory_take(memory, static_cast<size_t>(rate_filter_rows(plan->up_phases)) *
                                             static_cast<size_t>(plan->up_taps));
  for (int s = 0; s < plan->halvings; ++s) {
    filters->half_band[s] = rate_memory_take(memory, 2 * static_cast<size_t>(plan->quarter[s]));
  }
}

void rate_filters_fill(const rate_filters *filters, const rate_plan *plan) {
  for (int s = 0; s < plan->halvings; ++s) {
    rate_filter_half_band(plan->quarter[s], filters->half_band[s]);
  }
  const double middle_hz = static_cast<double>(plan->rate_hz) / plan->factor;
  const double lower_hz = std::min(middle_hz, static_cast<double>(kCoreRateHz));
  rate_filter_polyphase(kRateCutoff * lower_hz / middle_hz, plan->down_taps, plan->down_phases,
                        rate_filter_rows(plan->down_phases), filters->down);
  rate_filter_polyphase(kRateCutoff * lower_hz / kCoreRateHz, plan->up_taps, plan->up_phases,
                        rate_filter_rows(plan->up_phases), filters->up);
}

void rate_down_take(rate_down *down, const rate_plan *plan, rate_memory *memory) {
  const int32_t room = longest_chunk(plan) * plan->factor;
  for (int s = 0; s < plan->halvings; ++s) {
    const size_t half = static_cast<size_t>(room >> (s + 1));
    down->odd[s] = rate_memory_take(memory, static_cast<size_t>(half_band_history(plan, s)) + half);
    down->even[s] = rate_memory_take(memory, static_cast<size_t>(plan->quarter[s] - 1) + half);
  }
  down->middle = take_history(plan->down_history, memory);
  down->chunk = rate_memory_take(memory, static_cast<size_t>(room >> 1));
}

void rate_down_reset(rate_down *down, const rate_plan *plan) {
  down->ahead = plan->down_ahead;
  down->phase = 0;
}

int32_t rate_down_chunk(const rate_down *down, const rate_plan *plan) {
  return to_int(down->ahead + (down->phase + (kStreamBlock - 1) * plan->step) / plan->base + 1);
}

void rate_down_run(rate_down *down, const rate_plan *plan, const rate_filters *filters,
                   const float *in, float *out) {
  const int32_t chunk = rate_down_chunk(down, plan);
  const float *x = in;
  for (int s = 0; s < plan->halvings; ++s) {
    // y[n] = 0.5 * even[n - (quarter - 1)] + sum of taps[k] * odd[n - k]
    const int32_t count = chunk << (plan->halvings - 1 - s);
    const int32_t behind = half_band_history(plan, s);
    const int32_t delay = plan->quarter[s] - 1;
    float *odd = down->odd[s];
    float *even = down->even[s];
    for (int32_t n = 0; n < count; ++n) {
      even[delay + n] = x[2 * n];
      odd[behind + n] = x[2 * n + 1];
    }
    rate_filter_run(odd, filters->half_band[s], behind + 1, down->chunk, count);
    for (int32_t n = 0; n < count; ++n) {
      down->chunk[n] += 0.5f * even[n];
    }
    keep_last(even, delay, delay + count);
    keep_last(odd, behind, behind + count);
    x = down->chunk;
  }

  const int32_t length = plan->down_history;
  const int32_t skipped = std::max(0, chunk - length);
  append(&down->middle, length, x + skipped, chunk - skipped);
  down->ahead -= chunk;
  const polyphase filter = {filters->down, plan->down_taps, plan->down_phases, plan->base};
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    out[n] = interpolate(&filter, &down->middle, length, down->ahead, down->phase);
    down->phase += plan->step;
    down->ahead += down->phase / plan->base;
    down->phase %= plan->base;
  }
}

void rate_up_take(rate_up *up, const rate_plan *plan, rate_memory *memory) {
  const size_t room = static_cast<size_t>(plan->later_chunk) * static_cast<size_t>(plan->factor);
  up->core = take_history(plan->up_history, memory);
  for (int s = 0; s < plan->halvings; ++s) {
    const size_t history = static_cast<size_t>(half_band_history(plan, s));
    up->stage[s] = rate_memory_take(memory, history + (room >> (s + 1)));
  }
  up->sums = rate_memory_take(memory, room >> 1);
}

void rate_up_reset(rate_up *up, const rate_plan *plan) {
  up->ahead = plan->up_ahead;
  up->phase = plan->up_phase;
}

void rate_up_run(rate_up *up, const rate_plan *plan, const rate_filters *filters, const float *in,
                 int32_t chunk, float *out) {
  append(&up->core, plan->up_history, in, kStreamBlock);
  up->ahead -= kStreamBlock;
  const polyphase filter = {filters->up, plan->up_taps, plan->up_phases, plan->step};
  int s = plan->halvings;
  float *y = s == 0 ? out : up->stage[s - 1] + half_band_history(plan, s - 1);
  for (int32_t n = 0; n < chunk; ++n) {
    y[n] = interpolate(&filter, &up->core, plan->up_history, up->ahead, up->phase);
    up->phase += plan->base;
    up->ahead += up->phase / plan->step;
    up->phase %= plan->step;
  }
  while (--s >= 0) {
    // y[2 n] = sum of 2 * taps[k] * x[n - k], y[2 n + 1] = x[n - (quarter - 1)]
    const int32_t count = chunk << (plan->halvings - 1 - s);
    const int32_t behind = half_band_history(plan, s);
    const int32_t delay = plan->quarter[s] - 1;
    float *x = up->stage[s];
    y = s == 0 ? out : up->stage[s - 1] + half_band_history(plan, s - 1);
    rate_filter_run(x, filters->half_band[s], behind + 1, up->sums, count);
    for (int32_t n = 0; n < count; ++n) {
      y[2 * n] = 2.0f * up->sums[n];
      y[2 * n + 1] = x[behind + n - delay];
    }
    keep_last(x, behind, behind + count);
  }
}
