// Minima-controlled recursive averaging, one frame a call.
#include "noise/mcra_p.h"

#include <cstring>

#include "support/pool_vector.h"
#include "support/se_vector.h"

namespace {

// Smooths the power over about 10 frames: the minimum must follow the noise, not its ripple.
constexpr float kAlphaS = 0.9f;

// Ratio of smoothed power to minimum above which a bin counts as speech, about 7 dB.
constexpr float kDelta = 5.0f;

// Averages the noise over about 7 frames where speech is absent.
constexpr float kAlphaD = 0.85f;

// Lets the presence probability rise to 0.91 on the first speech frame.
constexpr float kAlphaP = 0.09f;

// Frames in a sub-window of the minimum search.
constexpr int32_t kSubWindowFrames = 15;

// Frames during which the minimum is the smoothed power itself.
constexpr int32_t kWarmUpFrames = 14;

inline float smaller(float x, float y) {
  return x < y ? x : y;
}

// One frame of every bin:
//   S = alpha_s S + (1 - alpha_s) P; the minima follow S down;
//   p = alpha_p p + (1 - alpha_p) [S > delta Smin]; a = alpha_d + (1 - alpha_d) p;
//   lambda = a lambda + (1 - a) P.
// All factors 1 - x are formed in single precision. As literals they would differ in the last bit,
// and p could reach 1, where the gain rule divides by zero. alpha_s is 0 on the first frame, so
// that its power becomes the smoothed power.
SE_BF_VECTOR_CLONES void update_bins(const mcra_state *state, const float *pwr, float alpha_s) {
  const float alpha_p = state->alpha_p;
  const float alpha_d = state->alpha_d;
  const float delta = state->delta;
  const float intake = 1.0f - alpha_s;
  const float presence = 1.0f - alpha_p;
  const float held = 1.0f - alpha_d;
  const int32_t num_bins = state->num_bins;
  float *smoothed = state->smoothed_pwr;
  float *minimum = state->s_min;
  float *recent_minimum = state->s_tmp;
  float *speech_prob = state->speech_prob;
  float *noise = state->lambdaD;
  SE_BF_INDEPENDENT_ROUNDS
  for (int32_t k = 0; k < num_bins; ++k) {
    const float power = alpha_s * smoothed[k] + intake * pwr[k];
    const float lowest = smaller(minimum[k], power);
    smoothed[k] = power;
    minimum[k] = lowest;
    recent_minimum[k] = smaller(recent_minimum[k], power);

    const float decayed = alpha_p * speech_prob[k];
    const float probability = decayed + (power > delta * lowest ? presence : 0.0f);
    const float alpha = held * probability + alpha_d;
    speech_prob[k] = probability;
    noise[k] = (1.0f - alpha) * pwr[k] + alpha * noise[k];
  }
}

// The power of the first frame is the first noise estimate. The smoothed power is cleared, because
// after a reset it is that of an earlier stream and may even be not-a-number.
SE_BF_RARELY_RUN void start_estimate(const mcra_state *state, const float *pwr) {
  copy_floats(state->lambdaD, pwr, state->num_bins);
  for (int32_t k = 0; k < state->num_bins; ++k) {
    state->smoothed_pwr[k] = 0.0f;
  }
}

// Forgets both minima: each becomes the smoothed power of the next frame. Bytes of all ones make a
// not-a-number, which is smaller than nothing.
void forget_minima(const mcra_state *state) {
  if (state->num_bins > 0) {
    const size_t bytes = static_cast<size_t>(state->num_bins) * sizeof(float);
    std::memset(state->s_min, 0xFF, bytes);
    std::memset(state->s_tmp, 0xFF, bytes);
  }
}

void close_subwindow(mcra_state *state) {
  state->subwin_cnt += 1;
  if (state->subwin_cnt < kSubWindowFrames) {
    return;
  }
  state->subwin_cnt = 0;
  if (state->frame_cnt == kSubWindowFrames) {
    resetCircularMat(state->min_buf, state->smoothed_pwr);
    return;
  }
  shiftToPutCircularMat(state->min_buf, state->s_tmp);
  getMinFrmCircleMat(state->min_buf, state->s_min);
  copy_floats(state->s_tmp, state->smoothed_pwr, state->num_bins);
}

}  // namespace

SE_BF_RARELY_RUN mcra_state *mcra_init_in(core_state *core, int32_t num_bins) {
  mcra_state *state = static_cast<mcra_state *>(tamrin_malloc_in(core, sizeof(mcra_state)));
  if (state == nullptr) {
    return nullptr;
  }
  state->num_bins = num_bins;
  state->alpha_s = kAlphaS;
  state->delta = kDelta;
  state->alpha_d = kAlphaD;
  state->alpha_p = kAlphaP;

  // The pool hands out zeroed memory: all vectors start at zero.
  state->min_buf = initCircularMat_in(core, num_bins);
  state->speech_prob = pool_floats(core, num_bins);
  state->lambdaD = pool_floats(core, num_bins);
  state->smoothed_pwr = pool_floats(core, num_bins);
  state->s_tmp = pool_floats(core, num_bins);
  state->s_min = pool_floats(core, num_bins);

  const bool complete = state->min_buf != nullptr && state->speech_prob != nullptr &&
                        state->lambdaD != nullptr && state->smoothed_pwr != nullptr &&
                        state->s_tmp != nullptr && state->s_min != nullptr;
  return complete ? state : nullptr;
}

SE_BF_RARELY_RUN void mcra_uninit(mcra_state *state) {
  if (state == nullptr) {
    return;
  }
  pool_release(state->speech_prob);
  pool_release(state->lambdaD);
  pool_release(state->smoothed_pwr);
  pool_release(state->s_tmp);
  pool_release(state->s_min);
  uinitCircularMat(state->min_buf);
  tamrin_free(state);
}

SE_BF_RARELY_RUN void mcra_reset(mcra_state *state) {
  if (state == nullptr) {
    return;
  }
  state->frame_cnt = 0;
  state->subwin_cnt = 0;
  for (int32_t k = 0; k < state->num_bins; ++k) {
    state->speech_prob[k] = 0.0f;
    state->lambdaD[k] = 0.0f;
  }
}

float *mcra_do_mcra(mcra_state *state, const float *pwr) {
  state->frame_cnt += 1;
  if (state->frame_cnt <= kWarmUpFrames) {
    forget_minima(state);
  }
  const bool first = state->frame_cnt == 1;
  if (first) {
    start_estimate(state, pwr);
  }
  update_bins(state, pwr, first ? 0.0f : state->alpha_s);
  close_subwindow(state);
  return state->lambdaD;
}

float *mcra_get_speech_prob(const mcra_state *state) {
  return state == nullptr ? nullptr : state->speech_prob;
}

float *mcra_get_smoothed_pwr(const mcra_state *state) {
  return state == nullptr ? nullptr : state->smoothed_pwr;
}

float *mcra_get_lambdaD(const mcra_state *state) {
  return state == nullptr ? nullptr : state->lambdaD;
}
