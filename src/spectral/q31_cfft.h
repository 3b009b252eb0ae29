// Complex FFT in Q31 fixed point, lengths 16 to 4096, in place, scaled by 1/length.
//
// Radix-4 decimation in frequency after Cooley and Tukey ("An algorithm for the machine calculation
// of complex Fourier series", 1965). A length that is not a power of 4 gets one radix-2 stage in
// front. The scaling is spread over the stages, so that a block with two bits of headroom leaves
// the 32-bit range in none of them. Complex values are two consecutive words, real first.
// Re-entrant: all state is in the caller's buffer.
#ifndef TM_SE_BF_SPECTRAL_Q31_CFFT_H
#define TM_SE_BF_SPECTRAL_Q31_CFFT_H

#include <cstdint>

// Right shifts that make room for the growth of the values, in bits. A radix-4 stage lets values
// grow by two bits. The first stage shifts its inputs for itself and for the last stage, which has
// no shift of its own; each middle stage shifts its outputs for itself. The radix-2 stage shifts
// its inputs by one bit for itself and by one for the doubling at the end.
constexpr int kFirstStageShift = 4;
constexpr int kMiddleStageShift = 2;
constexpr int kRadix2Shift = 2;

// One transform length: constant data, shared by all users.
struct cfft_q31_instance {
  uint16_t fftLen;               // complex points L
  const int32_t *pTwiddle;       // 3L/4 complex twiddle factors
  const uint16_t *pBitRevTable;  // pairs of byte offsets to exchange
  uint16_t bitRevLength;         // entries in pBitRevTable
};

extern const cfft_q31_instance arm_cfft_sR_q31_len16;
extern const cfft_q31_instance arm_cfft_sR_q31_len32;
extern const cfft_q31_instance arm_cfft_sR_q31_len64;
extern const cfft_q31_instance arm_cfft_sR_q31_len128;
extern const cfft_q31_instance arm_cfft_sR_q31_len256;
extern const cfft_q31_instance arm_cfft_sR_q31_len512;
extern const cfft_q31_instance arm_cfft_sR_q31_len1024;
extern const cfft_q31_instance arm_cfft_sR_q31_len2048;
extern const cfft_q31_instance arm_cfft_sR_q31_len4096;

// In-place transform of fftLen complex values: (1/L) sum x[n] e^(-j 2 pi n k / L), with +j when
// ifftFlag is not 0. Natural order when bitReverseFlag is not 0, else bit-reversed order. Any
// length but the nine above runs no butterflies.
void arm_cfft_q31(const cfft_q31_instance *S, int32_t *data, uint8_t ifftFlag,
                  uint8_t bitReverseFlag);

// The radix-4 transform of `length` = 4^n >= 16 complex values, scaled by 1/length, output in
// bit-reversed order. `stride` is the step through a twiddle table of stride * length points.
void arm_radix4_butterfly_q31(int32_t *data, uint32_t length, const int32_t *twiddle,
                              uint32_t stride);
void arm_radix4_butterfly_inverse_q31(int32_t *data, uint32_t length, const int32_t *twiddle,
                                      uint32_t stride);

// The same for `length` = 2 * 4^n: a radix-2 stage, then a radix-4 transform of each half.
void arm_cfft_radix4by2_q31(int32_t *data, uint32_t length, const int32_t *twiddle);
void arm_cfft_radix4by2_inverse_q31(int32_t *data, uint32_t length, const int32_t *twiddle);

// Exchanges the two complex values whose byte offsets are a pair of table entries, for every pair.
void arm_bitreversal_32(int32_t *data, uint16_t bitRevLength, const uint16_t *pBitRevTable);

#endif  // TM_SE_BF_SPECTRAL_Q31_CFFT_H
