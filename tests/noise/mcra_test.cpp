// The noise estimator and its sliding minimum against their definitions.
#include <gtest/gtest.h>

#include "noise/mcra_p.h"
#include "test_signals.h"

namespace {

// A not-a-number in the first slice stays; in any other slice it is skipped.
TEST(SlidingMinimum, IsThatOfTheLastEightVectors) {
  const float start[] = {-1.0f, -2.0f};
  float lowest[2];
  circular_mat *mat = initCircularMat(2);
  resetCircularMat(mat, start);
  for (int32_t i = 0; i < 10; ++i) {
    const float number = static_cast<float>(i);
    const float vector[] = {i == 9 ? NAN : number, i == 8 ? NAN : number};
    shiftToPutCircularMat(mat, vector);
    getMinFrmCircleMat(mat, lowest);
    EXPECT_EQ(lowest[0], i < 7 ? -1.0f : number - 7.0f) << "vector " << i;
    if (i < 8) {
      EXPECT_EQ(lowest[1], i < 7 ? -2.0f : 0.0f) << "vector " << i;
    } else {
      EXPECT_TRUE(std::isnan(lowest[1])) << lowest[1] << ", vector " << i;
    }
  }
}

// First frame of the minimum window at frame t; frames count from 1. In the first 14 frames the
// window is the frame itself. Later it is the current sub-window of 15 frames, the last eight
// closed ones, and the one frame before the oldest of these; it never reaches back beyond frame 14.
size_t first_in_window(size_t t) {
  const size_t closed = (t - 1) / 15;
  return t <= 14 ? t : closed <= 9 ? 14 : 15 * (closed - 8);
}

// Runs the estimator over `powers` [frames][bins] from its first frame on, and compares it with the
// recursions of the paper in double precision, whose minimum is taken over the whole window.
void judge_estimate(mcra_state *state, const std::vector<std::vector<float>> &powers) {
  constexpr double kTolerance = 2e-5;
  const size_t bins = powers[0].size();
  std::vector<wave> smoothed = {wave(bins)};
  wave prob(bins);
  wave noise(bins);
  for (size_t t = 1; t <= powers.size(); ++t) {
    const wave power = part(powers[t - 1], 0, bins);
    smoothed.push_back(t == 1 ? power : 0.9 * smoothed[t - 1] + 0.1 * power);
    const float *estimate = mcra_do_mcra(state, powers[t - 1].data());
    for (size_t k = 0; k < bins; ++k) {
      double lowest = smoothed[t][k];
      for (size_t i = first_in_window(t); i < t; ++i) {
        lowest = std::min(lowest, smoothed[i][k]);
      }
      prob[k] = 0.09 * prob[k] + (smoothed[t][k] > 5.0 * lowest ? 0.91 : 0.0);
      const double held = 0.85 + 0.15 * prob[k];
      noise[k] = t == 1 ? power[k] : held * noise[k] + (1.0 - held) * power[k];
      SCOPED_TRACE(testing::Message() << "frame " << t << ", bin " << k);
      ASSERT_NEAR(wide(mcra_get_smoothed_pwr(state)[k]) / smoothed[t][k], 1.0, kTolerance);
      ASSERT_NEAR(wide(mcra_get_speech_prob(state)[k]), prob[k], kTolerance);
      ASSERT_LT(mcra_get_speech_prob(state)[k], 1.0f) << "the gain divides by 1 - p";
      ASSERT_NEAR(wide(estimate[k]) / noise[k], 1.0, kTolerance);
    }
  }
}

// Levels jump by up to 30 dB and then stay; the higher the bin, the longer they stay.
TEST(Mcra, FollowsItsRecursionsAndResetsToTheFirstFrame) {
  constexpr size_t kBins = 13;
  uint32_t seed = 211;
  std::vector<std::vector<float>> powers(500, std::vector<float>(kBins));
  for (size_t k = 0; k < kBins; ++k) {
    double level = 1.0;
    for (size_t t = 0; t < powers.size(); ++t) {
      level = t % (7 + 15 * k) == 0 ? std::pow(10.0, 1.5 * uniform(&seed)) : level;
      powers[t][k] = static_cast<float>(level * (1.0 + 0.5 * uniform(&seed)));
    }
  }
  powers[13][0] = 1e5f;  // in the warm-up nothing counts as speech, however loud
  mcra_state *state = mcra_init(kBins, 0);
  judge_estimate(state, powers);
  for (float *past : {state->smoothed_pwr, state->s_min, state->s_tmp}) {
    std::fill(past, past + kBins, NAN);
  }
  mcra_reset(state);
  for (size_t k = 0; k < kBins; ++k) {
    EXPECT_EQ(mcra_get_speech_prob(state)[k], 0.0f) << k;
    EXPECT_EQ(mcra_get_lambdaD(state)[k], 0.0f) << k;
  }
  std::reverse(powers.begin(), powers.end());
  judge_estimate(state, powers);
}

}  // namespace
