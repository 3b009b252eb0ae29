// Windowed analysis, overlap-add synthesis and the windows.
#include "spectral/stft.h"

#include <cmath>
#include <cstring>

#include "support/pool_vector.h"
#include "support/se_vector.h"

namespace {

// Coefficients of the Hamming window.
constexpr double kHammingOffset = 0.54;
constexpr double kHammingDepth = 0.46;

// 2 pi, rounded deliberately: the period of the window is slightly shorter than N, and the output
// bits depend on it.
constexpr float kWindowTurn = 6.2832f;

SE_BF_VECTOR_CLONES void add_samples(const float *__restrict x, const float *__restrict y,
                                     float *__restrict sum, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    sum[i] = x[i] + y[i];
  }
}

// What synthesis adds where the hop is shorter than the overlap: the tail reaches beyond the hop.
SE_BF_RARELY_RUN void add_long_tail(const stft_buf *stft, int32_t hop, float *out) {
  copy_floats(out, stft->frame, hop);
  for (int32_t i = 0; i < stft->overlap; ++i) {
    out[i] += stft->ola_tail[i];
  }
}

}  // namespace

SE_BF_RARELY_RUN stft_buf *stft_buf_create_in(core_state *core, int32_t N, int32_t H,
                                              fft_setup *fft, int32_t channels) {
  if (H <= 0) {
    return nullptr;
  }
  stft_buf *stft = static_cast<stft_buf *>(tamrin_malloc_in(core, sizeof(stft_buf)));
  if (stft == nullptr) {
    return nullptr;
  }
  stft->chnl = static_cast<int16_t>(channels);
  stft->out_chnl = 1;
  stft->fft_len = static_cast<int16_t>(N);
  stft->overlap = static_cast<int16_t>(N - H);
  stft->fft = fft;

  // The pool hands out zeroed memory: history and tail start silent.
  stft->frame = pool_floats(core, N);
  stft->history = pool_floats(core, channels * N);
  stft->ola_tail = pool_floats(core, N - H);
  stft->window = pool_floats(core, 2 * N);
  if (stft->frame == nullptr || stft->history == nullptr || stft->ola_tail == nullptr ||
      stft->window == nullptr) {
    return nullptr;
  }
  gen_stft_window(stft->window, N, H, stft->frame);
  return stft;
}

SE_BF_RARELY_RUN void stft_set_chnl(stft_buf *stft, int32_t channels) {
  if (stft == nullptr) {
    return;
  }
  stft->chnl = static_cast<int16_t>(channels);
}

SE_BF_RARELY_RUN void stft_buf_destroy(stft_buf *stft) {
  if (stft == nullptr) {
    return;
  }
  pool_release(stft->history);
  pool_release(stft->frame);
  pool_release(stft->ola_tail);
  pool_release(stft->window);
  tamrin_free(stft);
}

void stft_time_to_spectrum(stft_buf *stft, const float *in, float *out) {
  const int32_t length = stft->fft_len;
  const int32_t overlap = stft->overlap;
  const int32_t hop = length - overlap;

  for (int32_t c = 0; c < stft->chnl; ++c) {
    float *history = stft->history + c * length;
    if (in + c * hop != history + overlap) {
      copy_floats(history + overlap, in + c * hop, hop);
    }
    spx_fft_windowed(stft->fft, history, stft->window, stft->frame, out + c * length);
    std::memmove(history, history + hop, static_cast<size_t>(overlap) * sizeof(float));
  }
}

float *stft_spectrum_to_time(stft_buf *stft, const float *spectrum, float *out) {
  const int32_t length = stft->fft_len;
  const int32_t overlap = stft->overlap;
  const int32_t hop = length - overlap;
  const float *synthesis = stft->window + length;

  spx_ifft_windowed(stft->fft, spectrum, synthesis, stft->frame);
  if (overlap > hop) {
    add_long_tail(stft, hop, out);
  } else {
    add_samples(stft->frame, stft->ola_tail, out, overlap);
    copy_floats(out + overlap, stft->frame + overlap, hop - overlap);
  }
  copy_floats(stft->ola_tail, stft->frame + hop, overlap);
  return out;
}

SE_BF_RARELY_RUN void gen_stft_window(float *window, int32_t N, int32_t H, float *scratch) {
  // w[i] = 0.54 - 0.46 cos(2 pi i / N), the angle in single and the rest in double precision.
  for (int32_t i = 0; i < N; ++i) {
    const float angle = static_cast<float>(i) * kWindowTurn / static_cast<float>(N);
    const double cosine = std::cos(static_cast<double>(angle));
    window[i] = static_cast<float>(kHammingOffset - kHammingDepth * cosine);
  }

  // S[i] = sum over m of w^2[i + m H].
  float *overlap_sum = window + N;
  for (int32_t i = 0; i < N; ++i) {
    scratch[i] = window[i] * window[i];
    overlap_sum[i] = scratch[i];
  }
  for (int32_t shift = H; shift < N; shift += H) {
    for (int32_t j = 0; j < N - shift; ++j) {
      overlap_sum[shift + j] += scratch[j];
      overlap_sum[j] += scratch[shift + j];
    }
  }

  // g[i] = w[i] / S[i].
  for (int32_t i = 0; i < N; ++i) {
    overlap_sum[i] = window[i] / overlap_sum[i];
  }
}
