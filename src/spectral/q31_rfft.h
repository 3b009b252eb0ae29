// Real FFT in Q31 fixed point and its inverse, lengths 32 to 8192.
//
// A real block of N samples is taken as N/2 complex values (even samples real, odd ones imaginary),
// transformed, and split into the spectrum of the real block (Sorensen, Jones, Heideman and Burrus,
// "Real-valued fast Fourier transform algorithms", 1987). Both directions scale their sum by 1/N,
// so forward followed by inverse returns the input divided by N. Re-entrant: instances and tables
// are only read, all state is in the caller's buffers.
#ifndef TM_SE_BF_SPECTRAL_Q31_RFFT_H
#define TM_SE_BF_SPECTRAL_Q31_RFFT_H

#include <cstdint>

#include "spectral/q31_cfft.h"
#include "support/tamrin_memory.h"

#pragma pack(push, 4)
// One real transform, filled by arm_rfft_init_q31; holds lengths and pointers to constant data
// only. Lives inside records of the memory pool, hence the packing.
struct rfft_q31_instance {
  uint32_t fftLenReal;             // real length N
  uint8_t ifftFlagR;               // 0 forward, 1 inverse
  uint8_t bitReverseFlagR;         // 1: natural order
  uint32_t twidCoefRModifier;      // step through the split tables, kMaxRfftLength / N
  const int32_t *pTwiddleAReal;    // realCoefAQ31
  const int32_t *pTwiddleBReal;    // realCoefBQ31
  const cfft_q31_instance *pCfft;  // complex transform of N/2 points
};
#pragma pack(pop)

// Fills the instance for `fftLenReal` (its low 16 bits count): a power of two from 32 to 8192,
// in a shared library or a small build 256 or 512. Returns 0, or -1 for another length; then the
// instance must not be used.
int32_t arm_rfft_init_q31(rfft_q31_instance *S, uint32_t fftLenReal, uint32_t ifftFlagR,
                          uint32_t bitReverseFlag);

// Forward: src holds N real words and is overwritten; dst receives 2N words, bins 0 to N-1 as
// complex pairs, bin k = X[k] / N. Inverse: src holds bins 0 to N/2 as complex pairs (N + 2 words,
// not modified); dst receives N real words and serves as workspace. src and dst must not overlap.
void arm_rfft_q31(const rfft_q31_instance *S, int32_t *src, int32_t *dst);

// The split steps of N = 2 * half: from the half-length complex spectrum to bins 1 .. N/2 - 1 and
// their mirror images (forward; bins 0 and N/2 are the caller's), and from bins 0 .. N/2 to the
// half-length complex spectrum (inverse).
void arm_split_rfft_q31(const int32_t *src, uint32_t half, const int32_t *table_a,
                        const int32_t *table_b, int32_t *dst, uint32_t modifier);
void arm_split_rifft_q31(const int32_t *src, uint32_t half, const int32_t *table_a,
                         const int32_t *table_b, int32_t *dst, uint32_t modifier);

#endif  // TM_SE_BF_SPECTRAL_Q31_RFFT_H
