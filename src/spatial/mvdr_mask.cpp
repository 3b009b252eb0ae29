// State and covariance tracking of the two-microphone beamformer; mvdr_mask_update.cpp has the
// weights.
#include "spatial/mvdr_mask.h"

#include <cstring>

#include "spatial/array_util.h"
#include "support/pool_vector.h"
#include "support/se_vector.h"

namespace {

// After 12 h (at 100 frames a second) the accumulators are scaled down to the weight of half an
// hour, so that a scene that changes after hours can still be learned.
constexpr int32_t kRescaleLimitFrames = 4320000;
constexpr int32_t kRescaleTargetFrames = 180000;

constexpr float kReservedA = -0.92104f;
constexpr float kReservedB = 0.15848932f;

// R_s += p x x^H and R_n += (1 - p) x x^H in one lane, x = (a + j b, c + j d).
inline void accumulate_lane(mvdr_block *__restrict block, int32_t lane, float p, float a, float b,
                            float c, float d) {
  const float q = 1.0f - p;
  const float first = a * a + b * b;
  const float second = c * c + d * d;
  const float cross_re = a * c + b * d;
  const float cross_im = b * c - a * d;
  block->speech_cov.first[lane] += p * first;
  block->speech_cov.second[lane] += p * second;
  block->speech_cov.cross_re[lane] += p * cross_re;
  block->speech_cov.cross_im[lane] += p * cross_im;
  block->noise_cov.first[lane] += q * first;
  block->noise_cov.second[lane] += q * second;
  block->noise_cov.cross_re[lane] += q * cross_re;
  block->noise_cov.cross_im[lane] += q * cross_im;
}

// Accumulates `count` whole blocks. x0, x1: interleaved complex entries of their bins in channels 0
// and 1.
SE_BF_VECTOR_CLONES void accumulate_blocks(mvdr_block *__restrict blocks,
                                           float *__restrict speech_weight,
                                           float *__restrict noise_weight, int32_t count,
                                           const float *__restrict x0, const float *__restrict x1,
                                           const float *__restrict prob) {
  for (int32_t b = 0; b < count; ++b) {
    for (int32_t i = 0; i < kMvdrLanes; ++i) {
      const int32_t k = kMvdrLanes * b + i;
      speech_weight[k] += prob[k];
      noise_weight[k] += 1.0f - prob[k];
      accumulate_lane(blocks + b, i, prob[k], x0[2 * k], x0[2 * k + 1], x1[2 * k], x1[2 * k + 1]);
    }
  }
}

// The same for bin k alone.
SE_BF_RARELY_RUN void accumulate_bin(mvdr_evd_state *state, int32_t k, float p, se_complex x0,
                                     se_complex x1) {
  state->speech_weight[k] += p;
  state->noise_weight[k] += 1.0f - p;
  accumulate_lane(state->blocks + k / kMvdrLanes, k % kMvdrLanes, p, x0.re, x0.im, x1.re, x1.im);
}

SE_BF_RARELY_RUN void scale_lane(hermitian_lanes *sums, int32_t lane, float factor) {
  sums->first[lane] *= factor;
  sums->second[lane] *= factor;
  sums->cross_re[lane] *= factor;
  sums->cross_im[lane] *= factor;
}

}  // namespace

