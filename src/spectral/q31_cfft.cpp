// Radix-4 and radix-2 stages of the Q31 complex FFT.
//
// The inverse transform is, bit for bit, the forward one with the real and imaginary words
// exchanged on the way in and out. Each stage therefore takes one pointer to the real and one to
// the imaginary words (both with a step of two), and the inverse passes them exchanged.
#include "spectral/q31_cfft.h"

#include "spectral/q31_arith.h"
#include "spectral/q31_tables.h"

namespace {

// Interleaved complex data seen as two word streams with a step of two.
struct q31_view {
  int32_t *re;
  int32_t *im;
};

struct q31_complex {
  int32_t re;
  int32_t im;
};

// The four outputs of a radix-4 butterfly before their twiddle factors.
struct q31_quad {
  q31_complex sum;        // a + b + c + d
  q31_complex even;       // a - b + c - d, to be rotated by twice the angle
  q31_complex odd;        // a - jb - c + jd, to be rotated by the angle
  q31_complex odd_third;  // a + jb - c - jd, to be rotated by three times the angle
};

q31_complex load(q31_view x, uint32_t i, int shift) {
  return {q31_shift_down(x.re[2 * i], shift), q31_shift_down(x.im[2 * i], shift)};
}

void store(q31_view x, uint32_t i, q31_complex value) {
  x.re[2 * i] = value.re;
  x.im[2 * i] = value.im;
}

q31_complex add(q31_complex x, q31_complex y) {
  return {q31_add(x.re, y.re), q31_add(x.im, y.im)};
}

q31_complex subtract(q31_complex x, q31_complex y) {
  return {q31_sub(x.re, y.re), q31_sub(x.im, y.im)};
}

q31_complex shift_down(q31_complex x, int shift) {
  return {q31_shift_down(x.re, shift), q31_shift_down(x.im, shift)};
}

q31_complex shift_up(q31_complex x, int shift) {
  return {q31_shift_up(x.re, shift), q31_shift_up(x.im, shift)};
}

// x * (cos - j sin) / 2, as sums of truncated high words.
q31_complex turn_half(q31_complex x, const int32_t *cos_sin) {
  return {q31_add(q31_mul_high(x.re, cos_sin[0]), q31_mul_high(x.im, cos_sin[1])),
          q31_sub(q31_mul_high(x.im, cos_sin[0]), q31_mul_high(x.re, cos_sin[1]))};
}

// Butterfly over points i, i + quarter, i + 2 quarter, i + 3 quarter.
inline q31_quad butterfly(q31_view x, uint32_t i, uint32_t quarter, int shift) {
  const q31_complex a = load(x, i, shift);
  const q31_complex b = load(x, i + quarter, shift);
  const q31_complex c = load(x, i + 2 * quarter, shift);
  const q31_complex d = load(x, i + 3 * quarter, shift);
  const q31_complex ac = add(a, c);
  const q31_complex bd = add(b, d);
  const q31_complex ac_difference = subtract(a, c);
  const q31_complex bd_difference = subtract(b, d);
  const q31_complex minus_j_bd = {bd_difference.im, q31_sub(0, bd_difference.re)};
  return {add(ac, bd), subtract(ac, bd), add(ac_difference, minus_j_bd),
          subtract(ac_difference, minus_j_bd)};
}

// First stage: inputs scaled by 1/16; turn_half halves the products, so they are doubled again.
void first_radix4_stage(q31_view x, uint32_t length, const int32_t *twiddle, uint32_t stride) {
  const uint32_t quarter = length / 4;
  q31_stage("first radix-4 stage");
  for (uint32_t i = 0; i < quarter; ++i) {
    const uint32_t step = 2 * i * stride;
    const q31_quad y = butterfly(x, i, quarter, kFirstStageShift);
    store(x, i, y.sum);
    store(x, i + quarter, shift_up(turn_half(y.even, twiddle + 2 * step), 1));
    store(x, i + 2 * quarter, shift_up(turn_half(y.odd, twiddle + step), 1));
    store(x, i + 3 * quarter, shift_up(turn_half(y.odd_third, twiddle + 3 * step), 1));
  }
}

// Middle stage over groups of `span` points: outputs scaled by 1/4. turn_half has halved the
// twiddle products already, so they are shifted by one bit only.
void middle_radix4_stage(q31_view x, uint32_t length, uint32_t span, const int32_t *twiddle,
                         uint32_t stride) {
  const uint32_t quarter = span / 4;
  q31_stage("middle radix-4 stage");
  for (uint32_t j = 0; j < quarter; ++j) {
    const uint32_t step = 2 * j * stride;
    for (uint32_t i = j; i < length; i += span) {
      const q31_quad y = butterfly(x, i, quarter, 0);
      store(x, i, shift_down(y.sum, kMiddleStageShift));
      store(x, i + quarter, shift_down(turn_half(y.even, twiddle + 2 * step), 1));
      store(x, i + 2 * quarter, shift_down(turn_half(y.odd, twiddle + step), 1));
      store(x, i + 3 * quarter, shift_down(turn_half(y.odd_third, twiddle + 3 * step), 1));
    }
  }
}

// Last stage over groups of four points: no twiddle factors, no scaling.
void last_radix4_stage(q31_view x, uint32_t length) {
  q31_stage("last radix-4 stage");
  for (uint32_t i = 0; i < length; i += 4) {
    const q31_quad y = butterfly(x, i, 1, 0);
    store(x, i, y.sum);
    store(x, i + 1, y.even);
    store(x, i + 2, y.odd);
    store(x, i + 3, y.odd_third);
  }
}

void radix4_transform(q31_view x, uint32_t length, const int32_t *twiddle, uint32_t stride) {
  first_radix4_stage(x, length, twiddle, stride);
  for (uint32_t span = length / 4; span > 4; span /= 4) {
    stride *= 4;
    middle_radix4_stage(x, length, span, twiddle, stride);
  }
  last_radix4_stage(x, length);
}

// Inputs scaled by 1/4, to make room for the growth in this stage and for the doubling at the end.
void radix2_stage(q31_view x, uint32_t length, const int32_t *twiddle) {
  const uint32_t half = length / 2;
  q31_stage("radix-2 stage");
  for (uint32_t i = 0; i < half; ++i) {
    const q31_complex a = load(x, i, kRadix2Shift);
    const q31_complex b = load(x, i + half, kRadix2Shift);
    const q31_complex difference = subtract(a, b);
    const int32_t cosine = twiddle[2 * i];
    const int32_t sine = twiddle[2 * i + 1];

    q31_complex turned = {q31_mul_high_round(difference.re, cosine),
                          q31_mul_high_round(difference.im, cosine)};
    turned.re = q31_mac_round(turned.re, difference.im, sine);
    turned.im = q31_msub_round(turned.im, difference.re, sine);

    store(x, i, add(a, b));
    store(x, i + half, shift_up(turned, 1));
  }
}

void radix4by2_transform(q31_view x, uint32_t length, const int32_t *twiddle) {
  const uint32_t half = length / 2;
  radix2_stage(x, length, twiddle);
  radix4_transform(x, half, twiddle, 2);
  radix4_transform({x.re + 2 * half, x.im + 2 * half}, half, twiddle, 2);
  q31_stage("doubling");
  for (uint32_t i = 0; i < length; ++i) {
    store(x, i, shift_up(load(x, i, 0), 1));
  }
}

}  // namespace

