// Square-root Wiener gain, OM-LSA gain and MAP amplitude gain.
#include "noise/omlsa.h"

#include <cmath>

#include "support/pool_vector.h"
#include "support/se_maths.h"
#include "support/se_vector.h"

namespace {

// Weight of the last frame's estimate in the a-priori SNR: strong smoothing against musical noise.
constexpr float kAlphaXi = 0.95f;

// Smallest noise power: keeps the SNR of digital silence finite. The single-precision constant is
// the smallest float above the double one. A float is therefore above the double constant exactly
// when it is not below the single one.
constexpr double kNoiseFloor = 1.19e-6;
constexpr float kNoiseFloorSingle = 1.19e-6f;
static_assert(static_cast<double>(kNoiseFloorSingle) > kNoiseFloor, "floor rounds up");

// Decibels times 0.5 / 10 ln(10) are the natural logarithm of an amplitude. ln(10) is deliberately
// short: the bits of the minimum gain depend on it.
constexpr float kDbPerBel = 10.0f;
constexpr float kLogTen = 2.3026f;

// Natural logarithm of the minimum gain, -0.8 dB, unless a minimum below 0 dB is given.
constexpr float kDefaultLogGainMin = -0.0921039954f;

// Argument above which the exponential-integral factor of the log-spectral gain is 1.
constexpr float kExpintLimit = 5.0f;

// A bin passes unchanged if its speech presence is within this distance of 1 and its a-priori SNR
// is above 25 dB.
constexpr double kCertainSpeech = 0.001;
constexpr float kHighSnr = 316.23f;

// Smallest gain of do_omlsa, and its square as single precision rounds it.
constexpr float kGainFloor = 0.1f;
constexpr float kGainFloorSquared = kGainFloor * kGainFloor;
constexpr double kGainFloorLimit = 0.1;

struct snr_pair {
  float posterior;  // gamma
  float prior;      // xi
};

bool above_noise_floor(float noise) {
  return noise >= kNoiseFloorSingle;
}

SE_BF_RARELY_RUN float *pool_ones(core_state *core, int32_t num_bins) {
  float *ones = pool_floats(core, num_bins);
  for (int32_t k = 0; ones != nullptr && k < num_bins; ++k) {
    ones[k] = 1.0f;
  }
  return ones;
}

// gamma = P / lambda; xi = (1 - alpha) max(gamma - 1, 0) + alpha eta, at least xi_min.
snr_pair decision_directed_snr(const omlsa_state *state, float pwr, float noise, float eta) {
  const double lambda = above_noise_floor(noise) ? static_cast<double>(noise) : kNoiseFloor;
  const float posterior = static_cast<float>(static_cast<double>(pwr) / lambda);
  const float excess = posterior - 1.0f > 0.0f ? posterior - 1.0f : 0.0f;
  const float prior = excess * (1.0f - state->alpha_xi) + state->alpha_xi * eta;
  return {posterior, prior < state->xi_min ? state->xi_min : prior};
}

// G1 = xi / (xi + 1) exp(E1(v) / 2), v = xi gamma / (xi + 1). At v = 0 the gain is deliberately 1,
// which is not the limit of the formula.
float log_spectral_gain(snr_pair snr) {
  const float wiener = snr.prior / (snr.prior + 1.0f);
  const float v = snr.prior * snr.posterior / (snr.prior + 1.0f);
  if (v > kExpintLimit) {
    return wiener;
  }
  return v > 0.0f ? wiener * se_exp(0.5f * se_expint(v)) : 1.0f;
}

// G = G1^p Gmin^(1-p).
float combined_gain(snr_pair snr, float prob, float log_gain_min) {
  const bool certain = std::fabs(static_cast<double>(prob) - 1.0) < kCertainSpeech;
  if (certain && snr.prior > kHighSnr) {
    return 1.0f;
  }
  const float speech_gain = log_spectral_gain(snr);
  return se_exp((1.0f - prob) * log_gain_min + prob * se_log(speech_gain));
}

// g^2 = xi / (xi + 1), xi = (1 - alpha) max(gamma - 1, 0) + alpha eta,
// gamma = P / ((1 - p) lambda).
SE_BF_VECTOR_CLONES void wiener_root_gain(const omlsa_state *state, const float *pwr,
                                          const float *noise, const float *prob) {
  const float alpha = state->alpha_xi;
  const float rest = 1.0f - alpha;
  const float prior_min = state->xi_min;
  const int32_t num_bins = state->num_bins;
  float *gain = state->gain;
  float *eta = state->eta2item;
  SE_BF_INDEPENDENT_ROUNDS
  for (int32_t k = 0; k < num_bins; ++k) {
    const float lambda = noise[k] >= kNoiseFloorSingle ? noise[k] : kNoiseFloorSingle;
    const float posterior = pwr[k] / ((1.0f - prob[k]) * lambda);

    const float excess = rest * (posterior - 1.0f);
    const float innovation = excess < 0.0f ? 0.0f : excess;
    const float directed = innovation + alpha * eta[k];
    const float prior = directed < prior_min ? prior_min : directed;

    const float wiener = prior / (prior + 1.0f);
    gain[k] = se_sqrt(wiener);
    eta[k] = posterior * wiener;
  }
}

}  // namespace

