// Low-pass filters for changing the sampling rate: windowed sines after J. F. Kaiser, Nonrecursive
// digital filter design using the I0-sinh window function (1974).
#include "rate_filter.h"

#include <cmath>

namespace {

// Kaiser's formula is cautious: at 108 dB every alias and image of the whole path is below -114 dB.
// Half-band filters get more, for several in a row add up, and it costs next to nothing.
constexpr double kAttenuationDb = 108.0;
constexpr double kHalfBandDb = 125.0;
constexpr double kKaiserSlope = 0.1102;  // shape of the window for attenuations above 50 dB
constexpr double kKaiserOffsetDb = 8.7;
constexpr double kKaiserLengthDb = 7.95;  // taps = (A - 7.95) / (14.36 * transition)
constexpr double kKaiserLength = 14.36;
constexpr double kPi = 3.14159265358979323846;
constexpr double kBesselEnd = 1e-12;  // series terms below this fraction of the sum are left out

// gcc and clang map the types to the processor's vectors, or to single operations where it has
// none.
constexpr int kVectorLanes = 4;
static_assert(4 * kVectorLanes == kRateFilterLanes, "rate_filter_dot keeps four sums");
typedef float vec __attribute__((vector_size(16), may_alias));
typedef float unaligned_vec __attribute__((vector_size(16), aligned(4), may_alias));

// Modified Bessel function of the first kind, order 0: sum of ((x/2)^k / k!)^2.
double bessel_i0(double x) {
  const double quarter = 0.25 * x * x;
  double sum = 1.0;
  double term = 1.0;
  for (int k = 1; term > kBesselEnd * sum; ++k) {
    term *= quarter / (static_cast<double>(k) * k);
    sum += term;
  }
  return sum;
}

// Windowed sine at `distance` samples from the middle of a filter that reaches `half` to each side.
double windowed_sine(double cutoff, double distance, double half, double attenuation_db) {
  const double place = distance / half;
  if (place >= 1.0) {
    return 0.0;
  }
  const double beta = kKaiserSlope * (attenuation_db - kKaiserOffsetDb);
  const double window = bessel_i0(beta * std::sqrt(1.0 - place * place));
  const double angle = 2.0 * kPi * cutoff * distance;
  return window * (distance > 0.0 ? std::sin(angle) / angle : 1.0);
}

double kaiser_length(double transition, double attenuation_db) {
  return (attenuation_db - kKaiserLengthDb) / (kKaiserLength * transition);
}

// Scales `count` values to the sum `total`.
void scale_to_sum(float *values, int count, double total) {
  double sum = 0.0;
  for (int k = 0; k < count; ++k) {
    sum += static_cast<double>(values[k]);
  }
  for (int k = 0; k < count; ++k) {
    values[k] = static_cast<float>(static_cast<double>(values[k]) * total / sum);
  }
}

float dot(const float *x, const float *h, int count) {
  vec sum0 = {};
  vec sum1 = {};
  vec sum2 = {};
  vec sum3 = {};
  for (int k = 0; k < count; k += kRateFilterLanes) {
    const unaligned_vec *a = reinterpret_cast<const unaligned_vec *>(x + k);
    const vec *b = reinterpret_cast<const vec *>(h + k);
    sum0 += a[0] * b[0];
    sum1 += a[1] * b[1];
    sum2 += a[2] * b[2];
    sum3 += a[3] * b[3];
  }
  const vec total = (sum0 + sum1) + (sum2 + sum3);
  return (total[0] + total[1]) + (total[2] + total[3]);
}

#if defined(TM_SE_BF_USE_AVX2)
typedef float wide_vec __attribute__((vector_size(32), aligned(4), may_alias));

// The same sums in vectors of twice the width, in half the time.
__attribute__((target("avx2"))) float dot_wide(const float *x, const float *h, int count) {
  wide_vec sum01 = {};
  wide_vec sum23 = {};
  for (int k = 0; k < count; k += kRateFilterLanes) {
    const wide_vec *a = reinterpret_cast<const wide_vec *>(x + k);
    const wide_vec *b = reinterpret_cast<const wide_vec *>(h + k);
    sum01 += a[0] * b[0];
    sum23 += a[1] * b[1];
  }
  float total[kVectorLanes];
  for (int lane = 0; lane < kVectorLanes; ++lane) {
    total[lane] =
        (sum01[lane] + sum01[lane + kVectorLanes]) + (sum23[lane] + sum23[lane + kVectorLanes]);
  }
  return (total[0] + total[1]) + (total[2] + total[3]);
}

bool has_wide_vectors() {
  return __builtin_cpu_supports("avx2") != 0;
}
#else
float dot_wide(const float *x, const float *h, int count) {
  return dot(x, h, count);
}

bool has_wide_vectors() {
  return false;
}
#endif

}  // namespace

int rate_filter_taps(double transition) {
  const int taps = static_cast<int>(std::ceil(kaiser_length(transition, kAttenuationDb))) + 1;
  return (taps + kRateFilterLanes - 1) / kRateFilterLanes * kRateFilterLanes;
}

int rate_filter_quarter(double transition) {
  return static_cast<int>(std::ceil((kaiser_length(transition, kHalfBandDb) + 2.0) / 4.0));
}

void rate_filter_polyphase(double cutoff, int taps, int phases, float *table) {
  const int half = taps / 2;
  // The filter is symmetric: row phases - p is row p backwards.
  for (int p = 0; 2 * p <= phases; ++p) {
    float *row = table + static_cast<long>(p) * taps;
    float *mirror = table + static_cast<long>(phases - p) * taps;
    const double behind = static_cast<double>(p) / phases;
    for (int k = 0; k < taps; ++k) {
      row[k] = static_cast<float>(
          windowed_sine(cutoff, std::fabs(k - half + 1 - behind), half, kAttenuationDb));
    }
    scale_to_sum(row, taps, 1.0);
    for (int k = 0; k < taps; ++k) {
      mirror[taps - 1 - k] = row[k];
    }
  }
}

void rate_filter_half_band(int quarter, float *taps) {
  const int count = 2 * quarter;
  for (int k = 0; k < count; ++k) {
    // The distances from the middle are odd numbers of samples.
    const double distance = std::fabs(2.0 * k + 1.0 - count);
    taps[k] = static_cast<float>(windowed_sine(0.25, distance, count, kHalfBandDb));
  }
  scale_to_sum(taps, count, 0.5);
}

float rate_filter_dot(const float *x, const float *h, int count) {
  return has_wide_vectors() ? dot_wide(x, h, count) : dot(x, h, count);
}

void rate_filter_run(const float *x, const float *taps, int count, float *y, int outputs) {
  int n = 0;
  for (; n + kRateFilterLanes <= outputs; n += kRateFilterLanes) {
    vec sum0 = {};
    vec sum1 = {};
    vec sum2 = {};
    vec sum3 = {};
    for (int k = 0; k < count; ++k) {
      const unaligned_vec *a = reinterpret_cast<const unaligned_vec *>(x + n + k);
      sum0 += a[0] * taps[k];
      sum1 += a[1] * taps[k];
      sum2 += a[2] * taps[k];
      sum3 += a[3] * taps[k];
    }
    unaligned_vec *b = reinterpret_cast<unaligned_vec *>(y + n);
    b[0] = sum0;
    b[1] = sum1;
    b[2] = sum2;
    b[3] = sum3;
  }
  for (; n < outputs; ++n) {
    float sum = 0.0f;
    for (int k = 0; k < count; ++k) {
      sum += x[n + k] * taps[k];
    }
    y[n] = sum;
  }
}