const cfft_q31_instance arm_cfft_sR_q31_len16 = {
    16, twiddleCoef_16_q31, armBitRevIndexTable_fixed_16, bit_reversal_words(16)};
const cfft_q31_instance arm_cfft_sR_q31_len32 = {
    32, twiddleCoef_32_q31, armBitRevIndexTable_fixed_32, bit_reversal_words(32)};
const cfft_q31_instance arm_cfft_sR_q31_len64 = {
    64, twiddleCoef_64_q31, armBitRevIndexTable_fixed_64, bit_reversal_words(64)};
const cfft_q31_instance arm_cfft_sR_q31_len128 = {
    128, twiddleCoef_128_q31, armBitRevIndexTable_fixed_128, bit_reversal_words(128)};
const cfft_q31_instance arm_cfft_sR_q31_len256 = {
    256, twiddleCoef_256_q31, armBitRevIndexTable_fixed_256, bit_reversal_words(256)};
const cfft_q31_instance arm_cfft_sR_q31_len512 = {
    512, twiddleCoef_512_q31, armBitRevIndexTable_fixed_512, bit_reversal_words(512)};
const cfft_q31_instance arm_cfft_sR_q31_len1024 = {
    1024, twiddleCoef_1024_q31, armBitRevIndexTable_fixed_1024, bit_reversal_words(1024)};
