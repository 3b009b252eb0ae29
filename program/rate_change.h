// Changes the sampling rate of enhanced sound, where the output cannot have the rate of the input:
// linear phase, aligned, in constant memory.
#ifndef SE_BF_RATE_CHANGE_H
#define SE_BF_RATE_CHANGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rate_filter.h"

// Coefficients that rate_filter_dot takes at a time, aligned as it needs them.
struct alignas(kRateFilterAlignment) filter_lanes {
  float taps[kRateFilterLanes];
};

struct rate_change {
  int64_t step;  // step / base: samples of input per sample of output
  int64_t base;
  int taps;
  int phases;
  std::vector<filter_lanes> table;  // (phases + 1) rows of `taps` coefficients
  std::vector<float> input;         // from the first tap of the next output on
  int64_t phase;                    // of the next output behind its middle sample, 0 .. base - 1
};

// From `in_hz` to `out_hz`, 1 to 192000 Hz. The band up to 23/25 of half the lower rate
// stays as it is.
void rate_change_open(rate_change *change, int in_hz, int out_hz);

// Takes samples and appends to `out` those that follow from them. Output m lies at input
// m * in_hz / out_hz.
void rate_change_push(rate_change *change, const float *in, size_t count, std::vector<float> *out);

// Appends the rest, so that the output is no shorter than the input.
void rate_change_finish(rate_change *change, std::vector<float> *out);

#endif  // SE_BF_RATE_CHANGE_H
