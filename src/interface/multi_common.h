// Operations on frames and packed spectra that the processing paths share: mean, power, gains and
// beamforming.
#ifndef TM_SE_BF_INTERFACE_MULTI_COMMON_H
#define TM_SE_BF_INTERFACE_MULTI_COMMON_H

#include <cstdint>

#include "support/se_maths.h"

// Mean of one or two channels. frame: [channels][hop]; mean: [hop], may be `frame`. A channel that
// has just died counts too: the level is halved until the fault detector copies the good channel
// over it.
void mean_of_channels(const float *frame, int32_t channels, int32_t hop, float *mean);

// Power of each bin, averaged over one or two channels. spectrum: [channels][2 (bins - 1)] packed
// spectra; power: [bins].
void mean_bin_power(const float *spectrum, int32_t channels, int32_t bins, float *power);

// Post-gain of the beamformer, which replaces the power: (P - N) / P where the power P [bins]
// exceeds the noise N [bins], else 0. No floor.
void power_above_noise(float *power, const float *noise, int32_t bins);

// Multiplies `count` packed spectra of n floats each, one after the other, by the same real gain of
// n/2 + 1 floats, in place. Does nothing for count < 1.
void mul_amp_real_gain(float *spectrum, const float *gain, int32_t count, int32_t n);

// Filter-and-sum beamformer y = w^H x per bin (Van Veen and Buckley, "Beamforming: a versatile
// approach to spatial filtering", 1988). spectrum: [C][N/2] packed spectra; weights: [N/2 + 1][C].
// The result replaces channel 0. DC becomes 0. The Nyquist slot deliberately keeps the value of
// channel 0, neither filtered nor cleared. The weights of DC and Nyquist have no effect.
void mul_bf_gain(se_complex *spectrum, const se_complex *weights, int32_t C, int16_t N);

#endif  // TM_SE_BF_INTERFACE_MULTI_COMMON_H
