// Headroom of the fixed-point transforms, measured with the checking twins of the Q31 operations on
// the worst blocks that the float wrapper can hand over.
#include <gtest/gtest.h>

#include <string>

#include "spectral/fftwrap_fixpoint.h"
#include "spectral/q31_arith.h"
#include "test_signals.h"

namespace {

using block = std::vector<float>;

// Number of samples that are transformed in the search for each stage's worst block.
constexpr int32_t kClimbSamples = 300000;

// The peak of a block is 2^29. No stage may come closer to 2^31 than a factor of 2, except by a few
// units of rounding.
constexpr double kLeastHeadroomBits = 0.99;

// One length and direction. The scalar path is probed: the vector kernels repeat its words.
struct probe {
  fft_setup *setup;
  bool inverse;
  uint32_t seed;
  int64_t peaks[kQ31Stages];
};

std::string name(const probe *p) {
  return std::to_string(p->setup->n) + (p->inverse ? " inverse" : " forward");
}

// Transforms a block, records its peaks and returns its peak in `stage`.
int64_t run(probe *p, const block &in, int32_t stage) {
  block out(in.size());
  q31_log_clear();
  (p->inverse ? spx_ifft : spx_fft)(p->setup, in.data(), out.data());
  EXPECT_EQ(q31_log_overflows(), 0) << name(p);
  int64_t peak[kQ31Stages] = {};
  for (int32_t i = 0; i < g_q31_log.used; ++i) {
    const q31_stage_log &log = g_q31_log.stages[i];
    peak[i] = *std::max_element(log.peak, log.peak + kQ31Operations);
    p->peaks[i] = std::max(p->peaks[i], peak[i]);
  }
  return peak[stage];
}

// A block with the signs of the basis function of a random output value: all its samples add up
// there.
block matched_block(probe *p) {
  block x(static_cast<size_t>(p->setup->n));
  const double target = uniform(&p->seed);
  const double phase = uniform(&p->seed);
  for (size_t i = 0; i < x.size(); ++i) {
    const double turns = target * static_cast<double>(p->inverse ? i / 2 : i);
    const double quarter = p->inverse && i % 2 == 1 ? 0.25 : 0.0;
    x[i] = std::cos(2.0 * kPi * (turns + quarter + phase)) < 0.0 ? -1.0f : 1.0f;
  }
  return x;
}

// Flips random signs of a matched block as long as that raises the peak of a stage.
void climb(probe *p, int32_t stage) {
  block x = matched_block(p);
  int64_t best = run(p, x, stage);
  for (size_t samples = 0; samples < kClimbSamples; samples += x.size()) {
    float *sample = &x[next_random(&p->seed) % x.size()];
    *sample = -*sample;
    const int64_t peak = run(p, x, stage);
    *sample = peak < best ? -*sample : *sample;
    best = std::max(best, peak);
  }
}

// Prints and judges the headroom that is left in each stage.
void report(const probe *p) {
  std::printf("%12s", name(p).c_str());
  const int32_t first = p->peaks[0] > 0 ? 0 : 1;  // stage 0: before the first mark
  for (int32_t i = first; i < g_q31_log.used; ++i) {
    const char *stage = g_q31_log.stages[i].name;
    const double headroom = 31.0 - std::log2(static_cast<double>(p->peaks[i]));
    EXPECT_GE(headroom, kLeastHeadroomBits) << name(p) << ", " << stage;
    std::printf(" | %s %.2f", stage, headroom);
  }
  std::printf("\n");
}

TEST(Q31Headroom, NoBlockOfTheWrapperLeavesTheRangeInAnyStage) {
  std::printf("bits left in each stage of the transform of N points:\n");
  for (int32_t n = 32; n <= 8192; n *= 2) {
    for (const bool inverse : {false, true}) {
      probe p = {spx_fft_init(n), inverse, 1, {}};
      p.setup->kernel = nullptr;
      for (const float level : {1.0f, -1.0f, 3e38f, 1e-30f, 1e-31f, -1e-45f}) {
        block x(static_cast<size_t>(n), level);
        run(&p, x, 0);
        x[0] = -level;
        run(&p, x, 0);
        run(&p, matched_block(&p), 0);
      }
      for (int32_t stage = 0; stage < g_q31_log.used; ++stage) {
        climb(&p, stage);
      }
      report(&p);
      spx_fft_destroy(p.setup);
    }
  }
}

TEST(Q31Headroom, TwinsKeepTheWordsAndCountWhatLeavesTheRange) {
  EXPECT_EQ(q31_add_wrap(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(q31_log_overflows(), 0);
  EXPECT_EQ(q31_add(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(q31_shift_up(INT32_MAX, 1), -2);
  EXPECT_EQ(q31_mac_round(INT32_MAX, INT32_MIN, INT32_MIN), INT32_MIN + (1 << 30) - 1);
  EXPECT_EQ(q31_msub_round(INT32_MIN, INT32_MIN, INT32_MIN), INT32_MAX - (1 << 30) + 1);
  EXPECT_EQ(q31_log_overflows(), 4);
  q31_log_clear();
}

}  // namespace
