// Noise power and speech presence per frequency bin by minima-controlled recursive averaging
// (Cohen and Berdugo, "Noise estimation by minima controlled recursive averaging for robust speech
// enhancement", 2002).
//
// The noisy power is smoothed over time and its minimum is tracked over 8 sub-windows of 15 frames
// plus the current one. A bin whose smoothed power is well above that minimum counts as speech. The
// less likely speech is, the faster the noise estimate follows the noisy power. During the first 14
// frames the minimum equals the smoothed power, so no bin counts as speech and the estimate follows
// the input.
//
// Vectors have K floats, one per bin; powers are squared spectral magnitudes.
#ifndef TM_SE_BF_NOISE_MCRA_P_H
#define TM_SE_BF_NOISE_MCRA_P_H

#include <cstdint>

#include "noise/circle_matrics.h"
#include "support/tamrin_memory.h"

#pragma pack(push, 4)
struct mcra_state {
  int32_t frame_cnt;      // frames since creation or reset
  int32_t subwin_cnt;     // frames in the current sub-window, 0 .. 14
  int32_t num_bins;       // K
  circular_mat *min_buf;  // minima of the last eight sub-windows
  float alpha_s;          // smoothing factor of the power
  float delta;            // speech threshold on smoothed power over minimum
  float alpha_d;          // base smoothing factor of the noise estimate
  float alpha_p;          // smoothing factor of the speech-presence probability
  float *speech_prob;     // [K] speech-presence probability p, 0 .. 1
  float *lambdaD;         // [K] noise power estimate
  float *smoothed_pwr;    // [K] smoothed power S
  float *s_tmp;           // [K] minimum of S in the current sub-window
  float *s_min;           // [K] minimum of S over the long window
};
#pragma pack(pop)

// Makes an estimator for num_bins bins from the pool; the second argument is ignored. Returns null
// when the pool is exhausted.
mcra_state *mcra_init_in(core_state *core, int32_t num_bins);
inline mcra_state *mcra_init(int32_t num_bins, int32_t) {
  return mcra_init_in(&process_core, num_bins);
}

// Releases the estimator through the pool; null is accepted.
void mcra_uninit(mcra_state *state);

// Restarts the warm-up: the next frame is treated as the first. Null is accepted. Only tests call
// it.
void mcra_reset(mcra_state *state);

// Processes one frame. pwr: [K] power spectrum, read only. Returns the noise estimate (lambdaD),
// owned by the state and valid until the next call.
float *mcra_do_mcra(mcra_state *state, const float *pwr);

// Vectors of the state, valid until the next call of mcra_do_mcra; null for a null state. Only
// tests call the last two.
float *mcra_get_speech_prob(const mcra_state *state);
float *mcra_get_smoothed_pwr(const mcra_state *state);
float *mcra_get_lambdaD(const mcra_state *state);

#endif  // TM_SE_BF_NOISE_MCRA_P_H
