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

void *pool_array(int32_t count, size_t element_bytes) {
  return tamrin_malloc(count * static_cast<int32_t>(element_bytes));
}

// The matrices of one bin; the pool hands out zeroed memory.
SE_BF_RARELY_RUN bool create_bin_matrices(mvdr_evd_state *state, int32_t k) {
  const int32_t dim = state->channels;
  cmat *const matrices[] = {state->noise_cov_inv + k, state->noise_cov + k, state->speech_cov + k};
  for (cmat *matrix : matrices) {
    matrix->dim = dim;
    matrix->data = static_cast<se_complex *>(pool_array(dim * dim, sizeof(se_complex)));
    if (matrix->data == nullptr) {
      return false;
    }
  }
  for (int32_t i = 0; i < dim; ++i) {
    state->noise_cov_inv[k].data[i * dim + i] = {1.0f, 0.0f};
  }
  return true;
}

SE_BF_RARELY_RUN bool create_arrays(mvdr_evd_state *state) {
  const int32_t bins = state->bins;
  const int32_t channels = state->channels;
  state->speech_weight = static_cast<float *>(pool_array(bins, sizeof(float)));
  state->noise_weight = static_cast<float *>(pool_array(bins, sizeof(float)));
  state->unity = static_cast<float *>(pool_array(bins, sizeof(float)));
  state->weights = static_cast<se_complex *>(pool_array(bins * channels, sizeof(se_complex)));
  state->steering = static_cast<se_complex *>(pool_array(bins * channels, sizeof(se_complex)));
  state->scratch = static_cast<se_complex *>(pool_array(channels * channels, sizeof(se_complex)));
  state->noise_cov_inv = static_cast<cmat *>(pool_array(bins, sizeof(cmat)));
  state->noise_cov = static_cast<cmat *>(pool_array(bins, sizeof(cmat)));
  state->speech_cov = static_cast<cmat *>(pool_array(bins, sizeof(cmat)));
  return state->speech_weight != nullptr && state->noise_weight != nullptr &&
         state->unity != nullptr && state->weights != nullptr && state->steering != nullptr &&
         state->scratch != nullptr && state->noise_cov_inv != nullptr &&
         state->noise_cov != nullptr && state->speech_cov != nullptr;
}

// Channel vector of bin k. DC and Nyquist are the real and imaginary part of each entry 0, both
// real.
void gather_bin(const se_complex *spectrum, int32_t k, int32_t bins, int32_t channels,
                se_complex *x) {
  const int32_t stride = bins - 1;
  for (int32_t c = 0; c < channels; ++c) {
    const se_complex *channel = spectrum + c * stride;
    if (k == 0) {
      x[c] = {channel[0].re, 0.0f};
    } else if (k == stride) {
      x[c] = {channel[0].im, 0.0f};
    } else {
      x[c] = channel[k];
    }
  }
}

// A 2-by-2 matrix as eight floats, and the distinct parts of an outer product.
using matrix_lanes = float __attribute__((vector_size(32)));
using product_lanes = float __attribute__((vector_size(16)));

// Bins of a block that are written out. Small builds without AVX2 spend a few instructions on a
// loop.
#if defined(TM_SE_BF_USE_AVX2)
constexpr int32_t kBlockUnroll = 8;
#else
constexpr int32_t kBlockUnroll = 4;
#endif

// The distinct parts of x x^H per bin: |x0|^2, |x1|^2, real and imaginary part of x0 conj(x1).
constexpr int32_t kBlockBins = 8;
constexpr int32_t kProductParts = 4;

// x0, x1: interleaved entries of the block's bins in either channel.
inline void form_products(const float *__restrict x0, const float *__restrict x1,
                          float *__restrict products) {
  for (int32_t i = 0; i < kBlockBins; ++i) {
    const float a = x0[2 * i];
    const float b = x0[2 * i + 1];
    const float c = x1[2 * i];
    const float d = x1[2 * i + 1];
    products[kProductParts * i] = a * a + b * b;
    products[kProductParts * i + 1] = c * c + d * d;
    products[kProductParts * i + 2] = a * c + b * d;
    products[kProductParts * i + 3] = b * c - a * d;
  }
}

// Entry 0 of a packed spectrum is not a bin: its real part alone is DC.
inline void form_dc_product(float first, float second, float *products) {
  products[0] = first * first;
  products[1] = second * second;
  products[2] = first * second;
  products[3] = 0.0f;
}

