// Single-channel gain rules and the state that they carry from frame to frame.
//
// Mode 6001 uses do_ss, the square-root Wiener gain. do_omlsa and do_mmse_map are alternatives that
// no mode uses. Vectors have K floats, one per bin: pwr is the noisy
// power, noise the noise power estimate, prob the speech-presence probability; all three are read
// only. Each rule returns the state's `gain`, valid until the next call; for K < 1 it changes
// nothing. A noise estimate that is not above 1.19e-6 counts as 1.19e-6.
#ifndef TM_SE_BF_NOISE_OMLSA_H
#define TM_SE_BF_NOISE_OMLSA_H

#include <cstdint>

#include "support/tamrin_memory.h"

#pragma pack(push, 4)
struct omlsa_state {
  int32_t mode_code;   // stored at creation, read by nothing
  int32_t num_bins;    // K
  float log_gain_min;  // natural logarithm of the minimum gain of do_omlsa
  float alpha_xi;      // decision-directed weight
  float xi_min;        // floor of the a-priori SNR, 0
  float *gain;         // [K] gain of the last frame, 1 at creation
  float *eta2item;     // [K] clean-speech over noise power of the last frame, 1 at creation
};
#pragma pack(pop)

// Makes a state for num_bins bins from the pool. gain_min_db: minimum gain of do_omlsa in dB; 0 and
// more select -0.8 dB. Returns null when the pool is exhausted.
omlsa_state *omlsa_init_in(core_state *core, int32_t num_bins, int32_t mode_code,
                           float gain_min_db);
inline omlsa_state *omlsa_init(int32_t num_bins, int32_t mode_code, float gain_min_db) {
  return omlsa_init_in(&process_core, num_bins, mode_code, gain_min_db);
}

// Releases the state through the pool; null is accepted. Only tests call it: an instance's state
// goes with the pool.
void omlsa_uninit(omlsa_state *state);

// Sets gain and eta2item to 1 again; null is accepted. Only tests call it.
void omlsa_reset(omlsa_state *state);

// Vectors of the state, which must not be null. Only tests call them.
float *get_omlsa_gain(const omlsa_state *state);
float *get_eta2item(const omlsa_state *state);

// Spectral subtraction: the square root of the Wiener gain on the decision-directed a-priori SNR
// (Ephraim and Malah, "Speech enhancement using a minimum mean-square error short-time spectral
// amplitude estimator", 1984; Scalart and Filho, "Speech enhancement based on a priori signal to
// noise estimation", 1996). The noise estimate is first multiplied by 1 - prob, so that noise
// counts little where speech is likely. prob must stay below 1. Updates gain and eta2item.
float *do_ss(omlsa_state *state, const float *pwr, const float *noise, const float *prob);

// Optimally-modified log-spectral amplitude (Cohen and Berdugo, "Speech enhancement for
// non-stationary noise environments", 2001): G = G1^prob Gmin^(1 - prob), with the log-spectral
// amplitude gain G1 (Ephraim and Malah, "Speech enhancement using a minimum mean-square error
// log-spectral amplitude estimator", 1985) and the minimum gain Gmin. The result is then mapped to
// a Wiener-type gain of at least 0.1. Updates gain and eta2item. Only tests call it.
float *do_omlsa(omlsa_state *state, const float *pwr, const float *noise, const float *prob);

// Joint maximum-a-posteriori amplitude (Wolfe and Godsill, "Efficient alternatives to the Ephraim
// and Malah suppression rule for audio signal enhancement", 2003). The ratio of modified Bessel
// functions is approximated by its asymptote for large arguments and by its slope at 0 for small
// ones (Abramowitz and Stegun, "Handbook of mathematical functions", 1964, 9.7.1 and 9.6.10).
// Updates gain only. Only tests call it.
float *do_mmse_map(omlsa_state *state, const float *pwr, const float *noise);

#endif  // TM_SE_BF_NOISE_OMLSA_H
