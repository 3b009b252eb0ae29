// Weight update of the two-microphone beamformer: steering, inverse noise covariance, weights.
//
// Bins are worked on eight at a time, each quantity in an array over the bins, so that the closed
// forms of matrics_cevd.h and matrics_cinv.h run on vectors.
#include <cfloat>

#include "spatial/array_util.h"
#include "spatial/matrics_cevd.h"
#include "spatial/matrics_cinv.h"
#include "spatial/mvdr_mask.h"
#include "support/se_vector.h"

namespace {

constexpr int32_t kBlockBins = 8;

// Response of the unnormalised weights below which a bin falls back to the mean of the microphones.
constexpr double kSmallestResponse = 1e-15;

// Bins first .. first + count - 1; lanes from count on repeat the last bin.
struct bin_range {
  int32_t first;
  int32_t count;
};

// One complex value per bin.
struct complex_row {
  float re[kBlockBins];
  float im[kBlockBins];
};

// A matrix with a real diagonal per bin: ((a, upper), (lower, d)).
struct matrix_row {
  float a[kBlockBins];
  float d[kBlockBins];
  complex_row upper;
  complex_row lower;
};

struct update_block {
  float speech_weight[kBlockBins];
  float noise_weight[kBlockBins];
  matrix_row speech;  // covariance
  matrix_row noise;   // covariance; for bins without a usable weight the inverse of earlier updates
  matrix_row inverse;  // of the normalised noise covariance
  complex_row steering[2];
  complex_row weights[2];
};

inline void load_complex(se_complex value, int32_t lane, complex_row *row) {
  row->re[lane] = value.re;
  row->im[lane] = value.im;
}

inline se_complex lane_of(const complex_row *row, int32_t lane) {
  return {row->re[lane], row->im[lane]};
}

inline void load_matrix(const cmat *matrix, int32_t lane, matrix_row *row) {
  row->a[lane] = matrix->data[0].re;
  load_complex(matrix->data[1], lane, &row->upper);
  load_complex(matrix->data[2], lane, &row->lower);
  row->d[lane] = matrix->data[3].re;
}

inline void store_matrix(const matrix_row *row, int32_t lane, const cmat *matrix) {
  matrix->data[0] = {row->a[lane], 0.0f};
  matrix->data[1] = lane_of(&row->upper, lane);
  matrix->data[2] = lane_of(&row->lower, lane);
  matrix->data[3] = {row->d[lane], 0.0f};
}

// Whether a weight sum can normalise its covariance. One that has decayed into denormals has no
// finite reciprocal: such a bin counts as one without that weight.
inline bool usable(float weight, float reciprocal) {
  return weight > 0.0f && reciprocal <= FLT_MAX;
}

void load_block(const mvdr_evd_state *state, bin_range range, update_block *block) {
  for (int32_t lane = 0; lane < kBlockBins; ++lane) {
    const int32_t k = range.first + (lane < range.count ? lane : range.count - 1);
    const float noise_weight = state->noise_weight[k];
    const bool heard = usable(noise_weight, 1.0f / noise_weight);
    const cmat *noise = heard ? state->noise_cov : state->noise_cov_inv;
    const se_complex *steering = state->steering + k * kBeamformerChannels;
    block->speech_weight[lane] = state->speech_weight[k];
    block->noise_weight[lane] = noise_weight;
    load_matrix(state->speech_cov + k, lane, &block->speech);
    load_matrix(noise + k, lane, &block->noise);
    load_complex(steering[0], lane, &block->steering[0]);
    load_complex(steering[1], lane, &block->steering[1]);
  }
}

void store_block(const update_block *block, bin_range range, const mvdr_evd_state *state) {
  for (int32_t lane = 0; lane < range.count; ++lane) {
    const int32_t k = range.first + lane;
    se_complex *steering = state->steering + k * kBeamformerChannels;
    se_complex *weights = state->weights + k * kBeamformerChannels;
    store_matrix(&block->inverse, lane, state->noise_cov_inv + k);
    steering[0] = lane_of(&block->steering[0], lane);
    steering[1] = lane_of(&block->steering[1], lane);
    weights[0] = lane_of(&block->weights[0], lane);
    weights[1] = lane_of(&block->weights[1], lane);
  }
}

// Steering vector of each bin: the principal eigenvector of its normalised speech covariance.
SE_BF_VECTOR_CLONES void refine_steering(update_block *__restrict block) {
  const matrix_row *speech = &block->speech;
  complex_row *d = block->steering;
  for (int32_t i = 0; i < kBlockBins; ++i) {
    const float r = 1.0f / block->speech_weight[i];
    const bool heard = usable(block->speech_weight[i], r);
    const chmat_eigenvector v = chmat_principal_ev_of(
        speech->a[i] * r, speech->d[i] * r, {speech->upper.re[i] * r, speech->upper.im[i] * r});
    d[0].re[i] = heard ? v.first.re : d[0].re[i];
    d[0].im[i] = heard ? v.first.im : d[0].im[i];
    d[1].re[i] = heard ? v.second : d[1].re[i];
    d[1].im[i] = heard ? 0.0f : d[1].im[i];
  }
}

// Inverse of each bin's normalised noise covariance. Deliberate: a matrix that has no inverse stays
// as it is, normalised, and is used in place of one.
SE_BF_VECTOR_CLONES void invert_noise(update_block *__restrict block) {
  const matrix_row *noise = &block->noise;
  matrix_row *out = &block->inverse;
  for (int32_t i = 0; i < kBlockBins; ++i) {
    const float reciprocal = 1.0f / block->noise_weight[i];
    const bool heard = usable(block->noise_weight[i], reciprocal);
    const float r = heard ? reciprocal : 1.0f;
    const float a = noise->a[i] * r;
    const float d = noise->d[i] * r;
    const se_complex upper = {noise->upper.re[i] * r, noise->upper.im[i] * r};
    const se_complex lower = {noise->lower.re[i] * r, noise->lower.im[i] * r};
    const chmat_inverse inverse = chmat_pinv_of(a, d, upper, lower);
    const bool invert = heard && inverse.exists;
    out->a[i] = invert ? inverse.a : a;
    out->d[i] = invert ? inverse.d : d;
    out->upper.re[i] = invert ? inverse.c.re : upper.re;
    out->upper.im[i] = invert ? -inverse.c.im : upper.im;
    out->lower.re[i] = invert ? inverse.c.re : lower.re;
    out->lower.im[i] = invert ? inverse.c.im : lower.im;
  }
}

// w = R^-1 d / (d^H R^-1 d), so that w^H d = 1; the mean of the microphones where that vanishes or
// is not finite.
SE_BF_VECTOR_CLONES void form_weights(update_block *__restrict block, float uniform) {
  const matrix_row *inverse = &block->inverse;
  complex_row *w = block->weights;
  for (int32_t i = 0; i < kBlockBins; ++i) {
    const se_complex d0 = {block->steering[0].re[i], block->steering[0].im[i]};
    const se_complex d1 = {block->steering[1].re[i], block->steering[1].im[i]};
    const se_complex r01 = {inverse->upper.re[i], inverse->upper.im[i]};
    const se_complex r10 = {inverse->lower.re[i], inverse->lower.im[i]};
    const se_complex u0 =
        complex_add(complex_mul_complex({inverse->a[i], 0.0f}, d0), complex_mul_complex(r01, d1));
    const se_complex u1 =
        complex_add(complex_mul_complex(r10, d0), complex_mul_complex({inverse->d[i], 0.0f}, d1));

    const float first = 0.0f + (d0.re * u0.re + d0.im * u0.im);
    const float response = first + (d1.re * u1.re + d1.im * u1.im);
    const float r = 1.0f / response;
    const se_complex w0 = {u0.re * r, u0.im * r};
    const se_complex w1 = {u1.re * r, u1.im * r};
    const float residue = se_finite_residue(w0.re) + se_finite_residue(w0.im) +
                          se_finite_residue(w1.re) + se_finite_residue(w1.im);
    const bool answers = static_cast<double>(response) > kSmallestResponse;
    const bool use = answers && residue == 0.0f;
    w[0].re[i] = use ? w0.re : uniform;
    w[0].im[i] = use ? w0.im : 0.0f;
    w[1].re[i] = use ? w1.re : uniform;
    w[1].im[i] = use ? w1.im : 0.0f;
  }
}

}  // namespace

se_complex *mvdr_update_param(mvdr_evd_state *state) {
  if (state->channels != kBeamformerChannels) {
    return state->weights;
  }
  const float uniform = uniform_steering(state->channels);
  const bool steer = state->use_eigen_steering == 1;
  // Bin 0 keeps its first steering vector and weights: the beamformer removes DC.
  for (int32_t k = 1; k < state->bins; k += kBlockBins) {
    const int32_t left = state->bins - k;
    const bin_range range = {k, left < kBlockBins ? left : kBlockBins};
    update_block block;
    load_block(state, range, &block);
    if (steer) {
      refine_steering(&block);
    }
    invert_noise(&block);
    form_weights(&block, uniform);
    store_block(&block, range, state);
  }
  return state->weights;
}
