// The block-scaled real transform around the vector stages: conversion, split, conversion back.
//
// Written once for any set of lanes, as vector/cfft.h tells. Included by one source file per
// processor.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_RFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_RFFT_H

#include <cfloat>
#include <cstdint>
#include <cstring>

#include "spectral/vector/cfft.h"
#include "spectral/vector/kernel.h"
#include "spectral/vector/tables.h"

namespace q31_vector {

// Word to which the peak of a block is scaled.
inline constexpr float kVectorPeakQ31 = 536870912.0f;

// Factors of split step k, none of them negative: Re A, |Im A|, Re B.
template <typename lanes>
struct split_factors {
  typename lanes::ints a_re;
  typename lanes::ints a_im;
  typename lanes::ints b_re;
};

template <typename lanes>
[[gnu::always_inline]] inline split_factors<lanes> load_factors(const int32_t *table, int32_t half,
                                                                int32_t k) {
  return {lanes::load(table + k), lanes::load(table + half + k), lanes::load(table + 2 * half + k)};
}

template <typename lanes>
const int32_t *split_table(int32_t half) {
  return 2 * half == kShortLength ? q31_split_256.data() : q31_split_512.data();
}

// Bins first .. first + half/2 - 1 of the real block's spectrum, times gain:
//   X[k] = Z[k] A[k] + conj(Z[N/2 - k]) B[k].
// Im A is negative in the lower half of the bins and positive in the upper.
template <typename lanes, bool kUpper>
void split_forward_half(q31_planes z, int32_t half, float gain, float *out) {
  const int32_t *table = split_table<lanes>(half);
  const int32_t first = kUpper ? half / 2 : 0;
  for (int32_t k = first; k < first + half / 2; k += lanes::kWidth) {
    const split_factors<lanes> f = load_factors<lanes>(table, half, k);
    const auto z_re = lanes::load(z.re + k);
    const auto z_im = lanes::load(z.im + k);
    const auto m_re = lanes::load_reversed(z.re + half - k);
    const auto m_im = lanes::load_reversed(z.im + half - k);

    auto re = product<lanes, false>(z_re, f.a_re);
    re = lanes::add(re, product<lanes, kUpper>(z_im, f.a_im));
    re = lanes::add(re, product<lanes, kUpper>(m_im, f.a_im));
    re = lanes::add(re, product<lanes, false>(m_re, f.b_re));
    auto im = product<lanes, !kUpper>(z_re, f.a_im);
    im = lanes::add(im, product<lanes, false>(z_im, f.a_re));
    im = lanes::add(im, product<lanes, true>(m_im, f.b_re));
    im = lanes::add(im, product<lanes, kUpper>(m_re, f.a_im));
    const auto values = lanes::interleave(lanes::settle(re), lanes::settle(im), gain);
    lanes::store_floats(out + 2 * k, values.v0);
    lanes::store_floats(out + 2 * k + lanes::kWidth, values.v1);
  }
}

// The whole spectrum. Entry 0 is not a bin of the split; it receives DC and the empty Nyquist slot.
template <typename lanes>
void split_forward(q31_planes z, int32_t half, float gain, float *out) {
  split_forward_half<lanes, false>(z, half, gain, out);
  split_forward_half<lanes, true>(z, half, gain, out);
  const uint32_t sum = static_cast<uint32_t>(z.re[0]) + static_cast<uint32_t>(z.im[0]);
  out[0] = static_cast<float>(static_cast<int32_t>(sum) >> 1) * gain;
  out[1] = 0.0f * gain;
}

// Points first .. first + half/2 - 1 of the half-length spectrum:
//   Z[k] = X[k] conj(A[k]) + conj(X[N/2 - k]) conj(B[k]).
template <typename lanes, bool kUpper>
void split_inverse_half(q31_planes x, int32_t half, q31_planes z) {
  const int32_t *table = split_table<lanes>(half);
  const int32_t first = kUpper ? half / 2 : 0;
  for (int32_t k = first; k < first + half / 2; k += lanes::kWidth) {
    const split_factors<lanes> f = load_factors<lanes>(table, half, k);
    const auto x_re = lanes::load(x.re + k);
    const auto x_im = lanes::load(x.im + k);
    const auto m_re = lanes::load_reversed(x.re + half - k);
    const auto m_im = lanes::load_reversed(x.im + half - k);

    auto re = product<lanes, false>(x_re, f.a_re);
    re = lanes::add(re, product<lanes, !kUpper>(x_im, f.a_im));
    re = lanes::add(re, product<lanes, !kUpper>(m_im, f.a_im));
    re = lanes::add(re, product<lanes, false>(m_re, f.b_re));
    auto im = product<lanes, false>(x_im, f.a_re);
    im = lanes::add(im, product<lanes, kUpper>(x_re, f.a_im));
    im = lanes::add(im, product<lanes, true>(m_im, f.b_re));
    im = lanes::add(im, product<lanes, !kUpper>(m_re, f.a_im));
    store_planes<lanes>(z, k, {lanes::settle(re), lanes::settle(im)});
  }
}

// Scale that brings the peak of the block to kVectorPeakQ31; 1 for a silent block.
template <typename lanes>
[[gnu::noinline]] float vector_scale(const float *in, int32_t count) {
  auto peaks = lanes::no_peak();
#pragma GCC unroll 2
  for (int32_t i = 0; i < count; i += lanes::kWidth) {
    peaks = lanes::larger_magnitude(lanes::load_floats(in + i), peaks);
  }
  const float peak = lanes::highest(peaks);
  return peak > 0.0f ? kVectorPeakQ31 / peak : 1.0f;
}

// The same for the block in[i] window[i], which is stored in `product`.
template <typename lanes>
[[gnu::noinline]] float windowed_scale(const float *in, const float *window, float *product,
                                       int32_t count) {
  auto peaks = lanes::no_peak();
#pragma GCC unroll 2
  for (int32_t i = 0; i < count; i += lanes::kWidth) {
    const auto weighted =
        lanes::multiply(lanes::load_floats(in + i), lanes::load_floats(window + i));
    lanes::store_floats(product + i, weighted);
    peaks = lanes::larger_magnitude(weighted, peaks);
  }
  const float peak = lanes::highest(peaks);
  return peak > 0.0f ? kVectorPeakQ31 / peak : 1.0f;
}

// Converts pairs of floats to planes of words.
template <typename lanes>
[[gnu::noinline]] void to_planes(const float *in, float scale, q31_planes out, int32_t pairs) {
  for (int32_t i = 0; i < pairs; i += lanes::kWidth) {
    const auto words = lanes::load_pairs(in + 2 * i, scale);
    store_planes<lanes>(out, i, {words.v0, words.v1});
  }
}

// What becomes of a block whose peak is so small that its scale is not finite.
template <typename lanes>
void silence(float *out, int32_t count) {
  std::memset(out, 0, static_cast<size_t>(count) * sizeof(float));
}

template <typename lanes>
void vector_forward(q31_vector_work work, int32_t n, const float *in, const float *window,
                    float *product, float *out) {
  const int32_t half = n / 2;
  const bool windowed = window != nullptr;
  const float scale =
      windowed ? windowed_scale<lanes>(in, window, product, n) : vector_scale<lanes>(in, n);
  if (scale > FLT_MAX) {
    silence<lanes>(out, n);
    return;
  }
  const q31_planes time = {work.frame, work.frame + half};
  const q31_planes half_spectrum = {work.spectrum, work.spectrum + n};
  to_planes<lanes>(windowed ? product : in, scale, time, half);
  transform<lanes>(time, half_spectrum, half);
  split_forward<lanes>(half_spectrum, half, 1.0f / scale, out);
}

// Even and odd time samples to floats in natural order, times a window if there is one.
template <typename lanes>
void from_planes(q31_planes x, float gain, const float *window, float *out, int32_t pairs) {
  for (int32_t m = 0; m < pairs; m += lanes::kWidth) {
    const auto even = lanes::load(x.re + m);
    const auto odd = lanes::load(x.im + m);
    const auto samples = lanes::interleave(lanes::add(even, even), lanes::add(odd, odd), gain);
    float *first = out + 2 * m;
    if (window == nullptr) {
      lanes::store_floats(first, samples.v0);
      lanes::store_floats(first + lanes::kWidth, samples.v1);
    } else {
      const float *weights = window + 2 * m;
      lanes::store_floats(first, lanes::multiply(samples.v0, lanes::load_floats(weights)));
      lanes::store_floats(first + lanes::kWidth,
                          lanes::multiply(samples.v1, lanes::load_floats(weights + lanes::kWidth)));
    }
  }
}

template <typename lanes>
void vector_inverse(q31_vector_work work, int32_t n, const float *in, const float *window,
                    float *out) {
  const int32_t half = n / 2;
  const float scale = vector_scale<lanes>(in, n);
  if (scale > FLT_MAX) {
    silence<lanes>(out, n);
    return;
  }
  const q31_planes spectrum = {work.spectrum, work.spectrum + n};
  const q31_planes half_spectrum = {work.frame, work.frame + half};
  to_planes<lanes>(in, scale, spectrum, half);
  // The Nyquist pair behind the packed spectrum is nothing.
  spectrum.re[half] = 0;
  spectrum.im[half] = 0;
  split_inverse_half<lanes, false>(spectrum, half, half_spectrum);
  split_inverse_half<lanes, true>(spectrum, half, half_spectrum);

  // The inverse is the forward transform with real and imaginary parts exchanged, in and out.
  transform<lanes>({half_spectrum.im, half_spectrum.re}, {spectrum.im, spectrum.re}, half);
  const float gain = 1.0f / (scale / static_cast<float>(n));
  from_planes<lanes>(spectrum, gain, window, out, half);
}

template <typename lanes>
constexpr q31_vector_kernel vector_kernel() {
  return {vector_forward<lanes>, vector_inverse<lanes>};
}

}  // namespace q31_vector

#endif  // TM_SE_BF_SPECTRAL_VECTOR_RFFT_H
