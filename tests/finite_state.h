// Checks whether every vector that an instance carries from frame to frame is finite.
#ifndef TM_SE_BF_TESTS_FINITE_STATE_H
#define TM_SE_BF_TESTS_FINITE_STATE_H

#include <algorithm>
#include <cmath>
#include <string>

#include "interface/se_bf_instance.h"

inline bool is_finite(const float *x, int32_t count) {
  return std::all_of(x, x + count, [](float value) { return std::isfinite(value); });
}

// The first vector with an entry that is not finite, or nothing. The instance has been initialised
// and not refused.
inline std::string not_finite(const se_bf_inst *inst) {
  const mcra_state *mcra = inst->mcra;
  const mvdr_evd_state *mvdr = inst->mvdr;
  const stft_buf *stft = inst->stft;
  const int32_t bins = inst->num_bins;
  const int32_t channels = inst->num_ch_in;
  constexpr int32_t kBlockFloats = sizeof(mvdr_block) / sizeof(float);
  const struct {
    const char *name;
    const float *x;
    int32_t count;
  } vectors[] = {{"speech_prob", mcra->speech_prob, bins},
                 {"lambdaD", mcra->lambdaD, bins},
                 {"smoothed_pwr", mcra->smoothed_pwr, bins},
                 {"s_tmp", mcra->s_tmp, bins},
                 {"s_min", mcra->s_min, bins},
                 {"min_buf", mcra->min_buf->base, kCircularRows * bins},
                 {"gain", inst->omlsa->gain, bins},
                 {"eta2item", inst->omlsa->eta2item, bins},
                 {"bin_buf", inst->bin_buf, bins},
                 {"speech_weight", mvdr->speech_weight, bins},
                 {"noise_weight", mvdr->noise_weight, bins},
                 {"weights", &mvdr->weights->re, 2 * channels * bins},
                 {"steering", &mvdr->steering->re, 2 * channels * bins},
                 {"covariances", reinterpret_cast<const float *>(mvdr->blocks),
                  kBlockFloats * mvdr_block_count(bins)},
                 {"frame", inst->frame, channels * inst->hop_len},
                 {"spectrum", inst->spectrum, channels * stft->fft_len},
                 {"history", stft->history, channels * stft->fft_len},
                 {"ola_tail", stft->ola_tail, stft->overlap},
                 {"out_store", inst->cache->out_store, inst->cache->out_fill}};
  for (const auto &[name, x, count] : vectors) {
    if (!is_finite(x, count)) {
      return name;
    }
  }
  return "";
}

#endif  // TM_SE_BF_TESTS_FINITE_STATE_H
