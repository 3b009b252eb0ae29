// Compile-time generation of twiddle factors, bit-reversal pairs and split factors.
#include "spectral/q31_tables.h"

#include "spectral/q31_circle.h"

namespace {

constexpr q31_table<int32_t, twiddle_words(kMaxCfftLength)> make_largest_twiddles() {
  q31_table<int32_t, twiddle_words(kMaxCfftLength)> table = {};
  for (size_t i = 0; i < twiddle_words(kMaxCfftLength) / 2; ++i) {
    table.words[2 * i] = q31_down(circle_cos(i, kMaxCfftLength));
    table.words[2 * i + 1] = q31_down(circle_sin(i, kMaxCfftLength));
  }
  return table;
}

constexpr auto kLargestTwiddles = make_largest_twiddles();

// The table of a shorter length holds every (kMaxCfftLength / kLength)-th entry of the longest.
template <size_t kLength>
constexpr q31_table<int32_t, twiddle_words(kLength)> make_twiddles() {
  q31_table<int32_t, twiddle_words(kLength)> table = {};
  for (size_t i = 0; i < twiddle_words(kLength) / 2; ++i) {
    const size_t sample = i * (kMaxCfftLength / kLength);
    table.words[2 * i] = kLargestTwiddles[2 * sample];
    table.words[2 * i + 1] = kLargestTwiddles[2 * sample + 1];
  }
  return table;
}

constexpr size_t reverse_bits(size_t index, size_t length) {
  size_t reversed = 0;
  for (size_t bit = 1; bit < length; bit *= 2) {
    reversed = 2 * reversed + index % 2;
    index /= 2;
  }
  return reversed;
}

template <size_t kLength>
constexpr q31_table<uint16_t, bit_reversal_words(kLength)> make_bit_reversal() {
  constexpr size_t kBytesPerComplex = 8;
  q31_table<uint16_t, bit_reversal_words(kLength)> table = {};
  size_t used = 0;
  for (size_t j = 0; j < kLength; ++j) {
    const size_t reversed = reverse_bits(j, kLength);
    if (j < reversed) {
      table.words[used++] = static_cast<uint16_t>(kBytesPerComplex * j);
      table.words[used++] = static_cast<uint16_t>(kBytesPerComplex * reversed);
    }
  }
  return table;
}

// sign = -1 gives A, +1 gives B.
constexpr q31_table<int32_t, kMaxRfftLength> make_split(double sign) {
  q31_table<int32_t, kMaxRfftLength> table = {};
  for (size_t i = 0; i < kMaxRfftLength / 2; ++i) {
    table.words[2 * i] = q31_nearest(0.5 * (1.0 + sign * circle_sin(i, kMaxRfftLength)));
    table.words[2 * i + 1] = q31_nearest(0.5 * sign * circle_cos(i, kMaxRfftLength));
  }
  return table;
}

}  // namespace

constexpr q31_table<int32_t, twiddle_words(16)> twiddleCoef_16_q31 = make_twiddles<16>();
constexpr q31_table<int32_t, twiddle_words(32)> twiddleCoef_32_q31 = make_twiddles<32>();
constexpr q31_table<int32_t, twiddle_words(64)> twiddleCoef_64_q31 = make_twiddles<64>();
constexpr q31_table<int32_t, twiddle_words(128)> twiddleCoef_128_q31 = make_twiddles<128>();
constexpr q31_table<int32_t, twiddle_words(256)> twiddleCoef_256_q31 = make_twiddles<256>();
constexpr q31_table<int32_t, twiddle_words(512)> twiddleCoef_512_q31 = make_twiddles<512>();
constexpr q31_table<int32_t, twiddle_words(1024)> twiddleCoef_1024_q31 = make_twiddles<1024>();
constexpr q31_table<int32_t, twiddle_words(2048)> twiddleCoef_2048_q31 = make_twiddles<2048>();
constexpr q31_table<int32_t, twiddle_words(4096)> twiddleCoef_4096_q31 = make_twiddles<4096>();

constexpr q31_table<uint16_t, bit_reversal_words(16)> armBitRevIndexTable_fixed_16 =
    make_bit_reversal<16>();
constexpr q31_table<uint16_t, bit_reversal_words(32)> armBitRevIndexTable_fixed_32 =
    make_bit_reversal<32>();
constexpr q31_table<uint16_t, bit_reversal_words(64)> armBitRevIndexTable_fixed_64 =
    make_bit_reversal<64>();
constexpr q31_table<uint16_t, bit_reversal_words(128)> armBitRevIndexTable_fixed_128 =
    make_bit_reversal<128>();
constexpr q31_table<uint16_t, bit_reversal_words(256)> armBitRevIndexTable_fixed_256 =
    make_bit_reversal<256>();
constexpr q31_table<uint16_t, bit_reversal_words(512)> armBitRevIndexTable_fixed_512 =
    make_bit_reversal<512>();
constexpr q31_table<uint16_t, bit_reversal_words(1024)> armBitRevIndexTable_fixed_1024 =
    make_bit_reversal<1024>();
constexpr q31_table<uint16_t, bit_reversal_words(2048)> armBitRevIndexTable_fixed_2048 =
    make_bit_reversal<2048>();
constexpr q31_table<uint16_t, bit_reversal_words(4096)> armBitRevIndexTable_fixed_4096 =
    make_bit_reversal<4096>();

constexpr q31_table<int32_t, kMaxRfftLength> realCoefAQ31 = make_split(-1.0);
constexpr q31_table<int32_t, kMaxRfftLength> realCoefBQ31 = make_split(1.0);