SE_BF_RARELY_RUN mvdr_evd_state *mvdr_evd_init_in(core_state *core, int16_t channels,
                                                  const se_complex *steering, int32_t bins) {
  mvdr_evd_state *state =
      static_cast<mvdr_evd_state *>(tamrin_malloc_in(core, sizeof(mvdr_evd_state)));
  if (state == nullptr) {
    return nullptr;
  }
  state->reserved_a = kReservedA;
  state->reserved_b = kReservedB;
  state->bins = bins;
  state->channels = channels;
  const int32_t block_count = mvdr_block_count(bins);
  const int32_t lanes = block_count * kMvdrLanes;
  state->speech_weight = pool_floats(core, lanes);
  state->noise_weight = pool_floats(core, lanes);
  state->unity = pool_floats(core, bins);
  state->weights = pool_complex(core, lanes * channels);
  state->steering = pool_complex(core, lanes * channels);
  const int32_t block_bytes = block_count * static_cast<int32_t>(sizeof(mvdr_block));
  state->blocks = static_cast<mvdr_block *>(tamrin_malloc_in(core, block_bytes));
  const bool complete = state->speech_weight != nullptr && state->noise_weight != nullptr &&
                        state->unity != nullptr && state->weights != nullptr &&
                        state->steering != nullptr && state->blocks != nullptr;
  if (!complete || steering == nullptr || channels > kBeamformerChannels) {
    return nullptr;
  }

  // The pool hands out zeroed memory: sums and off-diagonal entries start at zero.
  const float uniform = uniform_steering(channels);
  for (int32_t i = 0; i < bins * channels; ++i) {
    state->steering[i] = steering[i];
    state->weights[i] = {uniform, 0.0f};
  }
  for (int32_t k = 0; k < bins; ++k) {
    hermitian_lanes *inverse = &state->blocks[k / kMvdrLanes].noise_cov_inv;
    inverse->first[k % kMvdrLanes] = 1.0f;
    inverse->second[k % kMvdrLanes] = 1.0f;
    state->unity[k] = 1.0f;
  }
  state->use_eigen_steering = 1;
  state->rescale_limit = kRescaleLimitFrames;
  state->rescale_target = kRescaleTargetFrames;
  return state;
}

SE_BF_RARELY_RUN void mvdr_evd_uninit(mvdr_evd_state *state) {
  if (state == nullptr) {
    return;
  }
  pool_release(state->speech_weight);
  pool_release(state->noise_weight);
  pool_release(state->unity);
  pool_release(state->weights);
  pool_release(state->steering);
  pool_release(state->blocks);
  tamrin_free(state);
}

SE_BF_RARELY_RUN void mvdr_evd_reset(mvdr_evd_state *state) {
  if (state == nullptr) {
    return;
  }
  const float factor = state->rescale_count >= 1 ? static_cast<float>(state->rescale_target) /
                                                       static_cast<float>(state->rescale_count)
                                                 : 0.0f;
  for (int32_t k = 0; k < state->bins; ++k) {
    state->unity[k] = 1.0f;
  }
  // Bin 0 is left out deliberately: no weight is ever computed from its sums.
  for (int32_t k = 1; k < state->bins; ++k) {
    mvdr_block *block = state->blocks + k / kMvdrLanes;
    state->noise_weight[k] *= factor;
    scale_lane(&block->noise_cov, k % kMvdrLanes, factor);
    state->speech_weight[k] *= factor;
    scale_lane(&block->speech_cov, k % kMvdrLanes, factor);
  }
  state->rescale_count = state->rescale_target;
}

int mvdr_evd_psd_sta(mvdr_evd_state *state, const se_complex *spectrum, const float *speech_prob) {
  if (state->channels != kBeamformerChannels || state->bins < 1) {
    return 1;
  }
  const int32_t nyquist = state->bins - 1;
  const se_complex *x0 = spectrum;
  const se_complex *x1 = spectrum + nyquist;

  // Entry 0 of each channel holds two real bins: DC in its real part and Nyquist in its imaginary
  // part. The first block is therefore accumulated from a copy with DC alone in entry 0; Nyquist
  // follows at the end.
  const int32_t whole = nyquist / kMvdrLanes;
  if (whole > 0) {
    se_complex first0[kMvdrLanes];
    se_complex first1[kMvdrLanes];
    std::memcpy(first0, x0, sizeof first0);
    std::memcpy(first1, x1, sizeof first1);
    first0[0].im = 0.0f;
    first1[0].im = 0.0f;
    accumulate_blocks(state->blocks, state->speech_weight, state->noise_weight, 1, &first0->re,
                      &first1->re, speech_prob);
    accumulate_blocks(state->blocks + 1, state->speech_weight + kMvdrLanes,
                      state->noise_weight + kMvdrLanes, whole - 1, &x0[kMvdrLanes].re,
                      &x1[kMvdrLanes].re, speech_prob + kMvdrLanes);
  } else {
    accumulate_bin(state, 0, speech_prob[0], {x0->re, 0.0f}, {x1->re, 0.0f});
  }
  for (int32_t k = whole > 0 ? whole * kMvdrLanes : 1; k < nyquist; ++k) {
    accumulate_bin(state, k, speech_prob[k], x0[k], x1[k]);
  }
  if (nyquist > 0) {
    accumulate_bin(state, nyquist, speech_prob[nyquist], {x0->im, 0.0f}, {x1->im, 0.0f});
  }
  return 1;
}
