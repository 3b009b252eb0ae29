// Matrix operations, covariance tracking and weight update against std::complex<double>.
#include <gtest/gtest.h>

#include <complex>
#include <valarray>

#include "interface/multi_common.h"
#include "spatial/array_util.h"
#include "spatial/matrics_cevd.h"
#include "spatial/matrics_cinv.h"
#include "spatial/mvdr_mask.h"
#include "test_signals.h"

namespace {

using complex = std::complex<double>;
using vector = std::valarray<complex>;
using words = std::vector<se_complex>;

constexpr double kTolerance = 1e-5;
const double kHalf = std::sqrt(0.5);

vector widen(const se_complex *x, size_t count) {
  vector wider(count);
  for (size_t i = 0; i < count; ++i) {
    wider[i] = {wide(x[i].re), wide(x[i].im)};
  }
  return wider;
}

vector times(const vector &a, const vector &x) {
  return {a[0] * x[0] + a[1] * x[1], a[2] * x[0] + a[3] * x[1]};
}

vector outer(const vector &x) {
  return {std::norm(x[0]), x[0] * std::conj(x[1]), x[1] * std::conj(x[0]), std::norm(x[1])};
}

complex dot(const vector &a, const vector &b) {
  return (a.apply([](complex z) { return std::conj(z); }) * b).sum();
}

void expect_near(const se_complex *x, const vector &expected) {
  const vector error = widen(x, expected.size()) - expected;
  EXPECT_LE(std::abs(dot(error, error)), 1e-10 * std::abs(dot(expected, expected)));
}

words random_words(uint32_t *seed, size_t count) {
  words x(count);
  for (se_complex &v : x) {
    v.re = static_cast<float>(uniform(seed));
    v.im = static_cast<float>(uniform(seed));
  }
  return x;
}

words hermitian(double a, double d, se_complex b) {
  return {{static_cast<float>(a), 0.0f}, b, {b.re, -b.im}, {static_cast<float>(d), 0.0f}};
}

bool finite(const se_complex *x, size_t count) {
  return std::all_of(&x->re, &x->re + 2 * count, [](float v) { return std::isfinite(v); });
}

TEST(Matrix, OperationsMatchStdComplex) {
  uint32_t seed = 141;
  words a = random_words(&seed, 4);
  words h = hermitian(1.0, 0.75, {0.5f, -0.25f});
  const words b = random_words(&seed, 4);
  words out = a;
  const cmat ma = {2, a.data()};
  const cmat mh = {2, h.data()};
  cmat mo = {2, out.data()};
  const vector A = widen(a.data(), 4);
  const vector H = widen(h.data(), 4);
  const vector B = widen(b.data(), 4);
  const vector x = {B[0], B[1]};
  cmat_R_by_x_mul_xconj(0.75f, &mo, 0.5f, b.data());
  expect_near(out.data(), 0.75 * A + 0.5 * outer(x));
  cmat_mul_cmat(&mo, &ma, &mh);
  const vector left = times(A, {H[0], H[2]});
  const vector right = times(A, {H[1], H[3]});
  expect_near(out.data(), {left[0], right[0], left[1], right[1]});
  words wrapped(4);
  cmat mw = {2, wrapped.data()};
  EXPECT_EQ(chmat_pinv(&mw, &mh), chmat_pinv_dim2(out.data(), h.data()));
  expect_near(wrapped.data(), widen(out.data(), 4));
  cmat_mul_cvec(out.data(), &ma, b.data(), 0);
  expect_near(out.data(), times(A, x));
  cmat_mul_cvec(out.data(), &ma, b.data(), 1);
  expect_near(out.data(), {dot({A[0], A[1]}, x), dot({A[2], A[3]}, x)});
  TransposedConjugatedProduct(b.data(), out.data(), 2);
  expect_near(out.data(), outer(x));
  out = {ConjugateDotProduct(a.data(), b.data(), 4), complex_subtract(a[0], b[0]),
         complex_div_complex(a[0], b[0]), float_div_complex(a[0].re, b[0])};
  expect_near(out.data(), {dot(A, B), A[0] - B[0], A[0] / B[0], A[0].real() / B[0]});
  complex_cset(&out[0], {Norm_Vector(a.data(), 4), complex_abs(a[1])});
  complex_fset(&out[1], chmat_vec_conj_mul_mx_mul_vec(&mh, b.data()), Distance(1, 2, 3, 3, 5, 9));
  expect_near(out.data(),
              {{std::sqrt(dot(A, A).real()), std::abs(A[1])}, {dot(x, times(H, x)).real(), 7.0}});
  EXPECT_EQ(DotProduct(1, 2, 3, 4, 5, 6), 32.0f);
  testing::internal::CaptureStdout();
  cmat_print(&mh);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "1.000000+i(0.000000)  0.500000+i(-0.250000)  \n"
            "0.500000+i(0.250000)  0.750000+i(0.000000)  \n");
}

