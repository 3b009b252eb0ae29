// Covariance tracking and weight update of the two-microphone beamformer.
#include "spatial/mvdr_mask.h"

#include <cmath>

#include "spatial/array_util.h"
#include "spatial/matrics_cevd.h"
#include "spatial/matrics_cinv.h"

namespace {

constexpr int16_t kBeamformerChannels = 2;

// Accumulators hold at most 12 h of frames (at 100 frames a second) and shrink to half an hour's
// weight, so that a scene that changed after hours is learned again.
constexpr int32_t kRescaleLimitFrames = 4320000;
constexpr int32_t kRescaleTargetFrames = 180000;

constexpr float kReservedA = -0.92104f;
constexpr float kReservedB = 0.15848932f;

// Response of the unnormalised weights below which a bin falls back to the mean of the microphones.
constexpr double kSmallestResponse = 1e-15;

void *pool_array(int32_t count, size_t element_bytes) {
  return tamrin_malloc(count * static_cast<int32_t>(element_bytes));
}

// The matrices of one bin; the pool hands out zeroed memory.
bool create_bin_matrices(mvdr_evd_state *state, int32_t k) {
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

bool create_arrays(mvdr_evd_state *state) {
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

void scale_bin(cmat *covariance, float *weight, float factor) {
  *weight *= factor;
  cmat_mul_fval(covariance, covariance, factor);
}

// 1 / weight for a weight that can normalise a covariance, else 0. Weights that have decayed into
// denormals have no finite reciprocal: such a bin counts as one without that weight.
float usable_reciprocal(float weight) {
  if (!(weight > 0.0f)) {
    return 0.0f;
  }
  const float reciprocal = 1.0f / weight;
  return std::isfinite(reciprocal) ? reciprocal : 0.0f;
}

void refine_steering(mvdr_evd_state *state, int32_t k) {
  const float reciprocal = usable_reciprocal(state->speech_weight[k]);
  if (reciprocal == 0.0f) {
    return;
  }
  cmat normalised = {state->channels, state->scratch};
  cmat_mul_fval(&normalised, &state->speech_cov[k], reciprocal);
  chmat_principal_ev(state->steering + k * state->channels, &normalised);
}

void invert_noise(mvdr_evd_state *state, int32_t k) {
  const float reciprocal = usable_reciprocal(state->noise_weight[k]);
  if (reciprocal == 0.0f) {
    return;
  }
  cmat *inverse = &state->noise_cov_inv[k];
  cmat_mul_fval(inverse, &state->noise_cov[k], reciprocal);
  // Deliberate: a matrix that cannot be inverted stays in place and is used as it is.
  chmat_pinv(inverse, inverse);
}

bool finite_entries(const se_complex *x, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    if (!std::isfinite(x[i].re) || !std::isfinite(x[i].im)) {
      return false;
    }
  }
  return true;
}

// w = R^-1 d / (d^H R^-1 d), so that w^H d = 1; the mean of the microphones where that vanishes.
void form_weights(mvdr_evd_state *state, int32_t k) {
  const int32_t channels = state->channels;
  const se_complex *d = state->steering + k * channels;
  se_complex *w = state->weights + k * channels;
  cmat_mul_cvec(w, &state->noise_cov_inv[k], d, 0);

  float response = 0.0f;
  for (int32_t m = 0; m < channels; ++m) {
    response += d[m].re * w[m].re + d[m].im * w[m].im;
  }
  const bool vanishes = static_cast<double>(response) <= kSmallestResponse;
  if (!vanishes) {
    const float reciprocal = 1.0f / response;
    for (int32_t m = 0; m < channels; ++m) {
      w[m] = {w[m].re * reciprocal, w[m].im * reciprocal};
    }
  }
  if (vanishes || !finite_entries(w, channels)) {
    const float uniform = uniform_steering(channels);
    w[0] = {uniform, 0.0f};
    w[1] = {uniform, 0.0f};
  }
}

}  // namespace

mvdr_evd_state *mvdr_evd_init(int16_t channels, const se_complex *steering, int32_t bins) {
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

void mvdr_evd_uninit(mvdr_evd_state *state) {
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

void mvdr_evd_reset(mvdr_evd_state *state) {
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
  for (int32_t k = 0; k < state->bins; ++k) {
    se_complex *x = state->scratch;
    gather_bin(spectrum, k, state->bins, state->channels, x);

    const float speech = speech_prob[k];
    cmat_psd_with_mask(&state->speech_cov[k], speech, x);
    state->speech_weight[k] += speech;

    const float noise = 1.0f - speech;
    cmat_psd_with_mask(&state->noise_cov[k], noise, x);
    state->noise_weight[k] += noise;
  }
  return 1;
}

se_complex *mvdr_update_param(mvdr_evd_state *state) {
  if (state->channels != kBeamformerChannels) {
    return state->weights;
  }
  // Bin 0 keeps its first steering vector and weights: the beamformer removes DC.
  for (int32_t k = 1; state->use_eigen_steering == 1 && k < state->bins; ++k) {
    refine_steering(state, k);
  }
  for (int32_t k = 1; k < state->bins; ++k) {
    invert_noise(state, k);
    form_weights(state, k);
  }
  return state->weights;
}
