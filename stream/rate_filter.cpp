// Low-pass filters for changing the sampling rate: windowed sines after J. F. Kaiser, Nonrecursive
// digital filter design using the I0-sinh window function (1974).
#include "rate_filter.h"

#include <algorithm>
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
// gcc and clang map the types to the processor's vectors, or to single operations where it has
// none.
constexpr int kVectorLanes = 4;
static_assert(4 * kVectorLanes == kRateFilterLanes, "rate_filter_dot keeps four sums");
typedef float vec __attribute__((vector_size(16), may_alias));
typedef float unaligned_vec __attribute__((vector_size(16), aligned(4), may_alias));

// Modified Bessel function of the first kind, order 0: sum of c[k] * (x^2 / 4)^k, c[k] = 1 / k!^2.
// With 32 terms it is exact to 1e-15 for every window here.
constexpr int kBesselTerms = 32;
struct bessel_series {
  double c[kBesselTerms];
};

constexpr bessel_series make_bessel_series() {
  bessel_series series = {{1.0}};
  for (int k = 1; k < kBesselTerms; ++k) {
    series.c[k] = series.c[k - 1] / (static_cast<double>(k) * k);
  }
  return series;
}
constexpr bessel_series kBessel = make_bessel_series();

// A filter that reaches `half` samples to each side of its middle.
struct windowed_sine {
  double cutoff;
  double half;
  double attenuation_db;
};

// taps[k], k = 0 .. count - 1, is the windowed sine at first + k * spacing samples from the middle.
void fill_taps(const windowed_sine *filter, double first, double spacing, int count, float *taps) {
  const double beta = kKaiserSlope * (filter->attenuation_db - kKaiserOffsetDb);
  // The sine turns from tap to tap; each value follows from the one before.
  const double turn = 2.0 * kPi * filter->cutoff;
  const double step_cos = std::cos(turn * spacing);
  const double step_sin = std::sin(turn * spacing);
  double cosine = std::cos(turn * first);
  double sine = std::sin(turn * first);
  for (int from = 0; from < count; from += kRateFilterLanes) {
    double argument[kRateFilterLanes];
    double window[kRateFilterLanes] = {};
    for (int i = 0; i < kRateFilterLanes; ++i) {
      const double place = (first + (from + i) * spacing) / filter->half;
      argument[i] = 0.25 * beta * beta * (1.0 - place * place);
    }
    for (int k = kBesselTerms - 1; k >= 0; --k) {
      for (int i = 0; i < kRateFilterLanes; ++i) {
        window[i] = window[i] * argument[i] + kBessel.c[k];
      }
    }
    for (int i = 0; i < kRateFilterLanes && from + i < count; ++i) {
      const double distance = first + (from + i) * spacing;
      const double ideal = distance != 0.0 ? sine / (turn * distance) : 1.0;
      taps[from + i] = argument[i] > 0.0 ? static_cast<float>(window[i] * ideal) : 0.0f;
      const double next = cosine * step_cos - sine * step_sin;
      sine = sine * step_cos + cosine * step_sin;
      cosine = next;
    }
  }
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

// As many whole groups of outputs as there are; returns how many outputs that makes.
__attribute__((target("avx2"))) int run_wide(const float *x, const float *taps, int count, float *y,
                                             int outputs) {
  int n = 0;
  for (; n + 2 * kRateFilterLanes <= outputs; n += 2 * kRateFilterLanes) {
    wide_vec sum0 = {};
    wide_vec sum1 = {};
    wide_vec sum2 = {};
    wide_vec sum3 = {};
    for (int k = 0; k < count; ++k) {
      const wide_vec *a = reinterpret_cast<const wide_vec *>(x + n + k);
      sum0 += a[0] * taps[k];
      sum1 += a[1] * taps[k];
      sum2 += a[2] * taps[k];
      sum3 += a[3] * taps[k];
    }
    wide_vec *b = reinterpret_cast<wide_vec *>(y + n);
    b[0] = sum0;
    b[1] = sum1;
    b[2] = sum2;
    b[3] = sum3;
  }
  return n;
}

bool has_wide_vectors() {
  return __builtin_cpu_supports("avx2") != 0;
}
#else
float dot_wide(const float *x, const float *h, int count) {
  return dot(x, h, count);
}

int run_wide(const float * /*x*/, const float * /*taps*/, int /*count*/, float * /*y*/,
             int /*outputs*/) {
  return 0;
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

int rate_filter_rows(int phases) {
  return phases / 2 + 1;
}

void rate_filter_polyphase(double cutoff, int taps, int phases, int rows, float *table) {
  const windowed_sine filter = {cutoff, 0.5 * taps, kAttenuationDb};
  for (int p = 0; p < rows; ++p) {
    float *row = table + static_cast<long>(p) * taps;
    if (p >= rate_filter_rows(phases)) {
      const float *mirror = table + static_cast<long>(phases - p) * taps;
      std::reverse_copy(mirror, mirror + taps, row);
      continue;
    }
    fill_taps(&filter, 1.0 - filter.half - static_cast<double>(p) / phases, 1.0, taps, row);
    scale_to_sum(row, taps, 1.0);
  }
}

void rate_filter_half_band(int quarter, float *taps) {
  const int count = 2 * quarter;
  const windowed_sine filter = {0.25, static_cast<double>(count), kHalfBandDb};
  // The distances from the middle are odd numbers of samples.
  fill_taps(&filter, 1.0 - count, 2.0, count, taps);
  scale_to_sum(taps, count, 0.5);
}

float rate_filter_dot(const float *x, const float *h, int count) {
  return has_wide_vectors() ? dot_wide(x, h, count) : dot(x, h, count);
}

void rate_filter_run(const float *x, const float *taps, int count, float *y, int outputs) {
  int n = has_wide_vectors() ? run_wide(x, taps, count, y, outputs) : 0;
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
