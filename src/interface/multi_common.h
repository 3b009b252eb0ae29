// Operations on frames and packed spectra that the processing paths share: mean, power, gains and
// beamforming.
#ifndef TM_SE_BF_INTERFACE_MULTI_COMMON_H
#define TM_SE_BF_INTERFACE_MULTI_COMMON_H

#include <cstdint>

#include "support/se_maths.h"

// Mean of one or two channels. frame: [channels][hop]; mean: [hop], may be `frame`. Every channel
// counts, also one that has just died: until the fault detector copies the good channel over it,
// the level is halved.
void mean_of_channels(const float *frame, int32_t channels, int32_t hop, float *mean);

// Mean over one or two channels of the power per bin. spectrum: [channels][2 (bins - 1)] packed
// spectra; power: [bins].
void mean_bin_power(const float *spectrum, int32_t channels, int32_t bins, float *power);

// Post-gain of the beamformer, written over the power: (P - N) / P where the power P [bins] exceeds
// the noise N [bins], else 0. No floor.
void power_above_noise(float *power, const float *noise, int32_t bins);

// Multiplies `count` packed spectra, back to back with a stride of n floats, in place by a real
// gain of n/2 + 1 floats; phases are kept. Does nothing for count < 1.
void mul_amp_real_gain(float *spectrum, const float *gain, int32_t count, int32_t n);

// Filter-and-sum beamformer y = w^H x per bin (Van Veen and Buckley, "Beamforming: a versatile
// approach to spatial filtering", 1988). spectrum: [C][N] packed spectra; weights: [N/2 + 1][C].
// The result replaces channel 0: DC becomes 0, and the Nyquist slot keeps channel 0's own value,
// deliberately neither filtered nor cleared. The weights of DC are not read.
void mul_bf_gain(se_complex *spectrum, const se_complex *weights, int32_t C, int16_t N);

#endif  // TM_SE_BF_INTERFACE_MULTI_COMMON_H
