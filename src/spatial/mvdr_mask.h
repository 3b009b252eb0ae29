// Mask-weighted spatial covariances and the minimum-variance weights that follow from them.
//
// Every frame adds p x x^H to a bin's speech covariance and (1 - p) x x^H to its noise covariance,
// p being the speech-presence probability (Higuchi, Ito, Yoshioka and Nakatani, "Robust MVDR
// beamforming using time-frequency masks for online/offline ASR in noise", 2016; Souden, Chen,
// Benesty and Affes, "An integrated solution for online multichannel noise tracking and reduction",
// 2011). Covariances are plain weighted sums; from time to time they are scaled down, so that they
// represent a limited number of frames. The weight update steers to the principal eigenvector d of
// the speech covariance (Warsitz and Haeb-Umbach, "Blind acoustic beamforming based on generalized
// eigenvalue decomposition", 2007) and forms the weights of Capon ("High-resolution
// frequency-wavenumber spectrum analysis", 1969) with the noise covariance R:
//   w = R^-1 d / (d^H R^-1 d).
//
// The matrices are 2-by-2; with one channel nothing is accumulated and no weight changes.
#ifndef TM_SE_BF_SPATIAL_MVDR_MASK_H
#define TM_SE_BF_SPATIAL_MVDR_MASK_H

#include <cstdint>

#include "support/se_maths.h"
#include "support/tamrin_memory.h"

// Number of microphones that the matrix operations are made for.
constexpr int16_t kBeamformerChannels = 2;

// Bins in a block; loops over the lanes of a block become vector instructions.
constexpr int32_t kMvdrLanes = 8;

// One Hermitian matrix ((first, cross), (conj(cross), second)) per bin of a block, held as the
// parts that determine it.
struct hermitian_lanes {
  float first[kMvdrLanes];
  float second[kMvdrLanes];
  float cross_re[kMvdrLanes];
  float cross_im[kMvdrLanes];
};

// Covariances of kMvdrLanes bins: lane i of block b is bin kMvdrLanes b + i. The last block has
// spare lanes, which belong to no bin.
struct mvdr_block {
  hermitian_lanes speech_cov;     // noisy-speech covariance accumulator
  hermitian_lanes noise_cov;      // noise covariance accumulator
  hermitian_lanes noise_cov_inv;  // inverse of the normalised noise covariance
};

#pragma pack(push, 4)
// The four vectors that the weight update uses have room for whole blocks of bins, so that its
// loops need no code for a remainder.
struct mvdr_evd_state {
  int32_t bins;                // K = N/2 + 1
  int16_t channels;            // microphones C, 1 or 2
  int32_t update_count;        // frames since the last weight update
  int32_t use_eigen_steering;  // 1: steer to the eigenvector of the speech covariance
  float *speech_weight;        // [K] sum of the weights in speech_cov
  float *noise_weight;         // [K] sum of the weights in noise_cov
  float *unity;                // [K] ones; deliberately kept, read by nothing
  se_complex *weights;         // [K][C] beamformer weights
  se_complex *steering;        // [K][C] steering vectors, unit norm
  mvdr_block *blocks;          // [mvdr_block_count(K)] covariances
  float reserved_a;            // deliberately kept, read by nothing
  float reserved_b;            // deliberately kept, read by nothing
  int32_t rescale_limit;       // frame count at which the accumulators are rescaled
  int32_t rescale_target;      // frame count that they represent afterwards
  int32_t rescale_count;       // frames counted towards the next rescale
};
#pragma pack(pop)

// Blocks that hold `bins` bins.
constexpr int32_t mvdr_block_count(int32_t bins) {
  return (bins + kMvdrLanes - 1) / kMvdrLanes;
}

// Makes the state from the pool. steering: [bins][channels], copied. Weights start at
// 1/sqrt(channels), inverses at the identity, sums at zero. Returns null when the pool is
// exhausted, when steering is null, or for more than two channels.
mvdr_evd_state *mvdr_evd_init_in(core_state *core, int16_t channels, const se_complex *steering,
                                 int32_t bins);
inline mvdr_evd_state *mvdr_evd_init(int16_t channels, const se_complex *steering, int32_t bins) {
  return mvdr_evd_init_in(&process_core, channels, steering, bins);
}

// Releases the state through the pool; null is accepted. Only tests call it: an instance's state
// goes with the pool.
void mvdr_evd_uninit(mvdr_evd_state *state);

// Multiplies the weight sums and accumulators of bins 1 .. K-1 by rescale_target / rescale_count,
// which leaves the normalised covariances as they are; by 0 when no frame was counted. The state
// then represents rescale_target frames. Null is accepted.
void mvdr_evd_reset(mvdr_evd_state *state);

// Accumulates one frame and returns 1. spectrum: [channels][bins - 1] packed spectra, channel by
// channel; speech_prob: [bins], 0 .. 1.
int mvdr_evd_psd_sta(mvdr_evd_state *state, const se_complex *spectrum, const float *speech_prob);

// Counts the frame that was accumulated last. Every update_interval-th frame it recomputes the
// weights, and after rescale_limit frames it rescales the sums.
void mvdr_count_frame(mvdr_evd_state *state, int32_t update_interval);

// Recomputes steering vectors, inverses and weights of bins 1 .. K-1 from the accumulators; those
// of bin 0 stay. Returns the state's weights, [K][C].
se_complex *mvdr_update_param(mvdr_evd_state *state);

#endif  // TM_SE_BF_SPATIAL_MVDR_MASK_H
