// Changes the sampling rate of enhanced sound with a polyphase filter (Crochiere and Rabiner,
// Multirate digital signal processing, 1983).
#include "rate_change.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr int64_t kMaxPhases = 1024;  // above, neighbouring rows are interpolated: -118 dB

static_assert(sizeof(filter_lanes) == kRateFilterLanes * sizeof(float), "rows have no gaps");

// The output that lies `phase` / base behind the middle of the taps at `x`.
float interpolate(const rate_change *change, const float *x) {
  const int taps = change->taps;
  const int64_t place = change->phase * change->phases;
  const float *row =
      reinterpret_cast<const float *>(change->table.data()) + place / change->base * taps;
  const float before = rate_filter_dot(x, row, taps);
  const int64_t rest = place % change->base;
  if (rest == 0) {
    return before;
  }
  const float weight = static_cast<float>(rest) / static_cast<float>(change->base);
  return before + weight * (rate_filter_dot(x, row + taps, taps) - before);
}

}  // namespace

void rate_change_open(rate_change *change, int in_hz, int out_hz) {
  const int divisor = std::gcd(in_hz, out_hz);
  const double lower = static_cast<double>(std::min(in_hz, out_hz)) / in_hz;
  change->step = in_hz / divisor;
  change->base = out_hz / divisor;
  change->taps = rate_filter_taps(kRateTransition * lower);
  change->phases = static_cast<int>(std::min(change->base, kMaxPhases));
  change->table.resize(static_cast<size_t>(change->phases + 1) *
                       static_cast<size_t>(change->taps / kRateFilterLanes));
  rate_filter_polyphase(kRateCutoff * lower, change->taps, change->phases, change->phases + 1,
                        reinterpret_cast<float *>(change->table.data()));
  // The middle tap of the first output is the first sample of input.
  change->input.assign(static_cast<size_t>(change->taps / 2 - 1), 0.0f);
  change->phase = 0;
}

void rate_change_push(rate_change *change, const float *in, size_t count, std::vector<float> *out) {
  std::vector<float> *input = &change->input;
  const size_t taps = static_cast<size_t>(change->taps);
  size_t first = 0;
  input->insert(input->end(), in, in + count);
  while (first + taps <= input->size()) {
    out->push_back(interpolate(change, input->data() + first));
    change->phase += change->step;
    first += static_cast<size_t>(change->phase / change->base);
    change->phase %= change->base;
  }
  input->erase(input->begin(), input->begin() + static_cast<std::ptrdiff_t>(first));
}

void rate_change_finish(rate_change *change, std::vector<float> *out) {
  const std::vector<float> silence(static_cast<size_t>(change->taps / 2), 0.0f);
  rate_change_push(change, silence.data(), silence.size(), out);
}
