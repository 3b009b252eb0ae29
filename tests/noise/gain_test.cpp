// Gain rules and the exponential integral against the formulas of their papers in double precision.
#include <gtest/gtest.h>

#include "noise/circle_matrics.h"
#include "noise/omlsa.h"
#include "support/se_maths.h"
#include "test_signals.h"

namespace {

constexpr double kEulerShort = 0.5772;  // four digits on purpose, as in the library
constexpr double kLogTenShort = 2.3026;

// One bin of one frame, and what a rule makes of it. eta: clean-speech over noise power.
struct bin_input {
  double power;
  double noise;
  double prob;
};

struct bin_gain {
  double gain;
  double eta;
};

double prior_snr(double posterior, double eta) {
  return 0.05 * std::max(posterior - 1.0, 0.0) + 0.95 * eta;
}

bin_gain root_wiener(bin_input in, double eta) {
  const double posterior = in.power / ((1.0 - in.prob) * std::max(in.noise, 1.19e-6));
  const double prior = prior_snr(posterior, eta);
  const double wiener = prior / (1.0 + prior);
  return {std::sqrt(wiener), posterior * wiener};
}

// Minimum gain -20 dB.
bin_gain log_spectral(bin_input in, double eta) {
  const double posterior = in.power / std::max(in.noise, 1.19e-6);
  const double prior = prior_snr(posterior, eta);
  const double v = prior * posterior / (1.0 + prior);
  const double e1 = -std::expint(-v) + (0.57721566490153286 - kEulerShort);
  const double factor = v > 5.0 ? 1.0 : std::exp(e1 / 2.0);
  const double speech_gain = v > 0.0 ? factor * prior / (1.0 + prior) : 1.0;
  const bool certain = std::abs(in.prob - 1.0) < 0.001 && prior > 316.23;
  const double log_gain = (in.prob - 1.0) * kLogTenShort + in.prob * std::log(speech_gain);
  const double amplitude = certain ? 1.0 : std::exp(log_gain);
  const double w = posterior * amplitude * amplitude;
  const double gain = std::max(w / (w + 1.0), 0.1);
  return {gain, posterior * gain * gain};
}

bin_gain map_amplitude(bin_input in, double eta) {
  const double posterior = in.power / std::max(in.noise, 1.19e-6);
  const double prior = prior_snr(posterior, eta);
  const double u = 2.0 * std::sqrt(prior * posterior);
  const double bessel_ratio = u > 1.0 ? 1.0 - 0.5 / u : 0.5 * u;
  const double q = 0.5 * prior / (1.0 + prior);
  const double a = bessel_ratio * q;
  return {a + std::sqrt(q / posterior + a * a), eta};
}

constexpr struct {
  const char *name;
  bin_gain (*expected)(bin_input in, double eta);
  float *(*gain)(omlsa_state *bins, const float *power, const float *noise, const float *prob);
} kRules[] = {{"root Wiener", root_wiener, do_ss},
              {"log spectral", log_spectral, do_omlsa},
              {"maximum a posteriori", map_amplitude,
               [](omlsa_state *bins, const float *power, const float *noise, const float *) {
                 return do_mmse_map(bins, power, noise);
               }}};

// Frames of eight bins: the eta that they start from, then powers, noises and speech probabilities.
// Some bins have common levels; the others lie on either side of a limit of a rule.
constexpr struct {
  float eta[8];
  float power[8];
  float noise[8];
  float prob[8];
} kFrames[] = {
    {{1, 1, 1, 1, 1, 1, 1, 1},
     {1.0f, 0.01f, 0.5f, 4.0f, 30.0f, 4000.0f, 1e6f, 3.0f},
     {1.0f, 1.0f, 0.0f, 1.0f, 2.0f, 1.0f, 1.0f, 5.0f},
     {0.0f, 0.3f, 0.0f, 0.91f, 0.99f, 0.9999f, 0.9995f, 0.97f}},
    // Noise near its floor; a prior SNR of 0 (v = 0); speech probability and prior SNR near their
    // limits for certain speech: prior SNRs of 316.2 and 316.3.
    {{1.0f, 1.0f, 0.0f, 0.0f, 332.85f, 332.95f, 332.95f, 332.95f},
     {1e-6f, 1e-6f, 1.0f, 0.7f, 0.5f, 0.5f, 0.5f, 0.5f},
     {1e-6f, 1.3e-6f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f},
     {0.5f, 0.5f, 0.9f, 0.2f, 0.9995f, 0.9995f, 0.9989f, 0.9991f}},
    // v near its limit: 4.97, 5.03; u near its limit: 0.99, 1.01; x near the smallest gain.
    {{100.0f, 100.0f, 0.51f, 0.54f, 2.0f, 2.0f, 20.0f, 0.3f},
     {5.02f, 5.08f, 0.5f, 0.5f, 0.105f, 0.115f, 7.0f, 60.0f},
     {1, 1, 1, 1, 1, 1, 1, 1},
     {0.95f, 0.95f, 0.2f, 0.2f, 0.99f, 0.99f, 0.98f, 0.9f}},
};

TEST(Gain, RulesFollowTheirPapers) {
  constexpr double kTolerance = 5e-6;
  for (const auto &rule : kRules) {
    for (const auto &frame : kFrames) {
      omlsa_state *bins = omlsa_init(8, 2001, -20.0f);
      std::copy(frame.eta, frame.eta + 8, bins->eta2item);
      wave eta = part(frame.eta, 0, 8);
      for (int32_t repeat = 0; repeat < 6; ++repeat) {
        const float *gain = rule.gain(bins, frame.power, frame.noise, frame.prob);
        for (size_t k = 0; k < 8; ++k) {
          const bin_gain expected = rule.expected(
              {wide(frame.power[k]), wide(frame.noise[k]), wide(frame.prob[k])}, eta[k]);
          eta[k] = expected.eta;
          SCOPED_TRACE(testing::Message()
                       << rule.name << ", frame of " << testing::PrintToString(frame.power)
                       << ", bin " << k << ", repeat " << repeat);
          EXPECT_NEAR(wide(gain[k]), expected.gain, kTolerance * expected.gain);
          EXPECT_NEAR(wide(bins->eta2item[k]), expected.eta, kTolerance * expected.eta);
        }
      }
    }
  }
}

TEST(Gain, StatesStartFromOneAndFromTheGivenMinimum) {
  const float one = 1.0f;
  const float none = 0.0f;
  EXPECT_FLOAT_EQ(omlsa_init(1, 2001, -20.0f)->log_gain_min, -2.3026f);
  EXPECT_FLOAT_EQ(omlsa_init(1, 2001, 0.0f)->log_gain_min, -0.0921039954f);
  omlsa_state *state = omlsa_init(2, 2001, 6.0f);
  EXPECT_FLOAT_EQ(state->log_gain_min, -0.0921039954f);
  for (const bool reset : {false, true}) {
    for (size_t k = 0; k < 2; ++k) {
      EXPECT_EQ(get_omlsa_gain(state)[k], 1.0f) << k << (reset ? ", after a reset" : "");
      EXPECT_EQ(get_eta2item(state)[k], 1.0f) << k << (reset ? ", after a reset" : "");
      state->gain[k] = state->eta2item[k] = 0.5f;
    }
    omlsa_reset(state);
  }
  state->num_bins = 0;
  state->gain[0] = 7.0f;
  EXPECT_EQ(*do_ss(state, &one, &one, &none), 7.0f) << "no bin, no change";
}

TEST(Maths, SmoothingExponentialIntegralAndLogarithmGiveKnownValues) {
  const struct {
    float x[4];
    float smoothed[4];
  } cases[] = {{{1, 0, 0, 0}, {0.75f, 0.25f, 0, 0}},
               {{0, 1, 0, 0}, {0.25f, 0.5f, 0.25f, 0}},
               {{0, 0, 0, 1}, {0, 0, 0.25f, 0.5f}}};
  for (const auto &c : cases) {
    float x[4];
    std::copy(c.x, c.x + 4, x);
    b_spline(x, 4);
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(x[i], c.smoothed[i]) << i << " of " << testing::PrintToString(c.x);
    }
  }
  for (const float x : {0.01f, 0.5f, 5.0f}) {
    EXPECT_NEAR(wide(expint_f(x)), -std::expint(-wide(x)) + 0.57721566490153286 - kEulerShort,
                3e-6);
    EXPECT_NEAR(expint_d(wide(x)), -std::expint(-wide(x)), 1e-13);
  }
  EXPECT_EQ(se_expint(0.0f), HUGE_VALF);
  EXPECT_FLOAT_EQ(se_log10(1000.0f), 3.0f);
}

}  // namespace
