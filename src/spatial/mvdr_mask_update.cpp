// Weight update of the two-microphone beamformer: steering, inverse noise covariance, weights.
//
// One block of bins is processed at a time, so that the closed forms of matrics_cevd.h and
// matrics_cinv.h become vector instructions.
#include <cfloat>

#include "spatial/array_util.h"
#include "spatial/matrics_cevd.h"
#include "spatial/matrics_cinv.h"
#include "spatial/mvdr_mask.h"
#include "support/se_vector.h"

namespace {

// Smallest usable response d^H R^-1 d of the unnormalised weights. A bin whose response is not
// above it falls back to the scaled sum of the microphones.
constexpr double kSmallestResponse = 1e-15;

// Whether a covariance can be normalised by its weight sum. A weight sum that has decayed so far
// into the denormals that its reciprocal is not finite counts as zero.
inline bool usable(float weight, float reciprocal) {
  return weight > 0.0f && reciprocal <= FLT_MAX;
}

// One complex value per bin of a block.
struct complex_lanes {
  float re[kMvdrLanes];
  float im[kMvdrLanes];
};

// Convert the vectors of a block, [bin][microphone], to one record of lanes per microphone, and
// back. The functions that update_block calls are inlined, so that each of its clones has them for
// its own vectors. from_lanes is not: update_block calls it twice, and the code would grow more
// than the time would fall.
[[gnu::always_inline]] inline void to_lanes(const se_complex *__restrict vectors,
                                            complex_lanes *__restrict lanes) {
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    lanes[0].re[i] = vectors[2 * i].re;
    lanes[0].im[i] = vectors[2 * i].im;
    lanes[1].re[i] = vectors[2 * i + 1].re;
    lanes[1].im[i] = vectors[2 * i + 1].im;
  }
}

[[gnu::noinline]] void from_lanes(const complex_lanes *__restrict lanes,
                                  se_complex *__restrict vectors) {
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    vectors[2 * i] = {lanes[0].re[i], lanes[0].im[i]};
    vectors[2 * i + 1] = {lanes[1].re[i], lanes[1].im[i]};
  }
}

// Steering vector d of each bin: the principal eigenvector of its normalised speech covariance.
[[gnu::always_inline]] inline void refine_steering(const hermitian_lanes *__restrict speech,
                                                   const float *__restrict weight,
                                                   complex_lanes *__restrict d) {
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    const float r = 1.0f / weight[i];
    const bool heard = usable(weight[i], r);
    const chmat_eigenvector v =
        chmat_principal_ev_of(speech->first[i] * r, speech->second[i] * r,
                              {speech->cross_re[i] * r, speech->cross_im[i] * r});
    d[0].re[i] = heard ? v.first.re : d[0].re[i];
    d[0].im[i] = heard ? v.first.im : d[0].im[i];
    d[1].re[i] = heard ? v.second : d[1].re[i];
    d[1].im[i] = heard ? 0.0f : d[1].im[i];
  }
}

// Inverse of each bin's normalised noise covariance. Deliberate: where there is no inverse, the
// normalised matrix itself takes its place. Without a usable weight sum the inverse of the last
// update stays.
[[gnu::always_inline]] inline void invert_noise(const hermitian_lanes *__restrict noise,
                                                const float *__restrict weight,
                                                hermitian_lanes *__restrict out) {
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    const float r = 1.0f / weight[i];
    const bool heard = usable(weight[i], r);
    const float a = noise->first[i] * r;
    const float d = noise->second[i] * r;
    const se_complex b = {noise->cross_re[i] * r, noise->cross_im[i] * r};
    const chmat_inverse inverse = chmat_pinv_of(a, d, b, b.re);
    const float first = inverse.exists ? inverse.a : a;
    const float second = inverse.exists ? inverse.d : d;
    const float cross_re = inverse.exists ? inverse.c.re : b.re;
    const float cross_im = inverse.exists ? -inverse.c.im : b.im;
    out->first[i] = heard ? first : out->first[i];
    out->second[i] = heard ? second : out->second[i];
    out->cross_re[i] = heard ? cross_re : out->cross_re[i];
    out->cross_im[i] = heard ? cross_im : out->cross_im[i];
  }
}