TEST(Matrix, InverseAndEigenvectorOfHermitianMatrices) {
  uint32_t seed = 151;
  words out(4);
  for (int32_t round = 0; round < 1000; ++round) {
    const words r = random_words(&seed, 4);
    const words a = hermitian(wide(2.6f + r[0].re), wide(2.6f + r[0].im), r[1]);
    const vector A = widen(a.data(), 4);
    ASSERT_EQ(chmat_pinv_dim2(out.data(), a.data()), 0);
    const vector inverse = widen(out.data(), 4);
    expect_near(r.data() + 2, times(A, times(inverse, widen(r.data() + 2, 2))));

    chmat_principal_ev_dim2(out.data(), a.data());
    const vector v = widen(out.data(), 2);
    const complex lambda = dot(v, times(A, v));
    expect_near(out.data(), times(A, v) / lambda);
    ASSERT_NEAR(dot(v, v).real(), 1.0, kTolerance);
    ASSERT_TRUE(2.0 * lambda.real() >= (A[0] + A[3]).real() && v[1].real() >= 0.0);

    // Equal levels with next to no coherence, and levels down to the denormals.
    const words equal = hermitian(1.0 + 1e-6 * wide(r[2].im), 1.0, {1e-4f * r[3].im, 0.0f});
    chmat_principal_ev_dim2(out.data(), equal.data());
    ASSERT_NEAR(wide(SumSquares(out.data(), 2)), 1.0, kTolerance);
    ASSERT_GE(out[0].re * equal[1].re, 0.0f) << "the first component has the phase of A01";
    const double level = std::pow(10.0, -33.0 + 12.0 * wide(r[2].re));
    const float tiny = static_cast<float>(level * wide(r[3].re));
    chmat_principal_ev_dim2(out.data(), hermitian(level, level, {tiny, -tiny}).data());
    ASSERT_TRUE(finite(out.data(), 2)) << level << ' ' << tiny;
  }

  struct special_case {
    words a;
    vector inverse;  // empty: -1, and nothing is written
    double second;   // component of the eigenvector
  };
  const special_case cases[] = {
      {{{3, 9}, {1, 1}, {3, 1}, {3, 9}}, {0.6, -0.4, -0.4, 0.6}, kHalf},  // not Hermitian
      {hermitian(1, 1, {1, 0}), {0.25, -0.25, -0.25, 0.25}, kHalf},       // divided by the sum
      {hermitian(1, 1, {-1, 0}), {}, kHalf},
      {hermitian(0, 0, {0, 0}), {}, 0.0},
      {hermitian(1, 2, {0, 0}), {1.0, 0.0, 0.0, 0.5}, 1.0},
      {hermitian(1e-42, 0, {0, 0}), {}, 0.0}};  // a reciprocal beyond the largest float
  for (const special_case &c : cases) {
    const bool regular = c.inverse.size() > 0;
    out = c.a;
    EXPECT_EQ(chmat_pinv_dim2(out.data(), out.data()), regular ? 0 : -1);
    expect_near(out.data(), regular ? c.inverse : widen(c.a.data(), 4));
    chmat_principal_ev_dim2(out.data(), c.a.data());
    EXPECT_NEAR(wide(out[1].re), c.second, kTolerance);
  }
}

constexpr size_t kBins = 33;
constexpr size_t kNyquist = kBins - 1;

