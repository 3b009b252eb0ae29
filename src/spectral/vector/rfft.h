// The block-scaled real transform on planes, written once for any set of lanes: conversion to Q31,
// the complex transform of half the length, the split, conversion back.
//
// Every step gives the words of its scalar counterpart in fftwrap_fixpoint.cpp or q31_rfft.cpp.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_RFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_RFFT_H

#include <cfloat>
#include <cstdint>

#include "spectral/q31_format.h"
#include "spectral/vector/cfft.h"
#include "spectral/vector/kernel.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/tables.h"

namespace q31_vector {

// Scale that brings max |in| to kBlockPeakQ31; 1 for a silent block. Not-a-numbers are ignored.
// Windowed: the same for the block product[i] = in[i] window[i], which is also stored.
template <typename lanes, bool kWindowed>
float block_scale(const float *in, const float *window, float *product, int32_t count) {
  auto peaks = lanes::no_peak();
  // Two vectors per iteration save 35 to 70 instructions per block: a vector needs hardly more
  // instructions than the loop itself.
#pragma GCC unroll 2
  for (int32_t i = 0; i < count; i += lanes::kWidth) {
    auto samples = lanes::load_floats(in + i);
    if constexpr (kWindowed) {
      samples = lanes::multiply(samples, lanes::load_floats(window + i));
      lanes::store_floats(product + i, samples);
    }
    peaks = lanes::larger_magnitude(samples, peaks);
  }
  const float peak = lanes::highest(peaks);
  return peak > 0.0f ? kBlockPeakQ31 / peak : 1.0f;
}

// Converts pairs of floats (real, imaginary), times scale, to planes of words.
template <typename lanes>
void to_q31(const float *in, float scale, planes out, int32_t pairs) {
  for (int32_t i = 0; i < pairs; i += lanes::kWidth) {
    store(out, i, lanes::load_complex(in + 2 * i, scale));
  }
}

// Doubles the words and converts them to pairs of floats, times gain, and times the window if there
// is one.
template <typename lanes>
void from_q31(planes x, float gain, const float *window, float *out, int32_t pairs) {
  for (int32_t i = 0; i < pairs; i += lanes::kWidth) {
    const complex<lanes> words = load<lanes>(x, i);
    const complex<lanes> doubled = add(words, words);
    float_pair<lanes> samples = lanes::interleave(doubled.re, doubled.im, gain);
    if (window != nullptr) {
      const float *weights = window + 2 * i;
      samples = {lanes::multiply(samples.v0, lanes::load_floats(weights)),
                 lanes::multiply(samples.v1, lanes::load_floats(weights + lanes::kWidth))};
    }
    lanes::store_floats(out + 2 * i, samples.v0);
    lanes::store_floats(out + 2 * i + lanes::kWidth, samples.v1);
  }
}

template <typename lanes>
void complex_transform(planes x, planes out, int32_t half) {
  if (2 * half == kVectorShortLength) {
    transform_128<lanes>(x, out);
  } else {
    transform_256<lanes>(x, out);
  }
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
  return {lanes::load(table + k), lanes::load(table + half + k), lanes::load(table + 2 * half + k)};
}

// Half of the bins of the real block's spectrum, starting at bin 0 or at bin N/4, times gain:
//   X[k] = Z[k] A[k] + conj(Z[N/2 - k]) B[k], with Im B = -Im A.
// Im A is negative in the lower half of the bins and positive in the upper.
template <typename lanes, bool kUpper>
void split_forward_half(planes z, int32_t half, float gain, float *out) {
  constexpr bool kPlusImA = kUpper ? kPlus : kMinus;
  constexpr bool kMinusImA = kUpper ? kMinus : kPlus;
  const int32_t first = kUpper ? half / 2 : 0;
  for (int32_t k = first; k < first + half / 2; k += lanes::kWidth) {
    const split_factors<lanes> f = load_factors<lanes>(half, k);
    const complex<lanes> at_k = load<lanes>(z, k);
    const complex<lanes> mirror = {lanes::load_reversed(z.re + half - k),
                                   lanes::load_reversed(z.im + half - k)};

    auto re = product<lanes, kPlus>(at_k.re, f.a_re);
    re = lanes::add(re, product<lanes, kMinusImA>(at_k.im, f.a_im));
    re = lanes::add(re, product<lanes, kMinusImA>(mirror.im, f.a_im));
    re = lanes::add(re, product<lanes, kPlus>(mirror.re, f.b_re));
    auto im = product<lanes, kPlusImA>(at_k.re, f.a_im);
    im = lanes::add(im, product<lanes, kPlus>(at_k.im, f.a_re));
    im = lanes::add(im, product<lanes, kMinus>(mirror.im, f.b_re));
    im = lanes::add(im, product<lanes, kMinusImA>(mirror.re, f.a_im));
    const float_pair<lanes> values =
        lanes::interleave(lanes::in_lane_order(re), lanes::in_lane_order(im), gain);
    lanes::store_floats(out + 2 * k, values.v0);
    lanes::store_floats(out + 2 * k + lanes::kWidth, values.v1);
  }
}

// The whole spectrum. The split does not give entry 0, which holds DC and the empty Nyquist slot:
// it is overwritten at the end.
template <typename lanes>
void split_forward(planes z, int32_t half, float gain, float *out) {
  split_forward_half<lanes, false>(z, half, gain, out);
  split_forward_half<lanes, true>(z, half, gain, out);
  // Both words are means of words of at most 2^29, so their sum cannot overflow.
  out[0] = static_cast<float>((z.re[0] + z.im[0]) >> 1) * gain;
  // Not plain 0: an infinite sample makes the gain infinite, and then this entry, like all others,
  // must be not-a-number, as on the scalar path.
  out[1] = 0.0f * gain;
}

// Half of the points of the half-length spectrum, starting at point 0 or at point N/4:
//   Z[k] = X[k] conj(A[k]) + conj(X[N/2 - k]) conj(B[k]).
template <typename lanes, bool kUpper>
void split_inverse_half(planes x, int32_t half, planes z) {
  constexpr bool kPlusImA = kUpper ? kPlus : kMinus;
  constexpr bool kMinusImA = kUpper ? kMinus : kPlus;
  const int32_t first = kUpper ? half / 2 : 0;
  for (int32_t k = first; k < first + half / 2; k += lanes::kWidth) {
    const split_factors<lanes> f = load_factors<lanes>(half, k);
    const complex<lanes> at_k = load<lanes>(x, k);
    const complex<lanes> mirror = {lanes::load_reversed(x.re + half - k),
                                   lanes::load_reversed(x.im + half - k)};

    auto re = product<lanes, kPlus>(at_k.re, f.a_re);
    re = lanes::add(re, product<lanes, kPlusImA>(at_k.im, f.a_im));
    re = lanes::add(re, product<lanes, kPlusImA>(mirror.im, f.a_im));
    re = lanes::add(re, product<lanes, kPlus>(mirror.re, f.b_re));
    auto im = product<lanes, kPlus>(at_k.im, f.a_re);
    im = lanes::add(im, product<lanes, kMinusImA>(at_k.re, f.a_im));
    im = lanes::add(im, product<lanes, kMinus>(mirror.im, f.b_re));
    im = lanes::add(im, product<lanes, kPlusImA>(mirror.re, f.a_im));
    store<lanes>(z, k, {lanes::in_lane_order(re), lanes::in_lane_order(im)});
  }
}

template <typename lanes>
bool forward(q31_vector_work work, int32_t n, const float *in, const float *window, float *product,
             float *out) {
  const int32_t half = n / 2;
  const bool windowed = window != nullptr;
  const float *samples = windowed ? product : in;
  const float scale = windowed ? block_scale<lanes, true>(in, window, product, n)
                               : block_scale<lanes, false>(in, nullptr, nullptr, n);
  if (scale > FLT_MAX) {
    return false;
  }

  const planes time = {work.frame, work.frame + half};
  const planes half_spectrum = {work.spectrum, work.spectrum + n};
  to_q31<lanes>(samples, scale, time, half);
  complex_transform<lanes>(time, half_spectrum, half);
  split_forward<lanes>(half_spectrum, half, 1.0f / scale, out);
  return true;
}

template <typename lanes>
bool inverse(q31_vector_work work, int32_t n, const float *in, const float *window, float *out) {
  const int32_t half = n / 2;
  const float scale = block_scale<lanes, false>(in, nullptr, nullptr, n);
  if (scale > FLT_MAX) {
    return false;
  }

  const planes spectrum = {work.spectrum, work.spectrum + n};
  const planes half_spectrum = {work.frame, work.frame + half};
  to_q31<lanes>(in, scale, spectrum, half);
  // Bin N/2, behind the packed spectrum, is 0.
  spectrum.re[half] = 0;
  spectrum.im[half] = 0;
  split_inverse_half<lanes, false>(spectrum, half, half_spectrum);
  split_inverse_half<lanes, true>(spectrum, half, half_spectrum);

  // The inverse is the forward transform with real and imaginary parts exchanged, in and out.
  complex_transform<lanes>({half_spectrum.im, half_spectrum.re}, {spectrum.im, spectrum.re}, half);
  const float gain = 1.0f / (scale / static_cast<float>(n));
  from_q31<lanes>(spectrum, gain, window, out, half);
  return true;
}

// The kernel of a set of lanes.
template <typename lanes>
constexpr q31_vector_kernel make_kernel() {
  return {forward<lanes>, inverse<lanes>};
}

}  // namespace q31_vector

#endif  // TM_SE_BF_SPECTRAL_VECTOR_RFFT_H
