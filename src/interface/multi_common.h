// Operations on frames and packed spectra that the processing paths share: power, gains and
// beamforming.
#ifndef TM_SE_BF_INTERFACE_MULTI_COMMON_H
#define TM_SE_BF_INTERFACE_MULTI_COMMON_H

#include <cstdint>

#include "spatial/mvdr_mask.h"

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
// approach to spatial filtering", 1988). spectrum: [C][N] packed spectra, N a multiple of
// 2 kMvdrLanes; weights: the blocks of N/2 + 1 bins. The result replaces channel 0: DC becomes 0,
// and the Nyquist slot keeps channel 0's own value, deliberately neither filtered nor cleared. With
// C = 1 the weights are all 1.
void mul_bf_gain(se_complex *spectrum, const mvdr_block *weights, int32_t C, int16_t N);

#endif  // TM_SE_BF_INTERFACE_MULTI_COMMON_H
