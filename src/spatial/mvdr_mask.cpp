// State and covariance tracking of the two-microphone beamformer; mvdr_mask_update.cpp has the
// weights.
#include "spatial/mvdr_mask.h"

#include <cstring>

#include "spatial/array_util.h"
#include "support/se_vector.h"

namespace {

// Accumulators hold at most 12 h of frames (at 100 frames a second) and shrink to half an hour's
// weight, so that a scene that changed after hours is learned again.
constexpr int32_t kRescaleLimitFrames = 4320000;
constexpr int32_t kRescaleTargetFrames = 180000;

constexpr float kReservedA = -0.92104f;
constexpr float kReservedB = 0.15848932f;

// Writes lane `lane` of a row per microphone.
void set_lane(complex_lanes *rows, int32_t channel, int32_t lane, se_complex value) {
  rows[channel].re[lane] = value.re;
  rows[channel].im[lane] = value.im;
}

// R_s += p x x^H and R_n += (1 - p) x x^H in one lane, x = (a + j b, c + j d).
inline void accumulate_lane(mvdr_block *__restrict block, int32_t lane, float p, float a, float b,
                            float c, float d) {
  const float q = 1.0f - p;
  const float first = a * a + b * b;
  const float second = c * c + d * d;
  const float cross_re = a * c + b * d;
  const float cross_im = b * c - a * d;
  block->speech_weight[lane] += p;
  block->noise_weight[lane] += q;
  block->speech_cov.first[lane] += p * first;
  block->speech_cov.second[lane] += p * second;
  block->speech_cov.cross.re[lane] += p * cross_re;
  block->speech_cov.cross.im[lane] += p * cross_im;
  block->noise_cov.first[lane] += q * first;
  block->noise_cov.second[lane] += q * second;
  block->noise_cov.cross.re[lane] += q * cross_re;
  block->noise_cov.cross.im[lane] += q * cross_im;
}

// x0, x1: interleaved entries of the blocks' bins in either channel.
SE_BF_VECTOR_CLONES void accumulate_blocks(mvdr_block *__restrict blocks, int32_t count,
                                           const float *__restrict x0, const float *__restrict x1,
                                           const float *__restrict prob) {
  for (int32_t b = 0; b < count; ++b) {
    const float *first = x0 + 2 * kMvdrLanes * b;
    const float *second = x1 + 2 * kMvdrLanes * b;
    for (int32_t i = 0; i < kMvdrLanes; ++i) {
      accumulate_lane(blocks + b, i, prob[kMvdrLanes * b + i], first[2 * i], first[2 * i + 1],
                      second[2 * i], second[2 * i + 1]);
    }
  }
}

void scale_lane(mvdr_block *block, int32_t lane, float factor) {
  float *const sums[] = {block->noise_weight,        block->noise_cov.first,
                         block->noise_cov.second,    block->noise_cov.cross.re,
                         block->noise_cov.cross.im,  block->speech_weight,
                         block->speech_cov.first,    block->speech_cov.second,
                         block->speech_cov.cross.re, block->speech_cov.cross.im};
  for (float *sum : sums) {
    sum[lane] *= factor;
  }
}

}  // namespace

SE_BF_RARELY_RUN mvdr_evd_state *mvdr_evd_init(int16_t channels, const se_complex *steering,
                                               int32_t bins) {
  mvdr_evd_state *state = static_cast<mvdr_evd_state *>(tamrin_malloc(sizeof(mvdr_evd_state)));
  if (state == nullptr) {
    return nullptr;
  }
  state->reserved_a = kReservedA;
  state->reserved_b = kReservedB;
  state->bins = bins;
  state->channels = channels;
  const int32_t block_bytes = mvdr_block_count(bins) * static_cast<int32_t>(sizeof(mvdr_block));
  state->unity = static_cast<float *>(tamrin_malloc(bins * static_cast<int32_t>(sizeof(float))));
  state->blocks = static_cast<mvdr_block *>(tamrin_malloc(block_bytes));
  if (state->unity == nullptr || state->blocks == nullptr || steering == nullptr ||
      channels > kBeamformerChannels) {
    return nullptr;
  }

  // The pool hands out zeroed memory: sums and off-diagonal entries are nothing.
  const float uniform = uniform_steering(channels);
  for (int32_t k = 0; k < bins; ++k) {
    mvdr_block *block = state->blocks + k / kMvdrLanes;
    const int32_t lane = k % kMvdrLanes;
    for (int32_t c = 0; c < channels; ++c) {
      set_lane(block->steering, c, lane, steering[k * channels + c]);
      set_lane(block->weights, c, lane, {uniform, 0.0f});
    }
    block->noise_cov_inv.first[lane] = 1.0f;
    block->noise_cov_inv.second[lane] = 1.0f;
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
  if (state->unity != nullptr) {
    tamrin_free(state->unity);
  }
  if (state->blocks != nullptr) {
    tamrin_free(state->blocks);
  }
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
  for (int32_t k = 1; state->channels == kBeamformerChannels && k < state->bins; ++k) {
    scale_lane(state->blocks + k / kMvdrLanes, k % kMvdrLanes, factor);
  }
  state->rescale_count = state->rescale_target;
}

int mvdr_evd_psd_sta(mvdr_evd_state *state, const se_complex *spectrum, const float *speech_prob) {
  const int32_t stride = state->bins - 1;
  if (state->channels != kBeamformerChannels || stride < kMvdrLanes || stride % kMvdrLanes != 0) {
    return 1;
  }
  const float *x0 = &spectrum->re;
  const float *x1 = x0 + 2 * stride;
  mvdr_block *blocks = state->blocks;

  // DC and Nyquist are the real and the imaginary part of each entry 0, both real: the first block
  // takes DC from a copy, and Nyquist has the first lane of the last block.
  constexpr int32_t kEntryFloats = 2 * kMvdrLanes;
  float dc0[kEntryFloats];
  float dc1[kEntryFloats];
  std::memcpy(dc0, x0, sizeof dc0);
  std::memcpy(dc1, x1, sizeof dc1);
  dc0[1] = 0.0f;
  dc1[1] = 0.0f;
  const int32_t whole = stride / kMvdrLanes;
  accumulate_blocks(blocks, 1, dc0, dc1, speech_prob);
  accumulate_blocks(blocks + 1, whole - 1, x0 + kEntryFloats, x1 + kEntryFloats,
                    speech_prob + kMvdrLanes);
  accumulate_lane(blocks + whole, 0, speech_prob[stride], x0[1], 0.0f, x1[1], 0.0f);
  return 1;
}
