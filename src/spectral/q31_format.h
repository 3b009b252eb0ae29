// The numbers of the Q31 format: 32-bit signed integers x that stand for x / 2^31.
//
// Constants only, so that files compiled for different processors may share them.
#ifndef TM_SE_BF_SPECTRAL_Q31_FORMAT_H
#define TM_SE_BF_SPECTRAL_Q31_FORMAT_H

#include <cstdint>

// The word of 1.0, which is the first integer beyond the 32-bit range.
constexpr double kQ31One = 2147483648.0;
constexpr float kQ31Limit = static_cast<float>(kQ31One);

// Word to which the peak of a block is scaled: with two bits of headroom no stage of the transforms
// leaves the range.
constexpr float kBlockPeakQ31 = kQ31Limit / 4.0f;

// Half a unit of the high word: added to a 64-bit product, it rounds the high word to nearest.
constexpr int64_t kQ31RoundHalf = int64_t{1} << 31;

#endif  // TM_SE_BF_SPECTRAL_Q31_FORMAT_H
