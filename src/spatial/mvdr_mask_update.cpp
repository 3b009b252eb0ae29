// Weight update of the two-microphone beamformer: steering, inverse noise covariance, weights.
//
// Blocks of bins are worked on at a time, so that the closed forms of matrics_cevd.h and
// matrics_cinv.h run on vectors.
#include <cfloat>
#include <cstring>

#include "spatial/array_util.h"
#include "spatial/matrics_cevd.h"
#include "spatial/matrics_cinv.h"
#include "spatial/mvdr_mask.h"
#include "support/se_vector.h"

namespace {

// Response of the unnormalised weights up to which a bin falls back to the scaled sum of the
// microphones.
constexpr double kSmallestResponse = 1e-15;

// Whether a weight sum can normalise its covariance. One that has decayed into denormals has no
// finite reciprocal: such a bin counts as one without that weight.
inline bool usable(float weight, float reciprocal) {
  return weight > 0.0f && reciprocal <= FLT_MAX;
}

// Steering vector of each bin: the principal eigenvector of its normalised speech covariance.
SE_BF_VECTOR_CLONES void refine_steering(mvdr_block *__restrict block) {
  const hermitian_lanes *speech = &block->speech_cov;
  complex_lanes *d = block->steering;
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    const float r = 1.0f / block->speech_weight[i];
    const bool heard = usable(block->speech_weight[i], r);
    const chmat_eigenvector v =
        chmat_principal_ev_of(speech->first[i] * r, speech->second[i] * r,
                              {speech->cross.re[i] * r, speech->cross.im[i] * r});
    d[0].re[i] = heard ? v.first.re : d[0].re[i];
    d[0].im[i] = heard ? v.first.im : d[0].im[i];
    d[1].re[i] = heard ? v.second : d[1].re[i];
    d[1].im[i] = heard ? 0.0f : d[1].im[i];
  }
}

// Inverse of each bin's normalised noise covariance. Deliberate: a matrix that has no inverse stays
// as it is, normalised, and is used in place of one. Without a usable weight the inverse of earlier
// updates stays.
SE_BF_VECTOR_CLONES void invert_noise(mvdr_block *__restrict block) {
  const hermitian_lanes *noise = &block->noise_cov;
  hermitian_lanes *out = &block->noise_cov_inv;
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    const float r = 1.0f / block->noise_weight[i];
    const bool heard = usable(block->noise_weight[i], r);
    const float a = noise->first[i] * r;
    const float d = noise->second[i] * r;
    const se_complex b = {noise->cross.re[i] * r, noise->cross.im[i] * r};
    const chmat_inverse inverse = chmat_pinv_of(a, d, b, b.re);
    const float first = inverse.exists ? inverse.a : a;
    const float second = inverse.exists ? inverse.d : d;
    const float cross_re = inverse.exists ? inverse.c.re : b.re;
    const float cross_im = inverse.exists ? -inverse.c.im : b.im;
    out->first[i] = heard ? first : out->first[i];
    out->second[i] = heard ? second : out->second[i];
    out->cross.re[i] = heard ? cross_re : out->cross.re[i];
    out->cross.im[i] = heard ? cross_im : out->cross.im[i];
  }
}

// w = R^-1 d / (d^H R^-1 d), so that w^H d = 1; the scaled sum of the microphones where that
// vanishes or is not finite.
SE_BF_VECTOR_CLONES void form_weights(mvdr_block *__restrict block, float uniform) {
  const hermitian_lanes *inverse = &block->noise_cov_inv;
  const complex_lanes *d = block->steering;
  complex_lanes *w = block->weights;
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    const se_complex d0 = {d[0].re[i], d[0].im[i]};
    const se_complex d1 = {d[1].re[i], d[1].im[i]};
    const se_complex upper = {inverse->cross.re[i], inverse->cross.im[i]};
    const se_complex lower = {inverse->cross.re[i], -inverse->cross.im[i]};
    const se_complex u0 = complex_add(complex_mul_complex({inverse->first[i], 0.0f}, d0),
                                      complex_mul_complex(upper, d1));
    const se_complex u1 = complex_add(complex_mul_complex(lower, d0),
                                      complex_mul_complex({inverse->second[i], 0.0f}, d1));

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

const mvdr_block *mvdr_update_param(mvdr_evd_state *state) {
  mvdr_block *blocks = state->blocks;
  if (state->channels != kBeamformerChannels || state->bins < 2) {
    return blocks;
  }
  const float uniform = uniform_steering(state->channels);
  const bool steer = state->use_eigen_steering == 1;
  // Bin 0 keeps its first steering vector and weights: the beamformer removes DC. Its lane is
  // worked on with the others and put back.
  constexpr size_t kBlockFloats = sizeof(mvdr_block) / sizeof(float);
  float before[kBlockFloats];
  std::memcpy(before, blocks, sizeof before);
  for (int32_t b = 0; b < mvdr_block_count(state->bins); ++b) {
    if (steer) {
      refine_steering(blocks + b);
    }
    invert_noise(blocks + b);
    form_weights(blocks + b, uniform);
  }
  float *first_lane = reinterpret_cast<float *>(blocks);
  for (size_t row = 0; row < kBlockFloats; row += kMvdrLanes) {
    first_lane[row] = before[row];
  }
  return blocks;
}