// A state that has seen `frames` random frames with one presence probability; (*sums)[k] receives
// bin k's sum of x x^H.
mvdr_evd_state *track(int32_t frames, float prob, float steering, std::vector<vector> *sums) {
  tamrin_free(nullptr);
  const words directions(2 * kBins, {steering, 0.0f});
  const std::vector<float> probs(kBins, prob);
  mvdr_evd_state *state = mvdr_evd_init(2, directions.data(), kBins);
  uint32_t seed = 171;
  sums->assign(kBins, vector(4));
  for (int32_t frame = 0; frame < frames; ++frame) {
    words spectrum = random_words(&seed, 2 * kNyquist);
    for (size_t k = 0; k < kNyquist; ++k) {
      spectrum[kNyquist + k].re += spectrum[k].re;  // microphones with something in common
    }
    mvdr_evd_psd_sta(state, spectrum.data(), probs.data());
    const vector X = widen(spectrum.data(), 2 * kNyquist);
    for (size_t k = 1; k < kNyquist; ++k) {
      (*sums)[k] += outer({X[k], X[kNyquist + k]});
    }
    (*sums)[0] += outer({X[0].real(), X[kNyquist].real()});
    (*sums)[kNyquist] += outer({X[0].imag(), X[kNyquist].imag()});
  }
  return state;
}

TEST(Mvdr, CovariancesAreMaskedSumsAndRescaleKeepsTheirRatio) {
  for (const float prob : {0.0f, 0.25f, 1.0f}) {
    std::vector<vector> sums;
    mvdr_evd_state *state = track(12, prob, 0.7f, &sums);
    for (const double factor : {1.0, 1.0 / 24.0, 0.0}) {
      for (size_t k = 0; k < kBins; ++k) {
        const double speech = wide(prob) * (k == 0 ? 1.0 : factor);  // bin 0 is never rescaled
        const double noise = (1.0 - wide(prob)) * (k == 0 ? 1.0 : factor);
        EXPECT_NEAR(wide(state->speech_weight[k]), 12.0 * speech, kTolerance);
        EXPECT_NEAR(wide(state->noise_weight[k]), 12.0 * noise, kTolerance);
        expect_near(state->speech_cov[k].data, speech * sums[k]);
        expect_near(state->noise_cov[k].data, noise * sums[k]);
      }
      state->rescale_count = factor == 1.0 ? 4320000 : 0;
      mvdr_evd_reset(state);
      EXPECT_EQ(state->rescale_count, 180000);
    }
  }
}

TEST(Mvdr, WeightsAreCaponsForTheTrackedSteering) {
  for (const float prob : {0.0f, 0.4f}) {
    std::vector<vector> sums;
    mvdr_evd_state *state = track(50, prob, 0.7f, &sums);
    EXPECT_EQ(mvdr_update_param(state), state->weights);
    expect_near(state->weights, {kHalf, kHalf});
    for (size_t k = 1; k < kBins; ++k) {
      // The given steering where no speech was seen, else the eigenvector; R^-1 up to a factor.
      words steering(2, {0.7f, 0.0f});
      if (prob > 0.0f) {
        chmat_principal_ev(steering.data(), &state->speech_cov[k]);
      }
      const vector d = widen(steering.data(), 2);
      const vector u = times({sums[k][3], -sums[k][1], -sums[k][2], sums[k][0]}, d);
      expect_near(state->steering + 2 * k, d);
      expect_near(state->weights + 2 * k, u / dot(d, u));
    }
  }
}

