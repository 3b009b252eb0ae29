// Constant tables of the Q31 transforms, computed at compile time from the formulas given here.
//
// Complex entries are two words, real first. 1.0 is held as 0x7FFFFFFF, the largest Q31 number.
#ifndef TM_SE_BF_SPECTRAL_Q31_TABLES_H
#define TM_SE_BF_SPECTRAL_Q31_TABLES_H

#include <cstddef>
#include <cstdint>

// Complex FFT lengths run from 16 to 4096; the real transform has twice the length.
constexpr size_t kMaxCfftLength = 4096;

// Real lengths that the build has. A shared library and a small build have those of the hops that
// can be streamed; the linker leaves out the tables of all others.
#if defined(TM_SE_BF_STREAMED_LENGTHS)
constexpr size_t kMinRfftLength = 256;
constexpr size_t kMaxRfftLength = 512;
#else
constexpr size_t kMinRfftLength = 32;
constexpr size_t kMaxRfftLength = 2 * kMaxCfftLength;
#endif

// Words in the twiddle table of a complex FFT of `length` points: 3/4 of the circle, two words
// each.
constexpr size_t twiddle_words(size_t length) {
  return length / 4 * 3 * 2;
}

// Words in the bit-reversal table: two for each pair of indices that the reversal exchanges. Of the
// `length` indices, those that read the same in both directions (2^ceil(bits/2)) stay where they
// are.
constexpr size_t bit_reversal_words(size_t length) {
  size_t palindromes = 1;
  for (size_t reach = 1; reach < length; reach *= 4) {
    palindromes *= 2;
  }
  return length - palindromes;
}

// A constant array that a function can compute; passes as a pointer to its first word.
template <typename word, size_t kWords>
struct q31_table {
  word words[kWords];

  constexpr operator const word *() const {
    return words;
  }
};

// Twiddle factors: entry i = (cos(2 pi i / length), sin(2 pi i / length)), rounded down.
extern const q31_table<int32_t, twiddle_words(16)> twiddleCoef_16_q31;
extern const q31_table<int32_t, twiddle_words(32)> twiddleCoef_32_q31;
extern const q31_table<int32_t, twiddle_words(64)> twiddleCoef_64_q31;
extern const q31_table<int32_t, twiddle_words(128)> twiddleCoef_128_q31;
extern const q31_table<int32_t, twiddle_words(256)> twiddleCoef_256_q31;
extern const q31_table<int32_t, twiddle_words(512)> twiddleCoef_512_q31;
extern const q31_table<int32_t, twiddle_words(1024)> twiddleCoef_1024_q31;
extern const q31_table<int32_t, twiddle_words(2048)> twiddleCoef_2048_q31;
extern const q31_table<int32_t, twiddle_words(4096)> twiddleCoef_4096_q31;

// Pairs (8 j, 8 r) with r the bit-reversed j, for every j < r, j ascending: byte offsets of complex
// entries.
extern const q31_table<uint16_t, bit_reversal_words(16)> armBitRevIndexTable_fixed_16;
extern const q31_table<uint16_t, bit_reversal_words(32)> armBitRevIndexTable_fixed_32;
extern const q31_table<uint16_t, bit_reversal_words(64)> armBitRevIndexTable_fixed_64;
extern const q31_table<uint16_t, bit_reversal_words(128)> armBitRevIndexTable_fixed_128;
extern const q31_table<uint16_t, bit_reversal_words(256)> armBitRevIndexTable_fixed_256;
extern const q31_table<uint16_t, bit_reversal_words(512)> armBitRevIndexTable_fixed_512;
extern const q31_table<uint16_t, bit_reversal_words(1024)> armBitRevIndexTable_fixed_1024;
extern const q31_table<uint16_t, bit_reversal_words(2048)> armBitRevIndexTable_fixed_2048;
extern const q31_table<uint16_t, bit_reversal_words(4096)> armBitRevIndexTable_fixed_4096;

// Split factors of the real transform, a half circle of M = kMaxRfftLength points, rounded to
// nearest: A[i] = (0.5 (1 - sin), -0.5 cos),  B[i] = (0.5 (1 + sin), 0.5 cos) of 2 pi i / M.
extern const q31_table<int32_t, kMaxRfftLength> realCoefAQ31;
extern const q31_table<int32_t, kMaxRfftLength> realCoefBQ31;

#endif  // TM_SE_BF_SPECTRAL_Q31_TABLES_H
