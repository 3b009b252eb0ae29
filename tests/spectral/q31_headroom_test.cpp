// Headroom of the fixed-point transforms, measured with the checking twins of the Q31 operations on
// the worst blocks that the float wrapper can hand over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "spectral/fftwrap_fixpoint.h"
#include "spectral/q31_arith.h"

namespace {

using block = std::vector<float>;

constexpr int32_t kShortest = 32;
constexpr int32_t kLongest = 8192;

// Blocks matched to an output value, and samples transformed in search of each stage's worst block.
constexpr int32_t kMatchedBlocks = 32;
constexpr int32_t kClimbSamples = 150000;

// The peak of a block is 2^29; no stage at all may come closer to 2^31 than a factor of 2, but for
// the rounding of some units.
constexpr double kLeastHeadroomBits = 0.99;

constexpr double kTurn = 6.283185307179586;

struct stage_record {
  const char *name;
  int64_t peak;
  int64_t overflows;
};

// One length and direction. The scalar path is probed: the vector kernels repeat its words.
struct probe {
  fft_setup *setup;
  bool inverse;
  int32_t used;
  stage_record stages[kQ31Stages];
  block out;
};

probe open_probe(int32_t n, bool inverse) {
  probe p = {spx_fft_init(n), inverse, 1, {}, block(static_cast<size_t>(n))};
  p.setup->kernel = nullptr;
  return p;
}

// Transforms a block, adds what it did to the record and returns the peak that it had in `stage`.
int64_t run(probe *p, const block &in, int32_t stage) {
  q31_log_clear();
  if (p->inverse) {
    spx_ifft(p->setup, in.data(), p->out.data());
  } else {
    spx_fft(p->setup, in.data(), p->out.data());
  }
  int64_t reached = 0;
  p->used = g_q31_log.used;
  for (int32_t i = 0; i < p->used; ++i) {
    const q31_stage_log &log = g_q31_log.stages[i];
    stage_record *record = &p->stages[i];
    const int64_t peak = *std::max_element(log.peak, log.peak + kQ31Operations);
    record->name = log.name;
    record->peak = std::max(record->peak, peak);
    for (const int64_t count : log.overflow) {
      record->overflows += count;
    }
    reached = i == stage ? peak : reached;
  }
  q31_log_clear();
  return reached;
}

// Signs of the basis function of one output value, which let all inputs add up there.
block matched_block(const probe *p, double target, double phase) {
  block x(p->out.size());
  for (size_t i = 0; i < x.size(); ++i) {
    const size_t index = p->inverse ? i / 2 : i;
    const double quarter = p->inverse && i % 2 == 1 ? 0.25 : 0.0;
    const double turns = static_cast<double>(index) * target / static_cast<double>(x.size());
    x[i] = std::cos(kTurn * (turns + quarter + phase)) < 0.0 ? -1.0f : 1.0f;
  }
  return x;
}

// Constants from the smallest to the largest float, alternating signs, impulses, random blocks.
void run_plain_blocks(probe *p, std::mt19937 *random) {
  const size_t length = p->out.size();
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  for (const float level : {1.0f, -1.0f, 3e38f, 1e-30f, 1e-31f, -1e-45f}) {
    run(p, block(length, level), 0);
    block alternating(length, level);
    for (size_t i = 1; i < length; i += 2) {
      alternating[i] = -level;
    }
    run(p, alternating, 0);
  }
  for (const size_t at : {size_t{0}, size_t{1}, length / 2, length - 1}) {
    block impulse(length, 0.0f);
    impulse[at] = -1.0f;
    run(p, impulse, 0);
  }
  for (int32_t i = 0; i < 8; ++i) {
    block noise(length);
    std::generate(noise.begin(), noise.end(), [&] { return uniform(*random); });
    run(p, noise, 0);
  }
}

// Flips random signs of a matched block as long as that raises the peak of a stage.
void climb(probe *p, int32_t stage, std::mt19937 *random) {
  block x = matched_block(p, static_cast<double>((*random)() % p->out.size()), 0.125);
  int64_t best = run(p, x, stage);
  for (size_t samples = 0; samples < kClimbSamples; samples += x.size()) {
    float *sample = &x[(*random)() % x.size()];
    *sample = -*sample;
    const int64_t peak = run(p, x, stage);
    *sample = peak < best ? -*sample : *sample;
    best = std::max(best, peak);
  }
}

void judge(const probe *p) {
  std::printf("%5d %s", p->setup->n, p->inverse ? "inverse" : "forward");
  for (int32_t i = 0; i < p->used; ++i) {
    const stage_record &stage = p->stages[i];
    if (stage.peak == 0) {
      continue;
    }
    const double headroom = 31.0 - std::log2(static_cast<double>(stage.peak));
    std::printf(" | %s %.2f", stage.name, headroom);
    EXPECT_GE(headroom, kLeastHeadroomBits) << stage.name;
    EXPECT_EQ(stage.overflows, 0) << stage.name;
  }
  std::printf("\n");
}

TEST(Q31Headroom, NoBlockOfTheWrapperLeavesTheRangeInAnyStage) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> phase(0.0, 1.0);
  std::printf("bits left in each stage of the transform of N points:\n");
  for (int32_t n = kShortest; n <= kLongest; n *= 2) {
    for (const bool inverse : {false, true}) {
      probe p = open_probe(n, inverse);
      run_plain_blocks(&p, &random);
      for (int32_t i = 0; i < kMatchedBlocks; ++i) {
        run(&p, matched_block(&p, phase(random) * n, phase(random)), 0);
      }
      for (int32_t stage = 0; stage < p.used; ++stage) {
        climb(&p, stage, &random);
      }
      judge(&p);
      spx_fft_destroy(p.setup);
    }
  }
}

TEST(Q31Headroom, TwinsKeepTheWordsAndCountWhatLeavesTheRange) {
  EXPECT_EQ(q31_add(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(q31_sub(INT32_MIN, 1), INT32_MAX);
  EXPECT_EQ(q31_shift_up(INT32_MAX, 1), -2);
  EXPECT_EQ(q31_mac_round(INT32_MAX, INT32_MIN, INT32_MIN), INT32_MIN + (1 << 30) - 1);
  EXPECT_EQ(q31_msub_round(INT32_MIN, INT32_MIN, INT32_MIN), INT32_MAX - (1 << 30) + 1);
  EXPECT_EQ(q31_log_overflows(), 5);

  EXPECT_EQ(q31_add_wrap(INT32_MAX, 1), INT32_MIN);
  EXPECT_EQ(q31_mul_high(INT32_MIN, INT32_MIN), 1 << 30);
  EXPECT_EQ(q31_mul_high(-1, 1), -1);
  EXPECT_EQ(q31_mul_high_round(-1, 1), 0);
  EXPECT_EQ(q31_shift_down(-1, 4), -1);
  EXPECT_EQ(q31_log_overflows(), 5);
  q31_log_clear();
}

}  // namespace
