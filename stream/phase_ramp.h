// Phase of a delay over frequency, by which spectra of short frames are shifted in time.
#ifndef TM_SE_BF_STREAM_PHASE_RAMP_H
#define TM_SE_BF_STREAM_PHASE_RAMP_H

#include "bin_vector.h"

// Largest delay in samples that a ramp is accurate for, 1e-6 of a turn.
constexpr float kLargestRampDelay = 32.0f;

// Fills ramp(k) = exp(-2 pi i k delay / N): times a spectrum it delays the frame by `delay`
// samples, circularly.
void phase_ramp_fill(bin_spectrum *ramp, float delay);

#endif  // TM_SE_BF_STREAM_PHASE_RAMP_H
