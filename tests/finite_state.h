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
  constexpr int32_t kBlockFloats = sizeof(mvdr_block) / sizeof(float);
  const auto *blocks = reinterpret_cast<const float *>(inst->mvdr->blocks);
  bool finite = true;
  for (const float *x : {mcra->speech_prob, mcra->lambdaD, mcra->smoothed_pwr, mcra->s_tmp,
                         mcra->s_min, inst->omlsa->gain, inst->omlsa->eta2item, inst->bin_buf}) {
    finite = finite && is_finite(x, bins);
  }
  return finite && is_finite(mcra->min_buf->base, kCircularRows * bins) &&
         is_finite(blocks, kBlockFloats * mvdr_block_count(bins)) &&
         is_finite(inst->spectrum, inst->num_ch_in * stft->fft_len) &&
         is_finite(stft->history, inst->num_ch_in * stft->fft_len) &&
         is_finite(stft->ola_tail, stft->overlap) &&
         is_finite(inst->cache->out_store, inst->cache->out_fill);
}

#endif  // TM_SE_BF_TESTS_FINITE_STATE_H
