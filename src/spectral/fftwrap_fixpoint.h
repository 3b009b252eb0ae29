// The Q31 real FFT with floats in and out: block floating point around the fixed-point transform.
//
// Each block is scaled so that its peak becomes 2^29, a quarter of Q31 full scale. It is then
// converted, transformed and scaled back. Precision is therefore relative to the peak of the block:
// values below about 2^-29 of it are lost. A block whose peak is below about 1.6e-30 has no finite
// scale; its result is zeros.
//
// Packed spectrum, the format of every spectrum in the library: N floats, that is N/2 se_complex.
// DC and the Nyquist bin are both real. Element 0 holds DC in its real part and has room for
// Nyquist in its imaginary part, the Nyquist slot; element k (1 <= k < N/2) is bin k. Values are
// the DFT divided by N.
#ifndef TM_SE_BF_SPECTRAL_FFTWRAP_FIXPOINT_H
#define TM_SE_BF_SPECTRAL_FFTWRAP_FIXPOINT_H

#include <cstdint>

#include "spectral/q31_rfft.h"
#include "spectral/vector/kernel.h"
#include "support/tamrin_memory.h"

#pragma pack(push, 4)
// A transform pair with its work space, which the vector kernels use too; one setup serves one
// thread at a time.
struct fft_setup {
  rfft_q31_instance forward;
  rfft_q31_instance inverse;
  int32_t *spectrum_q31;            // 2N words: forward output, inverse input
  int32_t *frame_q31;               // N words: forward input, inverse output
  int32_t n;                        // FFT length N
  const q31_vector_kernel *kernel;  // vector form of both directions, or null
};
#pragma pack(pop)

// Makes a setup for length n (a power of two from 32 to 8192) from the pool and prints a note on
// standard output. Returns null when the pool is exhausted or the length is not supported.
fft_setup *spx_fft_init_in(core_state *core, int32_t n);
inline fft_setup *spx_fft_init(int32_t n) {
  return spx_fft_init_in(&process_core, n);
}

// Releases the setup through the pool; null is accepted.
void spx_fft_destroy(fft_setup *setup);

// Forward: in, N time samples; out, packed spectrum X[k] / N with 0 in the Nyquist slot (the
// Nyquist bin is left out). in and out may be the same. The two names do the same; only tests and
// benchmarks call them.
void spx_fft(fft_setup *setup, const float *in, float *out);
void spx_fft_fixpoint(fft_setup *setup, const float *in, float *out);

// Inverse: in, packed spectrum; out, N time samples of the unnormalised inverse sum. A value in the
// Nyquist slot acts as a Nyquist bin of the opposite sign. in and out may be the same. The two
// names do the same; only tests and benchmarks call them.
void spx_ifft(fft_setup *setup, const float *in, float *out);
void spx_ifft_fixpoint(fft_setup *setup, const float *in, float *out);

// What the library itself calls; only tests and benches call the four above. The same with a window
// of N floats for the time samples, applied in the pass that converts them; a null window means
// none. Forward: transforms in[i] window[i], and leaves these N floats in `product`, which is not
// used without a window. Inverse: multiplies out[i] by window[i].
void spx_fft_windowed(fft_setup *setup, const float *in, const float *window, float *product,
                      float *out);
void spx_ifft_windowed(fft_setup *setup, const float *in, const float *window, float *out);

#endif  // TM_SE_BF_SPECTRAL_FFTWRAP_FIXPOINT_H
