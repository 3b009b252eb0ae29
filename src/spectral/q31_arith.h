// Named operations on Q31 numbers: 32-bit signed integers x that stand for x / 2^31.
//
// Products of two Q31 numbers are formed in 64 bits. The high word is kept, which is half the Q31
// product; callers double it where the scaling of a stage asks for it. No operation saturates: the
// scaling of the stages keeps every result within 32 bits for the blocks that the float wrapper
// hands over. A build with TM_SE_BF_CHECK_Q31 uses the twins of q31_checked_arith.h instead, which
// give the same words and check that results stay in range. A result that leaves the range wraps
// around, modulo 2^32; this is intended only in the operations with `wrap` in their names.
#ifndef TM_SE_BF_SPECTRAL_Q31_ARITH_H
#define TM_SE_BF_SPECTRAL_Q31_ARITH_H

#include <cstdint>

#include "spectral/q31_format.h"

#if defined(TM_SE_BF_CHECK_Q31)

#include "spectral/q31_checked_arith.h"

#else

// Marks the beginning of a stage of a transform for the checking twins.
inline void q31_stage(const char *) {
}

// x + y and x - y modulo 2^32, where a result beyond the range is intended.
inline int32_t q31_add_wrap(int32_t x, int32_t y) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) + static_cast<uint32_t>(y));
}

inline int32_t q31_sub_wrap(int32_t x, int32_t y) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) - static_cast<uint32_t>(y));
}

// x + y and x - y.
inline int32_t q31_add(int32_t x, int32_t y) {
  return q31_add_wrap(x, y);
}

inline int32_t q31_sub(int32_t x, int32_t y) {
  return q31_sub_wrap(x, y);
}

// x * 2^bits.
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

// High word of x * y, rounded to nearest; acc plus it; and acc plus the high word of -(x * y),
// rounded to nearest. Rounding is not symmetric, so the sign comes before it.
#if defined(__arm__) && defined(__ARM_FEATURE_DSP) && __ARM_ARCH >= 6

// 32-bit Arm has an instruction for each, which compilers do not find.
inline int32_t q31_mul_high_round(int32_t x, int32_t y) {
  int32_t high = 0;
  asm("smmulr %0, %1, %2" : "=r"(high) : "r"(x), "r"(y));
  return high;
}

inline int32_t q31_mac_round(int32_t acc, int32_t x, int32_t y) {
  asm("smmlar %0, %1, %2, %0" : "+r"(acc) : "r"(x), "r"(y));
  return acc;
}

inline int32_t q31_msub_round(int32_t acc, int32_t x, int32_t y) {
  asm("smmlsr %0, %1, %2, %0" : "+r"(acc) : "r"(x), "r"(y));
  return acc;
}

#else

inline int32_t q31_mul_high_round(int32_t x, int32_t y) {
  return static_cast<int32_t>((static_cast<int64_t>(x) * y + kQ31RoundHalf) >> 32);
}

inline int32_t q31_mac_round(int32_t acc, int32_t x, int32_t y) {
  return q31_add(acc, q31_mul_high_round(x, y));
}

inline int32_t q31_msub_round(int32_t acc, int32_t x, int32_t y) {
  const int64_t negated = -(static_cast<int64_t>(x) * y);
  return q31_add(acc, static_cast<int32_t>((negated + kQ31RoundHalf) >> 32));
}

#endif

#endif

#endif  // TM_SE_BF_SPECTRAL_Q31_ARITH_H
