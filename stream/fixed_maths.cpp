// Power series behind an exact reduction of the argument by powers of two.
#include "fixed_maths.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr double kLogTwo = 0.693147180559945309;
constexpr double kRootHalf = 0.707106781186547524;

// Fields of a double.
constexpr int32_t kExponentShift = 52;
constexpr int64_t kExponentBias = 1023;
constexpr uint64_t kFractionMask = (uint64_t{1} << kExponentShift) - 1;

// With |r| <= ln(2) / 2 the first term left out is below 2e-16.
constexpr int32_t kExpTerms = 12;

// With |z| <= 0.172 the first term left out is below 1e-12.
constexpr int32_t kLogTerms = 6;

double from_bits(uint64_t bits) {
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

uint64_t to_bits(double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

double power_of_two(int64_t n) {
  return from_bits(static_cast<uint64_t>(n + kExponentBias) << kExponentShift);
}

}  // namespace

// exp(x) = 2^n exp(r), r = x - n ln(2).
double fixed_exp(double x) {
  const double turns = x / kLogTwo;
  const int64_t n = static_cast<int64_t>(turns < 0.0 ? turns - 0.5 : turns + 0.5);
  const double r = x - static_cast<double>(n) * kLogTwo;
  double sum = 1.0;
  for (int32_t i = kExpTerms; i > 0; --i) {
    sum = 1.0 + r / static_cast<double>(i) * sum;
  }
  return sum * power_of_two(n);
}

// log(x) = e ln(2) + 2 (z + z^3 / 3 + z^5 / 5 + ...), z = (m - 1) / (m + 1), x = 2^e m.
double fixed_log(double x) {
  const uint64_t bits = to_bits(x);
  int64_t exponent = static_cast<int64_t>(bits >> kExponentShift) - kExponentBias;
  double mantissa = from_bits((bits & kFractionMask) | to_bits(1.0));
  if (mantissa * kRootHalf > 1.0) {
    mantissa *= 0.5;
    exponent += 1;
  }
  const double z = (mantissa - 1.0) / (mantissa + 1.0);
  double sum = 0.0;
  for (int32_t i = kLogTerms; i >= 0; --i) {
    sum = sum * (z * z) + 1.0 / static_cast<double>(2 * i + 1);
  }
  return static_cast<double>(exponent) * kLogTwo + 2.0 * z * sum;
}
