// Converts a stream to 16 kHz and back with linear-phase filters (Crochiere and Rabiner, Multirate
// digital signal processing, 1983): half-band filters between the outer rate and a middle rate of
// 20 to 40 kHz, a polyphase filter between the middle rate and 16 kHz.
//
// A plan fixes everything that follows from the rate: filters, chunks and latency. The stream runs
// in turns of one block of kStreamBlock samples at 16 kHz. A turn takes a chunk of input, the
// samples that its block still lacks, and gives the output for the time in which the next chunk
// arrives. Chunks are whole middle-rate samples; their lengths repeat after at most 400 turns.
#ifndef TM_SE_BF_STREAM_RATE_CONVERTER_H
#define TM_SE_BF_STREAM_RATE_CONVERTER_H

#include <stddef.h>
#include <stdint.h>

#include "stream_format.h"

constexpr int32_t kRateMaxHalvings = 3;

// What the rate fixes. "Middle" stands for samples at the middle rate.
struct rate_plan {
  int32_t rate_hz;                    // outer rate
  int32_t delay_16k;                  // samples at 16 kHz by which the block function is late
  int32_t halvings;                   // half-band stages; 0: the middle rate is the outer one
  int32_t factor;                     // 2^halvings: outer samples per middle sample
  int32_t quarter[kRateMaxHalvings];  // their filters, the one at the outer rate first
  int64_t step;                       // step / base: middle samples per sample at 16 kHz
  int64_t base;
  int32_t down_taps;  // polyphase filter at the middle rate
  int32_t down_phases;
  int32_t up_taps;  // polyphase filter at 16 kHz
  int32_t up_phases;
  int32_t down_ahead;    // last middle sample of the first sample at 16 kHz
  int32_t down_history;  // middle samples that a turn looks at
  int32_t up_ahead;      // last sample at 16 kHz of the first output
  int32_t up_phase;      // of the first output, 0 .. step - 1
  int32_t up_history;    // samples at 16 kHz that a turn looks at
  int32_t first_chunk;   // middle samples of the first turn, the longest
  int32_t later_chunk;   // middle samples of the longest turn after it
  int32_t latency;       // outer samples from input to output
};

// Plans for a rate that a stream may have and a block function that is late by `delay_16k` samples.
// The latency is the shortest with which the output never runs dry.
void rate_plan_make(rate_plan *plan, int32_t rate_hz, int32_t delay_16k);

// Gives out parts of one piece of memory. With `base` null it only counts.
struct rate_memory {
  float *base;
  size_t used;  // floats
};
float *rate_memory_take(rate_memory *memory, size_t count);

// The coefficients of both directions; constant once filled.
struct rate_filters {
  float *half_band[kRateMaxHalvings];
  float *down;  // rate_filter_rows(down_phases) x down_taps
  float *up;    // rate_filter_rows(up_phases) x up_taps
};
void rate_filters_take(rate_filters *filters, const rate_plan *plan, rate_memory *memory);
void rate_filters_fill(const rate_filters *filters, const rate_plan *plan);

// The latest samples, in both directions of time: tables of filters hold only the rows that are not
// another one's backwards.
struct rate_history {
  float *forth;  // the latest one last
  float *back;   // the latest one first
};

// One channel from the outer rate to 16 kHz.
struct rate_down {
  float *odd[kRateMaxHalvings];   // odd samples of a half-band stage's input: history, chunk
  float *even[kRateMaxHalvings];  // even ones: history, chunk
  rate_history middle;            // down_history samples
  float *chunk;                   // room for a chunk on its way through the stages
  int64_t ahead;                  // last tap of the next sample, counted from the end of `middle`
  int64_t phase;                  // 0 .. base - 1
};
void rate_down_take(rate_down *down, const rate_plan *plan, rate_memory *memory);
// After a reset all histories must be 0: the owner of the memory clears it.
void rate_down_reset(rate_down *down, const rate_plan *plan);
// Middle samples that the next turn takes.
int32_t rate_down_chunk(const rate_down *down, const rate_plan *plan);
// Takes rate_down_chunk() * factor samples from `in`, gives kStreamBlock samples at 16 kHz.
void rate_down_run(rate_down *down, const rate_plan *plan, const rate_filters *filters,
                   const float *in, float *out);

// The enhanced channel from 16 kHz to the outer rate.
struct rate_up {
  rate_history core;               // up_history samples at 16 kHz
  float *stage[kRateMaxHalvings];  // input of a doubling stage: history, chunk
  float *sums;                     // room for a doubling stage's new samples
  int64_t ahead;                   // last tap of the next output, counted from the end of `core`
  int64_t phase;                   // 0 .. step - 1
};
void rate_up_take(rate_up *up, const rate_plan *plan, rate_memory *memory);
void rate_up_reset(rate_up *up, const rate_plan *plan);
// Takes kStreamBlock samples at 16 kHz, gives chunk * factor samples at the outer rate.
void rate_up_run(rate_up *up, const rate_plan *plan, const rate_filters *filters, const float *in,
                 int32_t chunk, float *out);

#endif  // TM_SE_BF_STREAM_RATE_CONVERTER_H
