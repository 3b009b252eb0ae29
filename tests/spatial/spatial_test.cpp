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

vector widen(const se_complex *x, size_t count) {
  vector wider(count);
  std::transform(x, x + count, begin(wider),
                 [](se_complex z) { return complex(wide(z.re), wide(z.im)); });
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

void expect_near(const vector &x, const vector &expected) {
  EXPECT_LE(std::abs(dot(x - expected, x - expected)), 1e-10 * std::abs(dot(expected, expected)));
}

void expect_near(const words &x, const vector &expected) {
  expect_near(widen(x.data(), expected.size()), expected);
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
  expect_near(out, 0.75 * A + 0.5 * outer(x));
  cmat_mul_fval(&mo, &ma, 0.75f);
  cmat_psd_with_mask(&mo, 0.5f, b.data());
  expect_near(out, 0.75 * A + 0.5 * outer(x));
  cmat_mul_cmat(&mo, &mh, &ma);
  const vector left = times(H, {A[0], A[2]});
  const vector right = times(H, {A[1], A[3]});
  expect_near(out, {left[0], right[0], left[1], right[1]});
  cmat_mul_cvec(out.data(), &ma, b.data(), 0);
  expect_near(out, times(A, x));
  cmat_mul_cvec(out.data(), &ma, b.data(), 1);
  expect_near(out, {dot({A[0], A[1]}, x), dot({A[2], A[3]}, x)});
  TransposedConjugatedProduct(b.data(), out.data(), 2);
  expect_near(out, outer(x));
  out = {ConjugateDotProduct(a.data(), b.data(), 4), complex_subtract(a[0], b[0]),
         complex_div_complex(a[0], b[0]), float_div_complex(a[0].re, b[0])};
  expect_near(out, {dot(A, B), A[0] - B[0], A[0] / B[0], A[0].real() / B[0]});
  complex_cset(&out[0], {Norm_Vector(a.data(), 4), complex_abs(a[1])});
  complex_fset(&out[1], chmat_vec_conj_mul_mx_mul_vec(&mh, b.data()), Distance(1, 2, 3, 3, 5, 9));
  expect_near(out,
              {{std::sqrt(dot(A, A).real()), std::abs(A[1])}, {dot(x, times(H, x)).real(), 7}});
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
    vector inverse;  // empty: -1, and nothing is written
    double second;   // component of the eigenvector
  } cases[] = {
      {{{2, 0}, {0, 1}, {0, -1}, {2, 0}}, {2 / 3., {0, -1 / 3.}, {0, 1 / 3.}, 2 / 3.}, kHalf},
      {{{3, 9}, {1, 1}, {3, 1}, {3, 9}}, {0.6, -0.4, -0.4, 0.6}, kHalf},      // not Hermitian
      {{{1, 0}, {1, 0}, {1, 0}, {1, 0}}, {0.25, -0.25, -0.25, 0.25}, kHalf},  // by the sum
      {{{1, 0}, {-1, 0}, {-1, 0}, {1, 0}}, {}, kHalf},
      {{{1, 0}, {0, 0}, {0, 0}, {2, 0}}, {1.0, 0.0, 0.0, 0.5}, 1.0},
      {{{1e-42f, 0}, {0, 0}, {0, 0}, {0, 0}}, {}, 0.0}};  // a reciprocal beyond the largest float
  for (const auto &c : cases) {
    const bool regular = c.inverse.size() > 0;
    words out = c.a;
    cmat matrix = {2, out.data()};
    EXPECT_EQ(chmat_pinv(&matrix, &matrix), regular ? 0 : -1);
    expect_near(out, regular ? c.inverse : widen(c.a.data(), 4));
    out = c.a;
    chmat_principal_ev(out.data(), &matrix);
    chmat_principal_ev_dim2(out.data(), c.a.data());
    EXPECT_NEAR(wide(out[1].re), c.second, kTolerance);
  }
  // Equal levels with next to no coherence, where the discriminant is rounded below zero.
  uint32_t seed = 151;
  for (int32_t round = 0; round < 1000; ++round) {
    const float level = 1.0f + 1e-6f * static_cast<float>(uniform(&seed));
    const float cross = 1e-4f * static_cast<float>(uniform(&seed));
    const chmat_eigenvector v = chmat_principal_ev_of(level, 1.0f, {cross, 0.0f});
    ASSERT_NEAR(std::hypot(v.first.re, v.first.im, v.second), 1.0, kTolerance);
  }
}