// R_s += p x x^H and R_n += (1 - p) x x^H. Imaginary parts of the diagonals receive zeros.
inline void accumulate_products(const float *parts, float p, const cmat *speech,
                                const cmat *noise) {
  constexpr product_lanes kZero = {0.0f, 0.0f, 0.0f, 0.0f};
  constexpr matrix_lanes kConjugate = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, -1.0f, 1.0f, 1.0f};
  product_lanes lanes;
  matrix_lanes speech_lanes;
  matrix_lanes noise_lanes;
  std::memcpy(&lanes, parts, sizeof lanes);
  std::memcpy(&speech_lanes, speech->data, sizeof speech_lanes);
  std::memcpy(&noise_lanes, noise->data, sizeof noise_lanes);

  const matrix_lanes product =
      kConjugate * __builtin_shufflevector(lanes, kZero, 0, 4, 2, 3, 2, 3, 1, 4);
  speech_lanes += p * product;
  noise_lanes += (1.0f - p) * product;
  std::memcpy(speech->data, &speech_lanes, sizeof speech_lanes);
  std::memcpy(noise->data, &noise_lanes, sizeof noise_lanes);
}

// Bins 0 .. kBlockBins * blocks - 1 of two packed spectra.
SE_BF_VECTOR_CLONES void accumulate_blocks(const mvdr_evd_state *state, const float *spectrum,
                                           const float *speech_prob, int32_t blocks) {
  const int32_t stride = state->bins - 1;
  const cmat *speech = state->speech_cov;
  const cmat *noise = state->noise_cov;
  for (int32_t k = 0; k < blocks * kBlockBins; k += kBlockBins) {
    float products[kBlockBins * kProductParts];
    form_products(spectrum + 2 * k, spectrum + 2 * (stride + k), products);
    if (k == 0) {
      form_dc_product(spectrum[0], spectrum[2 * stride], products);
    }
#pragma GCC unroll kBlockUnroll
    for (int32_t i = 0; i < kBlockBins; ++i) {
      accumulate_products(products + kProductParts * i, speech_prob[k + i], speech + k + i,
                          noise + k + i);
    }
  }
}

void accumulate_bin(mvdr_evd_state *state, const se_complex *spectrum, const float *speech_prob,
                    int32_t k) {
  gather_bin(spectrum, k, state->bins, state->channels, state->scratch);
  cmat_psd_with_mask(&state->speech_cov[k], speech_prob[k], state->scratch);
  cmat_psd_with_mask(&state->noise_cov[k], 1.0f - speech_prob[k], state->scratch);
}

SE_BF_VECTOR_CLONES void add_weights(const mvdr_evd_state *state, const float *__restrict prob) {
  const int32_t bins = state->bins;
  float *__restrict speech = state->speech_weight;
  float *__restrict noise = state->noise_weight;
  for (int32_t k = 0; k < bins; ++k) {
    speech[k] += prob[k];
    noise[k] += 1.0f - prob[k];
  }
}

void scale_bin(cmat *covariance, float *weight, float factor) {
  *weight *= factor;
  cmat_mul_fval(covariance, covariance, factor);
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
  if (!create_arrays(state) || steering == nullptr) {
    return nullptr;
  }
  for (int32_t k = 0; k < bins; ++k) {
    if (!create_bin_matrices(state, k)) {
      return nullptr;
    }
  }

  const float uniform = uniform_steering(channels);
  for (int32_t k = 0; k < bins; ++k) {
    state->unity[k] = 1.0f;
  }
  for (int32_t i = 0; i < bins * channels; ++i) {
    state->steering[i] = steering[i];
    state->weights[i] = {uniform, 0.0f};
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
  const void *const members[] = {state->speech_weight, state->noise_weight, state->unity,
                                 state->weights,       state->steering,     state->scratch};
  for (const void *member : members) {
    if (member != nullptr) {
      tamrin_free(member);
    }
  }
  const cmat *const matrices[] = {state->noise_cov_inv, state->noise_cov, state->speech_cov};
  for (const cmat *matrix : matrices) {
    for (int32_t k = 0; matrix != nullptr && k < state->bins; ++k) {
      tamrin_free(matrix[k].data);
    }
    if (matrix != nullptr) {
      tamrin_free(matrix);
    }
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
    scale_bin(&state->noise_cov[k], &state->noise_weight[k], factor);
    scale_bin(&state->speech_cov[k], &state->speech_weight[k], factor);
  }
  state->rescale_count = state->rescale_target;
}

int mvdr_evd_psd_sta(mvdr_evd_state *state, const se_complex *spectrum, const float *speech_prob) {
  if (state->channels != kBeamformerChannels) {
    return 1;
  }
  // Whole blocks of bins at a time, and one by one Nyquist and what no block holds.
  const int32_t blocks = (state->bins - 1) / kBlockBins;
  accumulate_blocks(state, reinterpret_cast<const float *>(spectrum), speech_prob, blocks);
  for (int32_t k = blocks * kBlockBins; k < state->bins; ++k) {
    accumulate_bin(state, spectrum, speech_prob, k);
  }
  add_weights(state, speech_prob);
  return 1;
}
