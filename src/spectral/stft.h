// Short-time Fourier analysis of one or two channels and weighted overlap-add synthesis of one.
//
// Frames of N samples advance by the hop H <= N; consecutive frames share O = N - H samples.
// The analysis window is w, the synthesis window g[i] = w[i] / sum over m of w^2[i + m H], so that
// the products w g of overlapping frames add up to 1 (Griffin and Lim, "Signal estimation from
// modified short-time Fourier transform", 1984; Crochiere, "A weighted overlap-add method of
// short-time Fourier analysis/synthesis", 1980). Unchanged spectra give back channel 0 delayed by O
// samples with unit gain, without the Nyquist component of each frame, which the transform removes.
//
// Exact for O <= H. With the FFT length that se_bf_create chooses this holds for every hop of 32
// samples or more. For O > H synthesis writes O values to its output, which must have room for
// them, and what earlier frames add beyond the next hop is lost.
#ifndef TM_SE_BF_SPECTRAL_STFT_H
#define TM_SE_BF_SPECTRAL_STFT_H

#include <cstdint>

#include "spectral/fftwrap_fixpoint.h"
#include "support/tamrin_memory.h"

#pragma pack(push, 4)
struct stft_buf {
  int16_t chnl;      // channels that analysis transforms
  int16_t out_chnl;  // always 1; nothing reads it
  int16_t fft_len;   // N
  int16_t overlap;   // O = N - H
  fft_setup *fft;    // the instance's transform, not owned
  float *window;     // [2N] analysis window w, then synthesis window g
  float *frame;      // [N] scratch: windowed frame, then synthesis frame
  float *history;    // [channels at creation][N] last O input samples of each channel, then the hop
  float *ola_tail;   // [O] overlap part of the previous synthesis frame
};
#pragma pack(pop)

// Makes the state from the pool, with silent history. N: FFT length; H: hop in samples, 1 .. N;
// channels: 1 or 2. Returns null when the pool is exhausted or H is not positive.
stft_buf *stft_buf_create_in(core_state *core, int32_t N, int32_t H, fft_setup *fft,
                             int32_t channels);
inline stft_buf *stft_buf_create(int32_t N, int32_t H, fft_setup *fft, int32_t channels) {
  return stft_buf_create_in(&process_core, N, H, fft, channels);
}

// Sets the number of channels that analysis transforms, at most the number at creation; touches no
// buffer. Null is accepted.
void stft_set_chnl(stft_buf *stft, int32_t channels);

// Releases the state through the pool, not the transform; null is accepted.
void stft_buf_destroy(stft_buf *stft);

// Address of the H samples of channel 0 that the next analysis reads. A caller that writes its hop
// there, and passes this address as `in`, saves a copy.
inline float *stft_input(const stft_buf *stft) {
  return stft->history + stft->overlap;
}

// Analyses one hop. in: [chnl][H] time samples, or stft_input when one channel is analysed; out:
// [chnl][N] packed spectra.
void stft_time_to_spectrum(stft_buf *stft, const float *in, float *out);

// Synthesises one hop. spectrum: one packed spectrum; out: [H] time samples. Returns `out`.
float *stft_spectrum_to_time(stft_buf *stft, const float *spectrum, float *out);

// Fills window[0 .. N-1] with a periodic Hamming window (Harris, "On the use of windows for
// harmonic analysis with the discrete Fourier transform", 1978) and window[N .. 2N-1] with the
// synthesis window for hop H > 0. scratch: N floats.
void gen_stft_window(float *window, int32_t N, int32_t H, float *scratch);

#endif  // TM_SE_BF_SPECTRAL_STFT_H
