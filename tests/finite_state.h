// Looks into an instance: whether every vector that it carries from frame to frame is finite.
#ifndef TM_SE_BF_TESTS_FINITE_STATE_H
#define TM_SE_BF_TESTS_FINITE_STATE_H

#include <algorithm>
#include <cmath>

#include "interface/se_bf_instance.h"

inline bool is_finite(const float *x, int32_t count) {
  return std::all_of(x, x + count, [](float value) { return std::isfinite(value); });
}

// The instance has been initialised and not refused.
inline bool state_is_finite(const se_bf_inst *inst) {
  const mcra_state *mcra = inst->mcra;
  const stft_buf *stft = inst->stft;
  const int32_t bins = inst->num_bins;
  const int32_t channels = inst->num_ch_in;
  constexpr int32_t kBlockFloats = sizeof(mvdr_block) / sizeof(float);
  const struct {
    const float *x;
    int32_t count;
  } vectors[] = {
      {mcra->speech_prob, bins},
      {mcra->lambdaD, bins},
      {mcra->smoothed_pwr, bins},
      {mcra->s_tmp, bins},
      {mcra->s_min, bins},
      {mcra->min_buf->base, kCircularRows * bins},
      {inst->omlsa->gain, bins},
      {inst->omlsa->eta2item, bins},
      {inst->bin_buf, bins},
      {reinterpret_cast<const float *>(inst->mvdr->blocks), kBlockFloats * mvdr_block_count(bins)},
      {inst->frame, channels * inst->hop_len},
      {inst->spectrum, channels * stft->fft_len},
      {stft->history, channels * stft->fft_len},
      {stft->ola_tail, stft->overlap},
      {inst->cache->out_store, inst->cache->out_fill}};
  bool finite = true;
  for (const auto &vector : vectors) {
    finite = finite && is_finite(vector.x, vector.count);
  }
  return finite;
}

#endif  // TM_SE_BF_TESTS_FINITE_STATE_H
