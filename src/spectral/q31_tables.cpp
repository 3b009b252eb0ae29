// Compile-time generation of twiddle factors, bit-reversal pairs and split factors.
#include "spectral/q31_tables.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kQ31One = 2147483648.0;
constexpr int32_t kQ31Max = INT32_MAX;

// Terms of the Taylor series below; at 45 degrees the first one left out is under 1e-21.
constexpr int kTaylorTerms = 10;

// Sine (start = 1) or cosine (start = 0) of 0 <= x <= pi/4 from the Taylor series.
constexpr double taylor_sin_cos(double x, int start) {
  double term = start == 0 ? 1.0 : x;
  double sum = term;
  for (int n = start + 1; n < start + 2 * kTaylorTerms; n += 2) {
    term *= -x * x / (n * (n + 1.0));
    sum += term;
  }
  return sum;
}

// sin(2 pi index / length). The angle is folded into one octant in exact integer arithmetic, so
// that the zeros and ones of the circle come out exact.
constexpr double circle_sin(size_t index, size_t length) {
  const size_t position = index % length;
  const size_t in_half = position % (length / 2);
  const size_t in_quarter = in_half > length / 4 ? length / 2 - in_half : in_half;
  const bool first_octant = in_quarter <= length / 8;
  const size_t in_octant = first_octant ? in_quarter : length / 4 - in_quarter;

  const double angle = 2.0 * kPi * static_cast<double>(in_octant) / static_cast<double>(length);
  const double magnitude = taylor_sin_cos(angle, first_octant ? 1 : 0);
  return position < length / 2 ? magnitude : -magnitude;
}

constexpr double circle_cos(size_t index, size_t length) {
  return circle_sin(index + length / 4, length);
}

// Largest integer not above x; |x| <= 2^31.
constexpr int64_t round_down(double x) {
  const int64_t truncated = static_cast<int64_t>(x);
  return static_cast<double>(truncated) > x ? truncated - 1 : truncated;
}

constexpr int32_t to_q31(int64_t scaled) {
  return scaled > kQ31Max ? kQ31Max : static_cast<int32_t>(scaled);
}

constexpr int32_t q31_down(double x) {
  return to_q31(round_down(x * kQ31One));
}

constexpr int32_t q31_nearest(double x) {
  return to_q31(round_down(x * kQ31One + 0.5));
}

constexpr std::array<int32_t, twiddle_words(kMaxCfftLength)> make_largest_twiddles() {
  std::array<int32_t, twiddle_words(kMaxCfftLength)> table = {};
  for (size_t i = 0; i < table.size() / 2; ++i) {
    table[2 * i] = q31_down(circle_cos(i, kMaxCfftLength));
    table[2 * i + 1] = q31_down(circle_sin(i, kMaxCfftLength));
  }
  return table;
}

constexpr auto kLargestTwiddles = make_largest_twiddles();

// A shorter circle is the longest one sampled.
template <size_t kLength>
constexpr std::array<int32_t, twiddle_words(kLength)> make_twiddles() {
  std::array<int32_t, twiddle_words(kLength)> table = {};
  for (size_t i = 0; i < table.size() / 2; ++i) {
    const size_t sample = i * (kMaxCfftLength / kLength);
    table[2 * i] = kLargestTwiddles[2 * sample];
    table[2 * i + 1] = kLargestTwiddles[2 * sample + 1];
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
constexpr std::array<uint16_t, bit_reversal_words(kLength)> make_bit_reversal() {
  constexpr size_t kBytesPerComplex = 8;
  std::array<uint16_t, bit_reversal_words(kLength)> table = {};
  size_t used = 0;
  for (size_t j = 0; j < kLength; ++j) {
    const size_t reversed = reverse_bits(j, kLength);
    if (j < reversed) {
      table[used++] = static_cast<uint16_t>(kBytesPerComplex * j);
      table[used++] = static_cast<uint16_t>(kBytesPerComplex * reversed);
    }
  }
  return table;
}

// sign = -1 gives A, +1 gives B.
constexpr std::array<int32_t, 2 * kMaxCfftLength> make_split(double sign) {
  std::array<int32_t, 2 *kMaxCfftLength> table = {};
  for (size_t i = 0; i < kMaxCfftLength; ++i) {
    table[2 * i] = q31_nearest(0.5 * (1.0 + sign * circle_sin(i, kMaxRfftLength)));
    table[2 * i + 1] = q31_nearest(0.5 * sign * circle_cos(i, kMaxRfftLength));
  }
  return table;
}

}  // namespace

constexpr std::array<int32_t, twiddle_words(16)> twiddleCoef_16_q31 = make_twiddles<16>();
constexpr std::array<int32_t, twiddle_words(32)> twiddleCoef_32_q31 = make_twiddles<32>();
constexpr std::array<int32_t, twiddle_words(64)> twiddleCoef_64_q31 = make_twiddles<64>();
constexpr std::array<int32_t, twiddle_words(128)> twiddleCoef_128_q31 = make_twiddles<128>();
constexpr std::array<int32_t, twiddle_words(256)> twiddleCoef_256_q31 = make_twiddles<256>();
constexpr std::array<int32_t, twiddle_words(512)> twiddleCoef_512_q31 = make_twiddles<512>();
constexpr std::array<int32_t, twiddle_words(1024)> twiddleCoef_1024_q31 = make_twiddles<1024>();
constexpr std::array<int32_t, twiddle_words(2048)> twiddleCoef_2048_q31 = make_twiddles<2048>();
constexpr std::array<int32_t, twiddle_words(4096)> twiddleCoef_4096_q31 = make_twiddles<4096>();

constexpr std::array<uint16_t, bit_reversal_words(16)> armBitRevIndexTable_fixed_16 =
    make_bit_reversal<16>();
constexpr std::array<uint16_t, bit_reversal_words(32)> armBitRevIndexTable_fixed_32 =
    make_bit_reversal<32>();
constexpr std::array<uint16_t, bit_reversal_words(64)> armBitRevIndexTable_fixed_64 =
    make_bit_reversal<64>();
constexpr std::array<uint16_t, bit_reversal_words(128)> armBitRevIndexTable_fixed_128 =
    make_bit_reversal<128>();
constexpr std::array<uint16_t, bit_reversal_words(256)> armBitRevIndexTable_fixed_256 =
    make_bit_reversal<256>();
constexpr std::array<uint16_t, bit_reversal_words(512)> armBitRevIndexTable_fixed_512 =
    make_bit_reversal<512>();
constexpr std::array<uint16_t, bit_reversal_words(1024)> armBitRevIndexTable_fixed_1024 =
    make_bit_reversal<1024>();
constexpr std::array<uint16_t, bit_reversal_words(2048)> armBitRevIndexTable_fixed_2048 =
    make_bit_reversal<2048>();
constexpr std::array<uint16_t, bit_reversal_words(4096)> armBitRevIndexTable_fixed_4096 =
    make_bit_reversal<4096>();

constexpr std::array<int32_t, 2 *kMaxCfftLength> realCoefAQ31 = make_split(-1.0);
constexpr std::array<int32_t, 2 *kMaxCfftLength> realCoefBQ31 = make_split(1.0);
