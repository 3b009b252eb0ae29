// Matrix operations, covariance tracking and weight update against std::complex<double>.
#include <gtest/gtest.h>

#include <complex>
#include <valarray>

#include "interface/se_bf_instance.h"
#include "spatial/array_util.h"
#include "spatial/matrics_cevd.h"
#include "spatial/matrics_cinv.h"
#include "stream_run.h"

namespace {

using complex = std::complex<double>;
using vector = std::valarray<complex>;
using words = std::vector<se_complex>;

constexpr double kTolerance = 1e-5;
const double kHalf = std::sqrt(0.5);

complex widen(se_complex z) {
  return {wide(z.re), wide(z.im)};
}

vector widen(const se_complex *x, size_t count) {
  vector wider(count);
  std::transform(x, x + count, begin(wider), [](se_complex z) { return widen(z); });
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

testing::AssertionResult near(const vector &x, const vector &expected) {
  const double scale = std::sqrt(dot(expected, expected).real());
  for (size_t i = 0; i < expected.size(); ++i) {
    if (!(std::abs(x[i] - expected[i]) <= kTolerance * scale)) {
      return testing::AssertionFailure()
             << "entry " << i << " is " << x[i] << ", not " << expected[i];
    }
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult near(const words &x, const vector &expected) {
  return near(widen(x.data(), expected.size()), expected);
}

TEST(Matrix, OperationsMatchStdComplex) {
  words a = {{1, 2}, {-3, 0.5f}, {0.25f, -4}, {2, 2}};
  words h = {{1, 0}, {0.5f, -0.25f}, {0.5f, 0.25f}, {0.75f, 0}};
  const words b = {{2, -1}, {0.5f, 3}, {-1, 1}, {4, -2}};
  words out = a;
  const cmat ma = {2, a.data()};
  const cmat mh = {2, h.data()};
  cmat mo = {2, out.data()};
  const vector A = widen(a.data(), 4);
  const vector H = widen(h.data(), 4);
  const vector B = widen(b.data(), 4);
  const vector x = {B[0], B[1]};
  cmat_R_by_x_mul_xconj(0.75f, &mo, 0.5f, b.data());
  EXPECT_TRUE(near(out, 0.75 * A + 0.5 * outer(x)));
  cmat_mul_fval(&mo, &ma, 0.75f);
  cmat_psd_with_mask(&mo, 0.5f, b.data());
  EXPECT_TRUE(near(out, 0.75 * A + 0.5 * outer(x)));
  cmat_mul_cmat(&mo, &mh, &ma);
  const vector left = times(H, {A[0], A[2]});
  const vector right = times(H, {A[1], A[3]});
  EXPECT_TRUE(near(out, {left[0], right[0], left[1], right[1]}));
  cmat_mul_cvec(out.data(), &ma, b.data(), 0);
  EXPECT_TRUE(near(out, times(A, x)));
  cmat_mul_cvec(out.data(), &ma, b.data(), 1);
  EXPECT_TRUE(near(out, {dot({A[0], A[1]}, x), dot({A[2], A[3]}, x)}));
  TransposedConjugatedProduct(b.data(), out.data(), 2);
  EXPECT_TRUE(near(out, outer(x)));
  complex_cset(&out[0], a[1]);
  complex_fset(&out[1], 3.0f, -4.0f);
  EXPECT_TRUE(near(out, {A[1], {3, -4}}));
  EXPECT_TRUE(near({ConjugateDotProduct(a.data(), b.data(), 4)}, {dot(A, B)}));
  EXPECT_TRUE(near({complex_subtract(a[0], b[0])}, {A[0] - B[0]}));
  EXPECT_TRUE(near({complex_div_complex(a[0], b[0])}, {A[0] / B[0]}));
  EXPECT_TRUE(near({float_div_complex(a[0].re, b[0])}, {A[0].real() / B[0]}));
  EXPECT_FLOAT_EQ(Norm_Vector(a.data(), 4), std::sqrt(1 + 4 + 9 + 0.25f + 0.0625f + 16 + 8));
  EXPECT_FLOAT_EQ(complex_abs(a[1]), std::sqrt(9.25f));
  EXPECT_NEAR(wide(chmat_vec_conj_mul_mx_mul_vec(&mh, b.data())), dot(x, times(H, x)).real(), 1e-5);
  EXPECT_EQ(Distance(1, 2, 3, 3, 5, 9), 7.0f);
  EXPECT_EQ(DotProduct(1, 2, 3, 4, 5, 6), 32.0f);
  testing::internal::CaptureStdout();
  cmat_print(&mh);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "1.000000+i(0.000000)  0.500000+i(-0.250000)  \n"
            "0.500000+i(0.250000)  0.750000+i(0.000000)  \n");
}

TEST(Matrix, InverseAndEigenvectorOfDegenerateMatrices) {
  const struct {
    words a;
    vector inverse;  // empty: the function returns -1 and writes nothing
    vector principal;
  } cases[] = {
      {{{2, 0}, {0, 1}, {0, -1}, {2, 0}},
       {2 / 3., {0, -1 / 3.}, {0, 1 / 3.}, 2 / 3.},
       {{0, kHalf}, kHalf}},
      {{{3, 9}, {1, 1}, {3, 1}, {3, 9}}, {0.6, -0.4, -0.4, 0.6}, {{0.5, 0.5}, kHalf}},
      // Singular: divided by the sum of the real parts. The second one is not Hermitian: A01 is
      // averaged first, A10 counts as given, so the sum is 2 + 2 + 2 + 3.
      {{{1, 0}, {1, 0}, {1, 0}, {1, 0}}, {0.25, -0.25, -0.25, 0.25}, {kHalf, kHalf}},
      {{{2, 0}, {1, 1}, {3, 1}, {2, 0}}, {2 / 9., -2 / 9., -2 / 9., 2 / 9.}, {{0.5, 0.5}, kHalf}},
      {{{1, 0}, {-1, 0}, {-1, 0}, {1, 0}}, {}, {-kHalf, kHalf}},
      {{{1, 0}, {0, 0}, {0, 0}, {2, 0}}, {1.0, 0.0, 0.0, 0.5}, {0.0, 1.0}},
      {{{2, 0}, {0, 0}, {0, 0}, {2, 0}}, {0.5, 0.0, 0.0, 0.5}, {1.0, 0.0}},
      // A reciprocal beyond the largest float.
      {{{1e-42f, 0}, {0, 0}, {0, 0}, {0, 0}}, {}, {1.0, 0.0}}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    const bool regular = c.inverse.size() > 0;
    words out = c.a;
    cmat matrix = {2, out.data()};
    EXPECT_EQ(chmat_pinv(&matrix, &matrix), regular ? 0 : -1);
    EXPECT_TRUE(near(out, regular ? c.inverse : widen(c.a.data(), 4)));
    out = c.a;
    chmat_principal_ev(out.data(), &matrix);
    EXPECT_TRUE(near(out, c.principal));
    chmat_principal_ev_dim2(out.data(), c.a.data());
    EXPECT_TRUE(near(out, c.principal));
  }
  // Equal levels and hardly any coherence, where rounding makes the discriminant negative.
  uint32_t seed = 151;
  for (int32_t round = 0; round < 1000; ++round) {
    const float level = 1.0f + 1e-6f * static_cast<float>(uniform(&seed));
    const float cross = 1e-4f * static_cast<float>(uniform(&seed));
    const chmat_eigenvector v = chmat_principal_ev_of(level, 1.0f, {cross, 0.0f});
    ASSERT_NEAR(std::hypot(v.first.re, v.first.im, v.second), 1.0, kTolerance);
  }
}

vector widen(const hermitian_lanes &m, size_t lane) {
  const complex cross(wide(m.cross_re[lane]), wide(m.cross_im[lane]));
  return {wide(m.first[lane]), cross, std::conj(cross), wide(m.second[lane])};
}

// After a stream, by the sums that it has left: the steering vector is the principal eigenvector of
// the speech covariance, S d = lambda d, and the weights are Capon's: R w is a multiple of d, and
// w^H d = 1.
TEST(Mvdr, WeightsAreCaponsForTheTrackedSteering) {
  constexpr size_t kBlocks = 300;  // a multiple of ten frames at all hops: the last one updates
  for (const hop_figures &h : kHops) {
    const stream_setup setup = {2, 320, h.hop, SE_BF_MODE_MVDR};
    pcm in = to_words(microphones(161, kBlocks * 320, 300.0));
    se_bf_inst *inst = make_instance(setup);
    process(inst, setup, &in);
    const mvdr_evd_state *state = inst->mvdr;
    for (int32_t k = 1; k < inst->num_bins; ++k) {
      SCOPED_TRACE(testing::Message() << "hop " << h.hop << ", bin " << k);
      const mvdr_block *block = state->blocks + k / kMvdrLanes;
      const size_t lane = static_cast<size_t>(k % kMvdrLanes);
      const vector S = widen(block->speech_cov, lane);
      const vector R = widen(block->noise_cov, lane);
      const vector d = widen(state->steering + 2 * k, 2);
      const vector w = widen(state->weights + 2 * k, 2);
      const double lambda = dot(d, times(S, d)).real();
      EXPECT_NEAR(wide(state->speech_weight[k] + state->noise_weight[k]), 96000 / h.hop, 1e-3);
      EXPECT_GE(2.0 * lambda, (S[0] + S[3]).real());
      EXPECT_TRUE(near(times(S, d), lambda * d));
      EXPECT_TRUE(near(times(R, w), dot(w, times(R, w)) * d));
      EXPECT_NEAR(std::abs(dot(w, d) - 1.0), 0.0, kTolerance);
    }
    se_bf_destroy(inst);
  }
}

// The sums of a bin: speech covariance and its weight, noise covariance and its weight.
vector sums_of(const mvdr_evd_state *state, size_t k) {
  const vector S = widen(state->blocks[k / kMvdrLanes].speech_cov, k % kMvdrLanes);
  const vector R = widen(state->blocks[k / kMvdrLanes].noise_cov, k % kMvdrLanes);
  return {S[0], S[1], S[2], S[3], wide(state->speech_weight[k]),
          R[0], R[1], R[2], R[3], wide(state->noise_weight[k])};
}

// DC and Nyquist are the two parts of entry 0. A rescale after twelve hours leaves the weight of
// half an hour in all bins but DC; a rescale when no frame was counted leaves nothing there.
TEST(Mvdr, SumsAreMaskedAndRescaledForAnyNumberOfBins) {
  for (const int32_t bins : {1, 2, 3, 5, 8, 9, 10, 33, 129}) {
    tamrin_free(nullptr);
    const size_t stride = static_cast<size_t>(bins) - 1;
    const words steering(2 * stride + 2, {0.7f, 0.0f});
    mvdr_evd_state *state = mvdr_evd_init(2, steering.data(), bins);
    std::vector<vector> expected(stride + 1, vector(10));
    uint32_t seed = 171;
    const auto draw = [&seed] { return static_cast<float>(uniform(&seed)); };
    for (int32_t frame = 0; frame < 3; ++frame) {
      words x(2 * stride + 1);
      std::vector<float> probs(stride + 1);
      std::generate(x.begin(), x.end(), [&] { return se_complex{draw(), draw()}; });
      std::generate(probs.begin(), probs.end(), [&] { return std::abs(draw()); });
      EXPECT_EQ(mvdr_evd_psd_sta(state, x.data(), probs.data()), 1);
      for (size_t k = 0; k <= stride; ++k) {
        vector entries(2);
        for (size_t m = 0; m < 2; ++m) {
          const complex entry = widen(x[m * stride + (k == stride ? 0 : k)]);
          entries[m] = k == 0 ? entry.real() : k == stride ? entry.imag() : entry;
        }
        const vector product = outer(entries);
        const complex p = wide(probs[k]);
        const vector one = {product[0], product[1], product[2], product[3], 1.0};
        expected[k][std::slice(0, 5, 1)] += p * one;
        expected[k][std::slice(5, 5, 1)] += (1.0 - p) * one;
      }
    }
    for (const double factor : {1.0, 1.0 / 24.0, 0.0}) {
      for (size_t k = 0; k <= stride; ++k) {
        const complex left = k == 0 ? 1.0 : factor;
        EXPECT_TRUE(near(sums_of(state, k), left * expected[k]))
            << "bin " << k << " of " << bins << " times " << factor;
      }
      state->rescale_count = factor == 1.0 ? 12 * 3600 * 100 : 0;
      mvdr_evd_reset(state);
      EXPECT_EQ(state->rescale_count, 1800 * 100);
    }
  }
}

TEST(Mvdr, FramesCountTowardsUpdateAndRescale) {
  constexpr size_t kBins = 9;
  const words steering(2 * kBins, {0.0f, 0.5f});
  const words x(2 * kBins, {1.0f, 2.0f});
  const std::vector<float> probs(kBins, 0.25f);
  mvdr_evd_state *state = mvdr_evd_init(2, steering.data(), kBins);
  state->rescale_count = 12 * 3600 * 100 - 13;
  for (int32_t frame = 1; frame <= 13; ++frame) {
    mvdr_evd_psd_sta(state, x.data(), probs.data());
    mvdr_count_frame(state, 10);
    SCOPED_TRACE(frame);
    // All entries of the speech covariance are equal, so both entries of its eigenvector are, too.
    const vector d = frame < 10 ? vector{{0, 0.5}, {0, 0.5}} : vector{kHalf, kHalf};
    EXPECT_TRUE(near(widen(state->steering + 2, 2), d));
    EXPECT_NEAR(wide(state->noise_weight[1]), frame < 13 ? 0.75 * frame : 9.75 / 24.0, kTolerance);
  }
  EXPECT_EQ(state->update_count, 3);
  EXPECT_EQ(state->rescale_count, 1800 * 100);
}

// A bin without a usable sum keeps its steering vector. Opposite channels, a response of at most
// 1e-15 and a negative response give the scaled sum of the microphones. DC keeps its initial
// weights.
TEST(Mvdr, DegenerateBinsAndDcFallBack) {
  const words steering(18, {0.7f, 0.0f});
  mvdr_evd_state *state = mvdr_evd_init(2, steering.data(), 9);
  state->blocks->noise_cov = {{1, 1, 1e17f, -1}, {1, 1, 1e17f, -1}, {1, -1}, {}};
  std::fill(state->noise_weight, state->noise_weight + 4, 1.0f);
  state->speech_weight[0] = 1.0f;
  state->speech_weight[1] = 1e-42f;  // no finite reciprocal: counts as zero
  const se_complex *weights = mvdr_update_param(state);
  EXPECT_EQ(weights, state->weights);
  EXPECT_TRUE(near(widen(state->steering, 4), {0.7, 0.7, 0.7, 0.7}));
  for (size_t k = 0; k < 9; ++k) {
    const double w = k < 4 ? kHalf : 0.5 / 0.7;
    EXPECT_TRUE(near(widen(weights + 2 * k, 2), {w, w})) << "bin " << k;
  }

  const words x(16, {1.0f, 2.0f});
  const std::vector<float> probs(9, 0.25f);
  mvdr_evd_state *mono = mvdr_evd_init(1, steering.data(), 9);
  EXPECT_EQ(mvdr_evd_psd_sta(mono, x.data(), probs.data()), 1);
  mvdr_evd_reset(mono);
  EXPECT_EQ(mvdr_update_param(mono), mono->weights);
  EXPECT_TRUE(near(widen(mono->weights, 2), {1.0, 1.0}));
  EXPECT_EQ(mono->noise_weight[1], 0.0f);
}

}  // namespace
