// The float face of the Q31 real FFT: block floating point around the fixed-point transform.
//
// Each block is scaled so that its peak becomes 2^29, a quarter of Q31 full scale, converted,
// transformed, and scaled back. Precision is therefore relative to the peak of the block: values
// below about 2^-29 of it are lost. A block whose peak is below about 1.6e-30 has no finite scale;
// it gives silence.
//
// Packed spectrum, the format of every spectrum in the library: N floats, that is N/2 se_complex.
// Element 0 holds DC in its real part and the slot of the real Nyquist value in its imaginary part;
// element k (1 <= k < N/2) is bin k. Values are the DFT divided by N.
#ifndef TM_SE_BF_SPECTRAL_FFTWRAP_FIXPOINT_H
#define TM_SE_BF_SPECTRAL_FFTWRAP_FIXPOINT_H

#include <cstdint>

#include "spectral/q31_rfft.h"
#include "spectral/vector/kernel.h"
#include "support/tamrin_memory.h"

#pragma pack(push, 4)
// A transform pair with its work buffers; one setup serves one thread at a time.
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
fft_setup *spx_fft_init(int32_t n);

// Releases the setup through the pool; null is accepted.
void spx_fft_destroy(fft_setup *setup);

// Forward: in, N time samples; out, packed spectrum X[k] / N with 0 in the Nyquist slot (the
// transform has no Nyquist output). in and out may be the same. The second name does the same.
void spx_fft(fft_setup *setup, const float *in, float *out);
void spx_fft_fixpoint(fft_setup *setup, const float *in, float *out);

// Inverse: in, packed spectrum; out, N time samples of the unnormalised inverse sum. A value in the
// Nyquist slot counts as a Nyquist bin of the opposite sign. in and out may be the same.
void spx_ifft(fft_setup *setup, const float *in, float *out);
void spx_ifft_fixpoint(fft_setup *setup, const float *in, float *out);

// What the library itself calls (only tests and benches call the four above): the same with a
// window of N floats on the time samples, in the pass that converts them; null for none. Forward:
// in[i] window[i] is transformed; `product` has room for it, N floats. Inverse: out[i] is
// multiplied by window[i].
void spx_fft_windowed(fft_setup *setup, const float *in, const float *window, float *product,
                      float *out);
void spx_ifft_windowed(fft_setup *setup, const float *in, const float *window, float *out);

#endif  // TM_SE_BF_SPECTRAL_FFTWRAP_FIXPOINT_H
