// The block-scaled real transform on planes, written once for any set of lanes: conversion to Q31,
// the complex transform of half the length, the split, conversion back.
//
// Every step gives the words of its scalar counterpart in fftwrap_fixpoint.cpp or q31_rfft.cpp.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_RFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_RFFT_H

#include <cstdint>

#include "spectral/q31_format.h"
#include "spectral/vector/cfft.h"
#include "spectral/vector/kernel.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/tables.h"

namespace q31_vector {

// The kernels take silent blocks, and blocks whose peak lies between these bounds. Then the scale
// and the gain are finite, and no value on the way is a denormal number, except samples that become
// 0 words in any case.
constexpr float kLowestPeak = 0x1p-60f;
constexpr float kHighestPeak = 0x1p60f;

static bool takes_peak(float peak) {
  return peak == 0.0f || (peak >= kLowestPeak && peak <= kHighestPeak);
}

// Scale that brings the peak to kBlockPeakQ31; 1 for a silent block.
static float block_scale(float peak) {
  return peak > 0.0f ? kBlockPeakQ31 / peak : 1.0f;
}

// Largest magnitude of the block. Windowed: of the block product[i] = in[i] window[i], which is
// also stored. Where products are lost, the result is a peak that is not taken.
template <typename lanes, bool kWindowed>
float block_peak(const float *in, const float *window, float *product, int32_t count) {
  auto peaks = lanes::no_peak();
  // Several vectors per round: a vector needs hardly more instructions than the loop itself.
  constexpr int32_t kVectors = lanes::kCompact ? 2 : 4;
  for (int32_t i = 0; i < count; i += kVectors * lanes::kWidth) {
    typename lanes::floats samples[kVectors];
#pragma GCC unroll 4
    for (int32_t v = 0; v < kVectors; ++v) {
      samples[v] = lanes::load_floats(in + i + v * lanes::kWidth);
    }
#pragma GCC unroll 4
    for (int32_t v = 0; v < kVectors; ++v) {
      if constexpr (kWindowed) {
        const int32_t at = i + v * lanes::kWidth;
        const auto weighted = lanes::multiply(samples[v], lanes::load_floats(window + at));
        lanes::store_floats(product + at, weighted);
        peaks = lanes::larger_product(samples[v], weighted, peaks);
      } else {
        peaks = lanes::larger_magnitude(samples[v], peaks);
      }
    }
  }
  return lanes::highest(peaks);
}

// The words of samples.
template <typename lanes>
void to_planes(samples x, planes out, int32_t pairs) {
  for (int32_t i = 0; i < pairs; i += lanes::kWidth) {
    store(out, i, load<lanes>(x, i));
  }
}

// Where the words of the inverse transform go as time samples: times gain, and times the window if
// there is one. The inverse is the forward transform with real and imaginary parts exchanged, in
// and out: the imaginary parts of its outputs are the even samples.
struct time_samples {
  float *out;
  const float *window;
  float gain;
};

template <typename lanes>
[[gnu::always_inline]] inline void put(const time_samples &to, int32_t i, complex<lanes> x) {
  const float *window = to.window == nullptr ? nullptr : to.window + 2 * i;
  lanes::store_pairs(to.out + 2 * i, x.im, x.re, to.gain, window);
}

// The gain has the doubling.
template <typename lanes>
[[gnu::always_inline]] inline void put_doubled(const time_samples &to, int32_t i,
                                               complex<lanes> even, complex<lanes> odd) {
  const float *window = to.window == nullptr ? nullptr : to.window + 2 * i;
  lanes::store_zipped_pairs(to.out + 2 * i, {even.im, even.re}, {odd.im, odd.re}, to.gain, window);
}

// Split factors of bins k .. k + kWidth - 1: Re A, |Im A| and Re B, none of them negative.
template <typename lanes>
struct split_factors {
  typename lanes::ints a_re;
  typename lanes::ints a_im;
  typename lanes::ints b_re;
};

template <typename lanes>
split_factors<lanes> load_factors(int32_t half, int32_t k) {
  const int32_t *table =
      2 * half == kVectorShortLength ? q31_split_256.planes : q31_split_512.planes;
  const int32_t plane = half / 2;
  table += k - kFirstSplitBin;
  return {lanes::load(table), lanes::load(table + plane), lanes::load(table + 2 * plane)};
}

// Bins k .. k + kWidth - 1, and the mirror images N/2 - k .. N/2 - k - kWidth + 1 of each.
template <typename lanes>
struct bin_pair {
  complex<lanes> at_k;
  complex<lanes> mirror;
};

template <typename lanes>
complex<lanes> turned_round(complex<lanes> x) {
  return {lanes::reversed(x.re), lanes::reversed(x.im)};
}

template <typename lanes, typename input>
bin_pair<lanes> load_pair(input in, int32_t half, int32_t k) {
  return {load<lanes>(in, k), turned_round(load<lanes>(in, half - k - (lanes::kWidth - 1)))};
}

// x + y + ..., of products.
template <typename lanes, typename left, typename right, typename... others>
[[gnu::always_inline]] inline auto sum(left x, right y, others... more) {
  if constexpr (sizeof...(more) == 0) {
    return lanes::add(x, y);
  } else {
    return sum<lanes>(lanes::add(x, y), more...);
  }
}

// The split of bins k and N/2 - k, for k up to N/4, and that of the inverse:
//   X[k] = Z[k] A[k] + conj(Z[N/2 - k]) B[k], with Im B = -Im A,
//   Z[k] = X[k] conj(A[k]) + conj(X[N/2 - k]) conj(B[k]).
// A and B of bin N/2 - k are those of bin k conjugated, so that the imaginary parts of both results
// share two products. Im A is negative. Products with opposite signs cannot be shared: rounding is
// not symmetric.
template <typename lanes, bool kInverse>
[[gnu::always_inline]] inline bin_pair<lanes> split(bin_pair<lanes> z, split_factors<lanes> f) {
  constexpr bool kPlusA = kInverse ? kMinus : kPlus;
  constexpr bool kMinusA = kInverse ? kPlus : kMinus;
  const complex<lanes> x = z.at_k;
  const complex<lanes> y = z.mirror;

  const auto x_re =
      sum<lanes>(product<lanes, kPlus>(x.re, f.a_re), product<lanes, kPlusA>(x.im, f.a_im),
                 product<lanes, kPlusA>(y.im, f.a_im), product<lanes, kPlus>(y.re, f.b_re));
  const auto y_re =
      sum<lanes>(product<lanes, kPlus>(y.re, f.a_re), product<lanes, kMinusA>(y.im, f.a_im),
                 product<lanes, kMinusA>(x.im, f.a_im), product<lanes, kPlus>(x.re, f.b_re));
  const auto shared =
      sum<lanes>(product<lanes, kMinusA>(x.re, f.a_im), product<lanes, kPlusA>(y.re, f.a_im));
  const auto x_im =
      sum<lanes>(shared, product<lanes, kPlus>(x.im, f.a_re), product<lanes, kMinus>(y.im, f.b_re));
  const auto y_im =
      sum<lanes>(shared, product<lanes, kPlus>(y.im, f.a_re), product<lanes, kMinus>(x.im, f.b_re));
  return {{lanes::in_lane_order(x_re), lanes::in_lane_order(x_im)},
          {lanes::in_lane_order(y_re), lanes::in_lane_order(y_im)}};
}

// The spectrum of the real block from that of half the length, times gain.
template <typename lanes>
void split_forward(planes z, int32_t half, float gain, float *out) {
  const auto put_bins = [&](int32_t k, complex<lanes> x) {
    lanes::store_pairs(out + 2 * k, x.re, x.im, gain, nullptr);
  };
  for (int32_t k = kFirstSplitBin; k <= half / 2; k += lanes::kWidth) {
    const bin_pair<lanes> x =
        split<lanes, false>(load_pair<lanes>(z, half, k), load_factors<lanes>(half, k));
    put_bins(k, x.at_k);
    put_bins(half - k - (lanes::kWidth - 1), turned_round(x.mirror));
  }
  // Both words are means of words of at most 2^29, so their sum cannot overflow.
  out[0] = static_cast<float>((z.re[0] + z.im[0]) >> 1) * gain;
  out[1] = 0.0f;
}

// The half-length spectrum from that of a real block.
template <typename lanes>
void split_inverse(samples x, int32_t half, planes z) {
  for (int32_t k = kFirstSplitBin; k <= half / 2; k += lanes::kWidth) {
    const bin_pair<lanes> bins =
        split<lanes, true>(load_pair<lanes>(x, half, k), load_factors<lanes>(half, k));
    store(z, k, bins.at_k);
    store(z, half - k - (lanes::kWidth - 1), turned_round(bins.mirror));
  }
  // At bin 0 all factors are 1/2, and bin N/2, behind the packed spectrum, is 0. A high word is
  // half a product, which leaves a quarter of the word, rounded.
  const complex<lanes> first = load<lanes>(x, 0);
  const auto quarter = [](int32_t word) { return (word + 2) >> 2; };
  const int32_t re = lanes::first(first.re);
  const int32_t im = lanes::first(first.im);
  z.re[0] = quarter(re) + quarter(-im);
  z.im[0] = quarter(im) + quarter(re);
}

template <typename lanes>
bool forward(q31_vector_work work, int32_t n, const float *in, const float *window, float *product,
             float *out) {
  const int32_t half = n / 2;
  const bool windowed = window != nullptr;
  const float peak = windowed ? block_peak<lanes, true>(in, window, product, n)
                              : block_peak<lanes, false>(in, nullptr, nullptr, n);
  if (!takes_peak(peak)) {
    return false;
  }

  const samples time = {windowed ? product : in, block_scale(peak)};
  const planes frame = {work.frame, work.frame + half};
  const planes half_spectrum = {work.spectrum, work.spectrum + half};
  if constexpr (lanes::kCompact) {
    to_planes<lanes>(time, frame, half);
    complex_transform<lanes>(frame, frame, half_spectrum, half);
  } else {
    complex_transform<lanes>(time, frame, half_spectrum, half);
  }
  split_forward<lanes>(half_spectrum, half, 1.0f / time.scale, out);
  return true;
}

template <typename lanes>
bool inverse(q31_vector_work work, int32_t n, const float *in, const float *window, float *out) {
  const int32_t half = n / 2;
  const float peak = block_peak<lanes, false>(in, nullptr, nullptr, n);
  const bool weighted = window != nullptr;
  if (!takes_peak(peak) || (weighted && !lanes::keeps_products(window, n))) {
    return false;
  }

  const planes half_spectrum = {work.frame, work.frame + half};
  const float scale = block_scale(peak);
  split_inverse<lanes>({in, scale}, half, half_spectrum);

  // The split halves its products; the transform of 128 points leaves a doubling to its output. The
  // gain makes up for both, exactly.
  const float doubled = half == kVectorShortLength / 2 ? 4.0f : 2.0f;
  const float gain = 1.0f / (scale / static_cast<float>(n)) * doubled;
  const planes exchanged = {half_spectrum.im, half_spectrum.re};
  complex_transform<lanes>(exchanged, exchanged, time_samples{out, window, gain}, half);
  return true;
}

// The kernel of a set of lanes.
template <typename lanes>
constexpr q31_vector_kernel make_kernel() {
  return {forward<lanes>, inverse<lanes>};
}

}  // namespace q31_vector

#endif  // TM_SE_BF_SPECTRAL_VECTOR_RFFT_H