TEST(Mvdr, DegenerateBinsGetTheStatedWeights) {
  const vector given = {0.6, 0.6};
  const vector normalised = {0.6 / 0.72, 0.6 / 0.72};
  std::vector<vector> sums;
  mvdr_evd_state *state = track(0, 0.0f, 0.6f, &sums);
  mvdr_update_param(state);
  expect_near(state->weights + 2, normalised);
  // Opposite channels have no inverse and no response to the steering, deafening noise next to
  // none: the mean of the microphones.
  const words hard[] = {hermitian(1.0, 1.0, {-1.0f, 0.0f}), hermitian(1e16, 1e16, {0.0f, 0.0f})};
  for (size_t k = 1; k < 3; ++k) {
    std::copy(hard[k - 1].begin(), hard[k - 1].end(), state->noise_cov[k].data);
    state->noise_weight[k] = 1.0f;
  }
  // Tiny sums must stay finite; weights without a finite reciprocal count as none.
  constexpr size_t kDenormal = 18;
  for (size_t k = 3; k < kBins; ++k) {
    const float tiny = static_cast<float>(std::pow(10.0, -30.0 - 0.5 * static_cast<double>(k)));
    state->speech_weight[k] = tiny;
    state->noise_weight[k] = tiny;
    state->speech_cov[k].data[0] = {tiny, 0.0f};
    state->speech_cov[k].data[1] = {tiny, tiny};
    state->noise_cov[k].data[k % 2 == 0 ? 3 : 0] = {tiny, 0.0f};
  }
  mvdr_update_param(state);
  expect_near(state->weights + 2, {kHalf, kHalf, kHalf, kHalf});
  EXPECT_TRUE(finite(state->weights, 2 * kBins) && finite(state->steering, 2 * kBins));
  for (size_t k = kDenormal; k < kBins; ++k) {
    expect_near(state->steering + 2 * k, given);
    expect_near(state->weights + 2 * k, normalised);
  }

  // The beamformer drops DC and keeps channel 0's own Nyquist value.
  words spectrum(2 * kNyquist, {3.0f, 5.0f});
  mul_bf_gain(spectrum.data(), state->weights, 2, 2 * kNyquist);
  EXPECT_TRUE(spectrum[0].re == 0.0f && spectrum[0].im == 5.0f);
}

// Weights for one and for three channels are applied; nothing is tracked or adapted for them.
TEST(Mvdr, OtherChannelCountsFilterButDoNotAdapt) {
  uint32_t seed = 181;
  const words weights = random_words(&seed, 3 * kBins);
  words spectrum = random_words(&seed, 3 * kNyquist);
  const words original = spectrum;
  mul_bf_gain(spectrum.data(), weights.data(), 3, 2 * kNyquist);
  EXPECT_TRUE(spectrum[0].re == 0.0f && spectrum[0].im == original[0].im);
  for (size_t k = 1; k < kNyquist; ++k) {
    const words x = {original[k], original[kNyquist + k], original[2 * kNyquist + k]};
    expect_near(&spectrum[k], {dot(widen(&weights[3 * k], 3), widen(x.data(), 3))});
  }
  std::vector<float> geometry = {9, 8, 7, 6, 5, 4};
  get_ULA_geometry(2, 1.0f, geometry.data());
  EXPECT_EQ(geometry, (std::vector<float>{-0.5f, 0, 0, 0.5f, 0, 0}));
  words steering(5, {7.0f, 7.0f});
  get_steering_vector_by_doa(60.0f, geometry.data(), 2, steering.data(), 2);
  EXPECT_TRUE(steering[3].im != 7.0f && steering[4].re == 7.0f) << "two bins of two entries";
  float packed[] = {1, 2, 3, 4, 5, 6, 7, 8};  // two channels of DC, Nyquist and one bin
  float power[3];
  mean_bin_power(packed, 2, 3, power);
  EXPECT_TRUE(power[0] == 13.0f && power[1] == 69.0f && power[2] == 20.0f);
  const float gain[] = {2, 3, 4};
  mul_amp_real_gain(packed, gain, 1, 4);
  EXPECT_TRUE(packed[0] == 2.0f && packed[1] == 8.0f && packed[3] == 12.0f && packed[4] == 5.0f);

  tamrin_free(nullptr);
  const std::vector<float> probs(kBins, 0.5f);
  mvdr_evd_state *mono = mvdr_evd_init(1, weights.data(), kBins);
  EXPECT_EQ(mvdr_evd_psd_sta(mono, original.data(), probs.data()), 1);
  mvdr_evd_reset(mono);
  EXPECT_EQ(mvdr_update_param(mono), mono->weights);
  EXPECT_TRUE(mono->noise_weight[5] == 0.0f && mono->weights[5].re == 1.0f);

  // Three bins fill no block: each is accumulated on its own.
  mvdr_evd_state *few = mvdr_evd_init(2, weights.data(), 3);
  mvdr_evd_psd_sta(few, original.data(), probs.data());
  const vector X = widen(original.data(), 4);
  expect_near(few->speech_cov[0].data, 0.5 * outer({X[0].real(), X[2].real()}));
  expect_near(few->noise_cov[1].data, 0.5 * outer({X[1], X[3]}));
  expect_near(few->speech_cov[2].data, 0.5 * outer({X[0].imag(), X[2].imag()}));
}

}  // namespace