const cfft_q31_instance arm_cfft_sR_q31_len2048 = {
    2048, twiddleCoef_2048_q31, armBitRevIndexTable_fixed_2048, bit_reversal_words(2048)};
const cfft_q31_instance arm_cfft_sR_q31_len4096 = {
    4096, twiddleCoef_4096_q31, armBitRevIndexTable_fixed_4096, bit_reversal_words(4096)};

void arm_cfft_q31(const cfft_q31_instance *S, int32_t *data, uint8_t ifftFlag,
                  uint8_t bitReverseFlag) {
  const uint32_t length = S->fftLen;
  switch (length) {
    case 16:
    case 64:
    case 256:
    case 1024:
    case 4096:
      if (ifftFlag == 0) {
        arm_radix4_butterfly_q31(data, length, S->pTwiddle, 1);
      } else {
        arm_radix4_butterfly_inverse_q31(data, length, S->pTwiddle, 1);
      }
      break;
    case 32:
    case 128:
    case 512:
    case 2048:
      if (ifftFlag == 0) {
        arm_cfft_radix4by2_q31(data, length, S->pTwiddle);
      } else {
        arm_cfft_radix4by2_inverse_q31(data, length, S->pTwiddle);
      }
      break;
    default:
      break;
  }

  if (bitReverseFlag != 0) {
    arm_bitreversal_32(data, S->bitRevLength, S->pBitRevTable);
  }
}

void arm_radix4_butterfly_q31(int32_t *data, uint32_t length, const int32_t *twiddle,
                              uint32_t stride) {
  radix4_transform({data, data + 1}, length, twiddle, stride);
}

void arm_radix4_butterfly_inverse_q31(int32_t *data, uint32_t length, const int32_t *twiddle,
                                      uint32_t stride) {
  radix4_transform({data + 1, data}, length, twiddle, stride);
}

void arm_cfft_radix4by2_q31(int32_t *data, uint32_t length, const int32_t *twiddle) {
  radix4by2_transform({data, data + 1}, length, twiddle);
}

void arm_cfft_radix4by2_inverse_q31(int32_t *data, uint32_t length, const int32_t *twiddle) {
  radix4by2_transform({data + 1, data}, length, twiddle);
}

void arm_bitreversal_32(int32_t *data, uint16_t bitRevLength, const uint16_t *pBitRevTable) {
  // Byte offsets become word indices.
  constexpr uint32_t kBytesPerWord = 4;
  for (uint32_t i = 0; i < bitRevLength; i += 2) {
    int32_t *p = data + pBitRevTable[i] / kBytesPerWord;
    int32_t *q = data + pBitRevTable[i + 1] / kBytesPerWord;
    const q31_complex kept = {p[0], p[1]};
    p[0] = q[0];
    p[1] = q[1];
    q[0] = kept.re;
    q[1] = kept.im;
  }
}
