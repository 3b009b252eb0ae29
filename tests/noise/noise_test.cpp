// Noise tracking and gain rules against the formulas of their papers in double precision.
#include <gtest/gtest.h>

#include "noise/circle_matrics.h"
#include "noise/mcra_p.h"
#include "noise/omlsa.h"
#include "test_signals.h"

namespace {

// The estimator with the whole history of one bin at hand; frames count from 1.
struct history_oracle {
  wave smoothed{0.0};
  double prob = 0.0;
  double noise = 0.0;
};

double least(const wave &x, size_t from, size_t to) {
  const auto at = [&x](size_t t) { return x.begin() + static_cast<long>(t); };
  return *std::min_element(at(from), at(to) + 1);
}

// Eight sub-windows of 15 frames and the current one; each also sees the last frame of the one
// before it. The first sub-window counts with its last frame only, and stands in for missing ones.
double tracked_minimum(const wave &smoothed, size_t t) {
  if (t < 15) {
    return smoothed[t];
  }
  const size_t closed = (t - 1) / 15;
  const size_t first = closed < 9 ? 1 : closed - 7;
  return least(smoothed, first == 1 ? 14 : 15 * (first - 1), t);
}

void oracle_frame(history_oracle *o, double power) {
  const size_t t = o->smoothed.size();
  o->smoothed.push_back(t == 1 ? power : 0.9 * o->smoothed[t - 1] + 0.1 * power);
  const bool speech = o->smoothed[t] > 5.0 * tracked_minimum(o->smoothed, t);
  o->prob = 0.09 * o->prob + (speech ? 0.91 : 0.0);
  const double alpha = t == 1 ? 0.0 : 0.85 + 0.15 * o->prob;
  o->noise = alpha * o->noise + (1.0 - alpha) * power;
}

TEST(Mcra, FollowsThePaperOnBurstsInNoise) {
  constexpr size_t kBins = 17;
  constexpr size_t kFrames = 400;
  tamrin_free(nullptr);
  mcra_state *state = mcra_init(kBins, 0);
  double worst = 0.0;
  size_t speech_frames = 0;
  for (int32_t run = 0; run < 2; ++run) {
    std::vector<history_oracle> oracle(kBins);
    uint32_t seed = 121;
    for (size_t t = 1; t <= kFrames; ++t) {
      float powers[kBins];
      for (size_t k = 0; k < kBins; ++k) {
        // Bursts, the first at the end of the warm-up, on noise that rises fivefold in as many
        // frames as the long window holds, give or take.
        const double burst = (t + 7 * k + 47) % 61 < 12 ? 100.0 : 1.0;
        const double rise =
            std::pow(5.0, static_cast<double>(t) / (110.0 + 2.5 * static_cast<double>(k)));
        powers[k] = static_cast<float>(burst * rise * (1.0 + 0.1 * uniform(&seed)));
        oracle_frame(&oracle[k], wide(powers[k]));
      }
      const float *noise = mcra_do_mcra(state, powers);
      const float *prob = mcra_get_speech_prob(state);
      ASSERT_TRUE(noise == mcra_get_lambdaD(state) && *mcra_get_smoothed_pwr(state) > 0.0f);
      for (size_t k = 0; k < kBins; ++k) {
        worst = std::max(worst, std::abs(wide(noise[k]) / oracle[k].noise - 1.0));
        worst = std::max(worst, std::abs(wide(prob[k]) - oracle[k].prob));
        speech_frames += prob[k] > 0.5f ? 1 : 0;
      }
    }
    mcra_reset(state);  // the second run starts as the first did
  }
  std::printf("largest deviation %.1e, %zu speech frames\n", worst, speech_frames);
  EXPECT_LE(worst, 2e-5);
  EXPECT_GT(speech_frames, kFrames);
}

enum rule { kWiener, kLogSpectral, kMap };

// The gain by the papers' formulas; *eta is the clean-speech over noise power that rules carry on.
double textbook(rule which, double power, double noise, double prob, double *eta) {
  const double lambda = std::max(noise, 1.19e-6);
  const double gamma = power / lambda / (which == kWiener ? 1.0 - prob : 1.0);
  const double xi = 0.05 * std::max(gamma - 1.0, 0.0) + 0.95 * *eta;
  const double wiener = xi / (1.0 + xi);
  if (which == kWiener) {
    *eta = gamma * wiener;
    return std::sqrt(wiener);
  }
  if (which == kMap) {
    const double u = 2.0 * std::sqrt(xi * gamma);
    const double a = (u > 1.0 ? 1.0 - 0.5 / u : 0.5 * u) * 0.5 * wiener;
    return a + std::sqrt(0.5 * wiener / gamma + a * a);
  }
  const double v = wiener * gamma;
  const double factor = v > 5.0 ? 1.0 : std::exp(-0.5 * std::expint(-v));
  const double speech = v > 0.0 ? wiener * factor : 1.0;
  const bool certain = std::abs(prob - 1.0) < 0.001 && xi > 316.23;
  const double combined = certain ? 1.0 : std::pow(speech, prob) * std::pow(0.1, 1.0 - prob);
  const double w = gamma * combined * combined;
  const double gain = std::max(0.1, w / (1.0 + w));
  *eta = gamma * gain * gain;
  return gain;
}

TEST(Gain, RulesFollowTheirPapers) {
  constexpr double kTolerance = 1e-4;  // Euler's constant has four digits
  constexpr size_t kBins = 8;
  const float powers[] = {1.0f, 0.01f, 0.5f, 4.0f, 30.0f, 4000.0f, 1e6f, 3.0f};
  const float noises[] = {1.0f, 1.0f, 0.0f, 1.0f, 2.0f, 1.0f, 1.0f, 5.0f};
  const float probs[] = {0.0f, 0.3f, 0.0f, 0.91f, 0.99f, 0.9999f, 0.9995f, 0.97f};
  for (const rule which : {kWiener, kLogSpectral, kMap}) {
    tamrin_free(nullptr);
    omlsa_state *state = omlsa_init(kBins, 2001, -20.0f);
    wave eta(kBins, 1.0);
    double worst = 0.0;
    for (int32_t frame = 0; frame < 6; ++frame) {
      const float *gain = which == kWiener ? do_ss(state, powers, noises, probs)
                          : which == kMap  ? do_mmse_map(state, powers, noises)
                                           : do_omlsa(state, powers, noises, probs);
      for (size_t k = 0; k < kBins; ++k) {
        const double expected =
            textbook(which, wide(powers[k]), wide(noises[k]), wide(probs[k]), &eta[k]);
        worst = std::max(worst, std::abs(wide(gain[k]) / expected - 1.0));
        worst = std::max(worst, std::abs(wide(state->eta2item[k]) - eta[k]) / (1.0 + eta[k]));
      }
    }
    std::printf("rule %d: largest relative deviation %.1e\n", which, worst);
    EXPECT_LE(worst, kTolerance);
  }

  std::vector<float> ends = {1, 0, 0, 1};
  b_spline(ends.data(), 4);
  EXPECT_EQ(ends, (std::vector<float>{0.75f, 0.25f, 0.25f, 0.5f}));
  omlsa_state *state = omlsa_init(1, 2001, -20.0f);
  EXPECT_FLOAT_EQ(state->log_gain_min, -2.3026f);
  EXPECT_FLOAT_EQ(omlsa_init(1, 2001, 6.0f)->log_gain_min, -0.0921039954f);
  *state->eta2item = 0.0f;
  EXPECT_EQ(*do_ss(state, powers, noises, probs), 0.0f) << "an a-priori SNR of 0 mutes";
  omlsa_reset(state);
  EXPECT_TRUE(*get_omlsa_gain(state) == 1.0f && *get_eta2item(state) == 1.0f);
}

}  // namespace
