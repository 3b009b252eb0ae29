// Mask-weighted spatial covariances and the minimum-variance weights that follow from them.
//
// Every frame adds p x x^H to a bin's speech covariance and (1 - p) x x^H to its noise covariance,
// p being the speech-presence probability (Higuchi, Ito, Yoshioka and Nakatani, "Robust MVDR
// beamforming using time-frequency masks for online/offline ASR in noise", 2016; Souden, Chen,
// Benesty and Affes, "An integrated solution for online multichannel noise tracking and reduction",
// 2011). Covariances are plain weighted sums; a periodic rescale bounds their effective length. The
// weight update steers to the principal eigenvector of the speech covariance (Warsitz and
// Haeb-Umbach, "Blind acoustic beamforming based on generalized eigenvalue decomposition", 2007)
// and forms the weights of Capon
// ("High-resolution frequency-wavenumber spectrum analysis", 1969): w = R^-1 d / (d^H R^-1 d).
//
// The matrices are 2-by-2; with another channel count nothing is accumulated and no weight changes.
#ifndef TM_SE_BF_SPATIAL_MVDR_MASK_H
#define TM_SE_BF_SPATIAL_MVDR_MASK_H

#include <cstdint>

#include "spatial/se_matrix_funcs.h"
#include "support/tamrin_memory.h"

// Microphones that the matrix operations are made for.
constexpr int16_t kBeamformerChannels = 2;

#pragma pack(push, 4)
// Per-bin arrays are bin-major: bin k, microphone m at k * channels + m.
struct mvdr_evd_state {
  int32_t bins;                // K = N/2 + 1
  int16_t channels;            // microphones C, dimension of every matrix
  int32_t update_count;        // frames since the last weight update; the frame path counts
  int32_t use_eigen_steering;  // 1: steer to the eigenvector of the speech covariance
  float *speech_weight;        // [K] sum of the weights in speech_cov
  float *noise_weight;         // [K] sum of the weights in noise_cov
  float *unity;                // [K] ones; read by nothing, carried deliberately
  se_complex *weights;         // [K][C] beamformer weights
  se_complex *steering;        // [K][C] steering vectors, unit norm
  cmat *noise_cov_inv;         // [K] inverse of the normalised noise covariance
  cmat *noise_cov;             // [K] noise covariance accumulator
  cmat *speech_cov;            // [K] noisy-speech covariance accumulator
  se_complex *scratch;         // [C * C] one bin's channel vector, or a temporary matrix
  float reserved_a;            // carried deliberately, read by nothing
  float reserved_b;            // carried deliberately, read by nothing
  int32_t rescale_limit;       // frame count at which the accumulators are rescaled
  int32_t rescale_target;      // frame count that they represent afterwards
  int32_t rescale_count;       // frames counted towards the next rescale; the frame path counts
};
#pragma pack(pop)

// Makes the state from the pool. steering: [bins][channels], copied. Weights start at
// 1/sqrt(channels), inverses at the identity, sums at zero. Returns null when the pool is exhausted
// or steering is null.
mvdr_evd_state *mvdr_evd_init(int16_t channels, const se_complex *steering, int32_t bins);

// Releases the state through the pool; null is accepted.
void mvdr_evd_uninit(mvdr_evd_state *state);

// Rescales weights and accumulators of bins 1 .. K-1 by rescale_target / rescale_count (by 0 when
// no frame was counted), which leaves the normalised covariances as they are. Null is accepted.
void mvdr_evd_reset(mvdr_evd_state *state);

// Accumulates one frame and returns 1. spectrum: [channels][bins - 1] packed spectra; speech_prob:
// [bins], 0 .. 1.
int mvdr_evd_psd_sta(mvdr_evd_state *state, const se_complex *spectrum, const float *speech_prob);

// Recomputes steering and weights of bins 1 .. K-1 from the accumulators; bin 0 is never touched.
// Returns the state's weights.
se_complex *mvdr_update_param(mvdr_evd_state *state);

#endif  // TM_SE_BF_SPATIAL_MVDR_MASK_H
