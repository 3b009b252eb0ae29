// Gain rules and the exponential integral against the formulas of their papers in double precision.
#include <gtest/gtest.h>

#include "noise/circle_matrics.h"
#include "noise/omlsa.h"
#include "support/se_maths.h"
#include "test_signals.h"

namespace {

// Gains of eight bins after six frames, computed from the papers' formulas in double precision.
constexpr struct {
  const float *(*gain)(omlsa_state *, const float *, const float *, const float *);
  double gains[8];
  double eta[8];  // clean-speech over noise power that the rule carries on
} kRules[] = {{do_ss,
               {0.349056, 1.49265e-05, 0.999999, 0.988686, 0.999667, 1, 1, 0.974679},
               {0.12184, 3.18286e-12, 420167, 43.4444, 1499, 4e+07, 2e+09, 19}},
              {do_omlsa,
               {0.1, 0.1, 0.999762, 0.344674, 0.925126, 0.99975, 0.999999, 0.1},
               {0.01, 0.0001, 419968, 0.4752, 12.8379, 3998, 999998, 0.006}},
              {[](omlsa_state *bins, const float *pwr, const float *noise, const float *) {
                 return do_mmse_map(bins, pwr, noise);
               },
               {0.706839, 4.95928, 0.999951, 0.57521, 0.624582, 0.994895, 0.999979, 0.820598},
               {1, 1, 1, 1, 1, 1, 1, 1}}};

TEST(Gain, RulesFollowTheirPapers) {
  constexpr double kTolerance = 2e-4;  // Euler's constant and 1 - 0.9999 have four digits
  const float powers[] = {1.0f, 0.01f, 0.5f, 4.0f, 30.0f, 4000.0f, 1e6f, 3.0f};
  const float noises[] = {1.0f, 1.0f, 0.0f, 1.0f, 2.0f, 1.0f, 1.0f, 5.0f};
  const float probs[] = {0.0f, 0.3f, 0.0f, 0.91f, 0.99f, 0.9999f, 0.9995f, 0.97f};
  for (const auto &rule : kRules) {
    omlsa_state *bins = omlsa_init(8, 2001, -20.0f);
    for (int32_t frame = 0; frame < 6; ++frame) {
      rule.gain(bins, powers, noises, probs);
    }
    for (size_t k = 0; k < 8; ++k) {
      EXPECT_NEAR(wide(bins->gain[k]) / rule.gains[k], 1.0, kTolerance) << k;
      EXPECT_NEAR(wide(bins->eta2item[k]) / rule.eta[k], 1.0, kTolerance) << k;
    }
  }
  omlsa_state *state = omlsa_init(1, 2001, 6.0f);
  EXPECT_FLOAT_EQ(state->log_gain_min, -0.0921039954f);
  *state->eta2item = 0.0f;
  EXPECT_EQ(*do_ss(state, powers, noises, probs), 0.0f) << "an a-priori SNR of 0 mutes";
  omlsa_reset(state);
  EXPECT_TRUE(*get_omlsa_gain(state) == 1.0f && *get_eta2item(state) == 1.0f);

  float ends[] = {1, 0, 0, 1};
  b_spline(ends, 4);
  EXPECT_TRUE(ends[0] == 0.75f && ends[1] == 0.25f && ends[2] == 0.25f && ends[3] == 0.5f);
  for (const float x : {0.01f, 0.5f, 5.0f}) {
    const double shorter = 0.57721566490153286 - 0.5772;  // Euler's constant, cut off on purpose
    EXPECT_NEAR(wide(expint_f(x)), -std::expint(-wide(x)) + shorter, 3e-6);
    EXPECT_NEAR(expint_d(wide(x)), -std::expint(-wide(x)), 1e-13);
  }
  EXPECT_EQ(se_expint(0.0f), HUGE_VALF);
  EXPECT_FLOAT_EQ(se_log10(1000.0f), 3.0f);
}

}  // namespace