// w = R^-1 d / (d^H R^-1 d), so that w^H d = 1. Where the denominator vanishes or w is not finite,
// the scaled sum of the microphones.
[[gnu::always_inline]] inline void form_weights(const hermitian_lanes *__restrict inverse,
                                                const complex_lanes *__restrict d, float uniform,
                                                complex_lanes *__restrict w) {
  for (int32_t i = 0; i < kMvdrLanes; ++i) {
    const se_complex d0 = {d[0].re[i], d[0].im[i]};
    const se_complex d1 = {d[1].re[i], d[1].im[i]};
    const se_complex upper = {inverse->cross_re[i], inverse->cross_im[i]};
    const se_complex lower = {inverse->cross_re[i], -inverse->cross_im[i]};
    const se_complex u0 = complex_add(complex_mul_complex({inverse->first[i], 0.0f}, d0),
                                      complex_mul_complex(upper, d1));
    const se_complex u1 = complex_add(complex_mul_complex(lower, d0),
                                      complex_mul_complex({inverse->second[i], 0.0f}, d1));

    // The sum over the microphones starts with 0, which makes a negative zero in the first term
    // positive.
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

// Updates one block: the steering vectors if `steer`, then the inverses of the noise covariances
// and the weights.
SE_BF_VECTOR_CLONES void update_block(mvdr_block *__restrict block, const float *speech_weight,
                                      const float *noise_weight, bool steer,
                                      se_complex *__restrict steering,
                                      se_complex *__restrict weights, float uniform) {
  complex_lanes d[kBeamformerChannels];
  complex_lanes w[kBeamformerChannels];
  to_lanes(steering, d);
  if (steer) {
    refine_steering(&block->speech_cov, speech_weight, d);
    from_lanes(d, steering);
  }
  invert_noise(&block->noise_cov, noise_weight, &block->noise_cov_inv);
  form_weights(&block->noise_cov_inv, d, uniform, w);
  from_lanes(w, weights);
}

// The results of bin 0, which the update of block 0 overwrites and must restore.
struct first_bin {
  se_complex steering[kBeamformerChannels];
  se_complex weights[kBeamformerChannels];
  float inverse[4];  // first, second, real and imaginary part of cross
};

first_bin get_first_bin(const mvdr_evd_state *state) {
  const hermitian_lanes *inverse = &state->blocks->noise_cov_inv;
  return {{state->steering[0], state->steering[1]},
          {state->weights[0], state->weights[1]},
          {inverse->first[0], inverse->second[0], inverse->cross_re[0], inverse->cross_im[0]}};
}

void set_first_bin(mvdr_evd_state *state, const first_bin *bin) {
  hermitian_lanes *inverse = &state->blocks->noise_cov_inv;
  for (int32_t m = 0; m < kBeamformerChannels; ++m) {
    state->steering[m] = bin->steering[m];
    state->weights[m] = bin->weights[m];
  }
  inverse->first[0] = bin->inverse[0];
  inverse->second[0] = bin->inverse[1];
  inverse->cross_re[0] = bin->inverse[2];
  inverse->cross_im[0] = bin->inverse[3];
}

}  // namespace

se_complex *mvdr_update_param(mvdr_evd_state *state) {
  if (state->channels != kBeamformerChannels || state->bins < 2) {
    return state->weights;
  }
  // Bin 0 keeps its initial steering vector, inverse and weights: the beamformer removes DC. Its
  // lane is computed with the others, and its old values are then restored.
  const first_bin kept = get_first_bin(state);
  const float uniform = uniform_steering(state->channels);
  const bool steer = state->use_eigen_steering == 1;
  for (int32_t b = 0; b < mvdr_block_count(state->bins); ++b) {
    const int32_t k = b * kMvdrLanes;
    update_block(state->blocks + b, state->speech_weight + k, state->noise_weight + k, steer,
                 state->steering + k * kBeamformerChannels,
                 state->weights + k * kBeamformerChannels, uniform);
  }
  set_first_bin(state, &kept);
  return state->weights;
}

void mvdr_count_frame(mvdr_evd_state *state, int32_t update_interval) {
  state->update_count += 1;
  if (state->update_count == update_interval) {
    mvdr_update_param(state);
    state->update_count = 0;
  }
  state->rescale_count += 1;
  if (state->rescale_count >= state->rescale_limit) {
    mvdr_evd_reset(state);
  }
}