vector widen(const hermitian_lanes &m, size_t lane) {
  const complex cross(wide(m.cross.re[lane]), wide(m.cross.im[lane]));
  return {wide(m.first[lane]), cross, std::conj(cross), wide(m.second[lane])};
}

vector widen(const complex_lanes *x, size_t lane) {
  return {complex(wide(x[0].re[lane]), wide(x[0].im[lane])),
          complex(wide(x[1].re[lane]), wide(x[1].im[lane]))};
}

// From the sums that a stream has left: the steering is the principal eigenvector S d = l d of the
// speech covariance, and the weights are Capon's, R w ~ d and w^H d = 1.
TEST(Mvdr, WeightsAreCaponsForTheTrackedSteering) {
  constexpr size_t kBlocks = 300;  // in frames a multiple of the ten between two updates
  for (const hop_figures &h : kHops) {
    const stream_setup setup = {2, 320, h.hop, SE_BF_MODE_MVDR};
    pcm in = to_words(microphones(161, kBlocks * 320, 300.0));
    se_bf_inst *inst = make_instance(setup);
    process(inst, setup, &in);
    for (int32_t k = 1; k < inst->num_bins; ++k) {
      const mvdr_block *block = inst->mvdr->blocks + k / kMvdrLanes;
      const size_t lane = static_cast<size_t>(k % kMvdrLanes);
      const vector S = widen(block->speech_cov, lane);
      const vector R = widen(block->noise_cov, lane);
      const vector d = widen(block->steering, lane);
      const vector w = widen(block->weights, lane);
      const double lambda = dot(d, times(S, d)).real();
      const float frames = block->speech_weight[lane] + block->noise_weight[lane];
      EXPECT_NEAR(wide(frames), 96000 / h.hop, 1e-3);
      EXPECT_GE(2.0 * lambda, (S[0] + S[3]).real());
      expect_near(times(S, d), lambda * d);
      expect_near(times(R, w), dot(w, times(R, w)) * d);
      EXPECT_NEAR(std::abs(dot(w, d) - 1.0), 0.0, kTolerance);
    }
    se_bf_destroy(inst);
  }
}

// DC and Nyquist are the parts of entry 0. With no usable sum a bin keeps its steering, and
// opposite channels leave it the mean of the microphones.
TEST(Mvdr, SumsAreMaskedAndDegenerateBinsFallBack) {
  words x(16, {1.0f, 2.0f});
  x[0] = {9, 5};
  x[8] = {-3, 1};
  x[9] = {2, 3};
  const words steering(18, {0.7f, 0.0f});
  const std::vector<float> probs(9, 0.25f);
  mvdr_evd_state *state = mvdr_evd_init(2, steering.data(), 9);
  mvdr_block *blocks = state->blocks;
  mvdr_evd_psd_sta(state, x.data(), probs.data());
  expect_near(widen(blocks[0].speech_cov, 0), 0.25 * outer({9, -3}));
  expect_near(widen(blocks[0].noise_cov, 1), 0.75 * outer({{1, 2}, {2, 3}}));
  expect_near(widen(blocks[1].speech_cov, 0), 0.25 * outer({5, 1}));
  mvdr_evd_reset(state);
  EXPECT_EQ(blocks->noise_weight[1], 0.0f) << "nothing was counted";
  expect_near(widen(blocks->noise_cov, 1), {0.0, 0.0, 0.0, 0.0});
  blocks->noise_cov = {{1, 1}, {1, 1}, {{-1, -1}, {}}};
  blocks->noise_weight[1] = 1.0f;
  blocks->speech_weight[1] = 1e-42f;  // no finite reciprocal: as good as none
  mvdr_update_param(state);
  expect_near(widen(blocks->steering, 1), {0.7, 0.7});
  expect_near(widen(blocks->weights, 1), {kHalf, kHalf});
  expect_near(widen(blocks->weights, 2), {0.5 / 0.7, 0.5 / 0.7});

  mvdr_evd_state *mono = mvdr_evd_init(1, steering.data(), 9);
  EXPECT_EQ(mvdr_evd_psd_sta(mono, x.data(), probs.data()), 1);
  mvdr_evd_reset(mono);
  EXPECT_EQ(mvdr_update_param(mono), mono->blocks);
  EXPECT_EQ(mono->blocks->noise_weight[1], 0.0f);
}

}  // namespace
