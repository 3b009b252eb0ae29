// Complex FFT in Q31 fixed point, lengths 16 to 4096, in place, scaled down by its length.
//
// Radix-4 decimation in frequency after Cooley and Tukey ("An algorithm for the machine calculation
// of complex Fourier series", 1965); lengths that are no power of 4 get one radix-2 stage in front.
// The down-scaling is spread over the stages so that no stage of a block with two bits of headroom
// leaves the 32-bit range. Complex values are two consecutive words, real first. Re-entrant: all
// state is in the caller's buffer.
#ifndef TM_SE_BF_SPECTRAL_Q31_CFFT_H
#define TM_SE_BF_SPECTRAL_Q31_CFFT_H

#include <cstdint>

// Headroom taken on the way into the first radix-4 stage, and by each later one, in bits. A radix-4
// stage grows by two bits; the first takes the last stage's share as well, which then needs no
// shift. The radix-2 stage takes its own share and that of the doubling at the end.
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

// In-place transform of fftLen complex values: (1/L) sum x[n] e^(-j 2 pi n k / L), with +j for
// ifftFlag = 1. Natural order when bitReverseFlag is not 0, else bit-reversed order. A length
// outside the nine above runs no butterflies.
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

// Exchanges the complex values that each pair of table entries (byte offsets) names.
void arm_bitreversal_32(int32_t *data, uint16_t bitRevLength, const uint16_t *pBitRevTable);

#endif  // TM_SE_BF_SPECTRAL_Q31_CFFT_H