SE_BF_RARELY_RUN omlsa_state *omlsa_init_in(core_state *core, int32_t num_bins, int32_t mode_code,
                                            float gain_min_db) {
  omlsa_state *state = static_cast<omlsa_state *>(tamrin_malloc_in(core, sizeof(omlsa_state)));
  if (state == nullptr) {
    return nullptr;
  }
  state->mode_code = mode_code;
  state->num_bins = num_bins;
  state->log_gain_min =
      gain_min_db >= 0.0f ? kDefaultLogGainMin : gain_min_db * 0.5f / kDbPerBel * kLogTen;
  state->alpha_xi = kAlphaXi;
  state->eta2item = pool_ones(core, num_bins);
  state->gain = pool_ones(core, num_bins);
  return state->eta2item != nullptr && state->gain != nullptr ? state : nullptr;
}

SE_BF_RARELY_RUN void omlsa_uninit(omlsa_state *state) {
  if (state == nullptr) {
    return;
  }
  pool_release(state->eta2item);
  pool_release(state->gain);
  tamrin_free(state);
}

SE_BF_RARELY_RUN void omlsa_reset(omlsa_state *state) {
  if (state == nullptr) {
    return;
  }
  for (int32_t k = 0; k < state->num_bins; ++k) {
    state->gain[k] = 1.0f;
  }
  for (int32_t k = 0; state->eta2item != nullptr && k < state->num_bins; ++k) {
    state->eta2item[k] = 1.0f;
  }
}

SE_BF_RARELY_RUN float *get_omlsa_gain(const omlsa_state *state) {
  return state->gain;
}

SE_BF_RARELY_RUN float *get_eta2item(const omlsa_state *state) {
  return state->eta2item;
}

float *do_ss(omlsa_state *state, const float *pwr, const float *noise, const float *prob) {
  wiener_root_gain(state, pwr, noise, prob);
  return state->gain;
}

SE_BF_RARELY_RUN float *do_omlsa(omlsa_state *state, const float *pwr, const float *noise,
                                 const float *prob) {
  for (int32_t k = 0; k < state->num_bins; ++k) {
    const snr_pair snr = decision_directed_snr(state, pwr[k], noise[k], state->eta2item[k]);
    const float amplitude = combined_gain(snr, prob[k], state->log_gain_min);

    const float w = snr.posterior * (amplitude * amplitude);
    const float x = w / (w + 1.0f);
    const bool above_floor = static_cast<double>(x) > kGainFloorLimit;
    state->gain[k] = above_floor ? x : kGainFloor;
    state->eta2item[k] = snr.posterior * (above_floor ? x * x : kGainFloorSquared);
  }
  return state->gain;
}

SE_BF_RARELY_RUN float *do_mmse_map(omlsa_state *state, const float *pwr, const float *noise) {
  for (int32_t k = 0; k < state->num_bins; ++k) {
    const snr_pair snr = decision_directed_snr(state, pwr[k], noise[k], state->eta2item[k]);
    const float u = 2.0f * se_sqrt(snr.prior * snr.posterior);

    // Ratio of the modified Bessel functions I1(u) / I0(u): for u > 1 its asymptote, below that its
    // slope at 0.
    const float ratio =
        u > 1.0f ? static_cast<float>(1.0 - 0.5 / static_cast<double>(u)) : 0.5f * u;
    const double prior = static_cast<double>(snr.prior);
    const float q = static_cast<float>(0.5 * prior / (prior + 1.0));
    const float a = ratio * q;
    const double root = std::sqrt(static_cast<double>(q / snr.posterior + a * a));
    state->gain[k] = static_cast<float>(static_cast<double>(a) + root);
  }
  return state->gain;
}
