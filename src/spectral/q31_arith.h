// Named operations on Q31 numbers: 32-bit signed integers x that stand for x / 2^31.
//
// Products of two Q31 numbers are formed in 64 bits and keep their high word, which is half the Q31
// product; callers shift back where the scaling of a stage asks for it. Sums wrap modulo 2^32 as
// the adders of the signal processors do for which such transforms were first written; the scaling
// of the stages keeps them in range for every block that the float wrapper hands over.
#ifndef TM_SE_BF_SPECTRAL_Q31_ARITH_H
#define TM_SE_BF_SPECTRAL_Q31_ARITH_H

#include <cstdint>

// One half of the kept word's last place: rounds a 64-bit product to its high word.
constexpr int64_t kQ31RoundHalf = int64_t{1} << 31;

// x + y and x - y modulo 2^32.
inline int32_t q31_add(int32_t x, int32_t y) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) + static_cast<uint32_t>(y));
}

inline int32_t q31_sub(int32_t x, int32_t y) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) - static_cast<uint32_t>(y));
}

// x * 2^bits modulo 2^32.
inline int32_t q31_shift_up(int32_t x, int bits) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) << bits);
}

// x / 2^bits, rounded toward minus infinity.
inline int32_t q31_shift_down(int32_t x, int bits) {
  return x >> bits;
}

// High word of x * y, truncated toward minus infinity: half the Q31 product.
inline int32_t q31_mul_high(int32_t x, int32_t y) {
  return static_cast<int32_t>((static_cast<int64_t>(x) * y) >> 32);
}

// High word of x * y, rounded to nearest.
inline int32_t q31_mul_high_round(int32_t x, int32_t y) {
  return static_cast<int32_t>((static_cast<int64_t>(x) * y + kQ31RoundHalf) >> 32);
}

// acc + x * y and acc - x * y, the exact sum of the accumulator's word and the product rounded
// once.
inline int32_t q31_mac_round(int32_t acc, int32_t x, int32_t y) {
  return q31_add(acc, q31_mul_high_round(x, y));
}

inline int32_t q31_msub_round(int32_t acc, int32_t x, int32_t y) {
  const int64_t negated = -(static_cast<int64_t>(x) * y);
  return q31_add(acc, static_cast<int32_t>((negated + kQ31RoundHalf) >> 32));
}

#endif  // TM_SE_BF_SPECTRAL_Q31_ARITH_H
