// The block-scaled real transform around pairs_cfft.h: conversion to Q31, the split, conversion
// back.
//
// Every step gives the words of its scalar counterpart in fftwrap_fixpoint.cpp or q31_rfft.cpp.
// The split works on a bin and its mirror image together: of their 16 products 12 are distinct.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_PAIRS_RFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_PAIRS_RFFT_H

#include <cfloat>
#include <cstdint>

#include "spectral/q31_format.h"
#include "spectral/vector/kernel.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/pairs_cfft.h"
#include "spectral/vector/tables.h"

namespace q31_pairs {

// Scale of a block that is left to the scalar path.
static constexpr float kNoScale = 0.0f;

// Scale that brings max |in| to kBlockPeakQ31; 1 for a silent block, kNoScale for a block that has
// no finite scale or holds a value that is not finite. Windowed: the same for the block
// product[i] = in[i] window[i], which is also stored.
//
// The magnitudes of floats are in the order of their bit patterns, with infinity and then
// not-a-number at the end: the largest pattern tells of both.
template <typename lanes, bool kWindowed>
float block_scale(const float *in, const float *window, float *product, int32_t count) {
  constexpr int32_t kInfinity = 0x7F800000;
  auto peaks = lanes::all(0);
#pragma GCC unroll 4
  for (int32_t i = 0; i < count; i += lanes::kWidth) {
    auto samples = lanes::load_floats(in + i);
    if constexpr (kWindowed) {
      samples = lanes::multiply_floats(samples, lanes::load_floats(window + i));
      lanes::store_floats(product + i, samples);
    }
    peaks = lanes::larger(lanes::magnitude_pattern(samples), peaks);
  }
  const int32_t pattern = lanes::highest(peaks);
  if (pattern >= kInfinity) {
    return kNoScale;
  }
  const float peak = lanes::float_of(pattern);
  const float scale = peak > 0.0f ? kBlockPeakQ31 / peak : 1.0f;
  return scale > FLT_MAX ? kNoScale : scale;
}

template <int32_t kLength>
[[gnu::always_inline]] static inline const q31_pair_split_table<kLength> &split_table() {
  if constexpr (kLength == kVectorShortLength) {
    return q31_pair_split_256;
  } else {
    return q31_pair_split_512;
  }
}

// Values of bins k and of their mirror images N/2 - k, as pairs of words.
template <typename lanes>
struct mirrored {
  typename lanes::ints at_k;
  typename lanes::ints mirror;
};

// With A of bin k, whose imaginary part is not positive for the bins of the table,
// forward: X[k] = Z[k] A + conj(Z[N/2 - k]) B, with Im B = -Im A; inverse: with conj(A) and
// conj(B). At N/2 - k the factors are the same, but for the sign of Im A.
template <typename lanes, int32_t kLength, bool kInverse>
[[gnu::always_inline]] inline mirrored<lanes> split(mirrored<lanes> x, const int32_t *factors) {
  using ints = typename lanes::ints;
  const auto plus = [](ints p) { return lanes::rounded(p); };
  const auto minus = [](ints p) { return lanes::negated(p); };
  const auto re_a = [=](ints v) { return lanes::template multiply<0>(v, factors); };
  const auto im_a = [=](ints v) { return lanes::template multiply<1>(v, factors); };
  const auto re_b = [=](ints v) { return lanes::template multiply<kLength / 2>(v, factors); };
  const ints re = x.at_k;
  const ints im = lanes::odd_to_even(x.at_k);
  const ints mirror_re = x.mirror;
  const ints mirror_im = lanes::odd_to_even(x.mirror);

  const ints r = im_a(re);
  const ints mirror_r = im_a(mirror_re);
  const ints common =
      kInverse ? lanes::add(plus(r), minus(mirror_r)) : lanes::add(minus(r), plus(mirror_r));
  const ints i = im_a(im);
  const ints mirror_i = im_a(mirror_im);
  const ints positive = lanes::add(plus(i), plus(mirror_i));
  const ints negative = lanes::add(minus(i), minus(mirror_i));

  const ints out_re =
      lanes::add(lanes::add(plus(re_a(re)), plus(re_b(mirror_re))), kInverse ? negative : positive);
  const ints out_mirror_re =
      lanes::add(lanes::add(plus(re_a(mirror_re)), plus(re_b(re))), kInverse ? positive : negative);
  const ints out_im = lanes::add(lanes::add(plus(re_a(im)), minus(re_b(mirror_im))), common);
  const ints out_mirror_im = lanes::add(lanes::add(plus(re_a(mirror_im)), minus(re_b(im))), common);
  // The inverse is the forward transform with real and imaginary parts exchanged.
  if constexpr (kInverse) {
    return {lanes::join(out_im, out_re), lanes::join(out_mirror_im, out_mirror_re)};
  } else {
    return {lanes::join(out_re, out_im), lanes::join(out_mirror_re, out_mirror_im)};
  }
}

// Calls visit(word of bin k, word of the last of the mirror images, factors) for all bins
// 1 .. N/2 - 1. Bin N/4 is its own mirror image and occurs twice.
template <typename lanes, int32_t kLength, typename visitor>
[[gnu::always_inline]] inline void for_mirrored(visitor visit) {
  for (int32_t i = 0; i < kLength / 2; i += lanes::kWidth) {
    visit(2 + i, kLength - lanes::kWidth - i, split_table<kLength>().words + i);
  }
}

// Spectrum of the real block, times gain, from that of the half-length block, pairs of words.
template <typename lanes, int32_t kLength>
void split_forward(const int32_t *z, float gain, float *out) {
  const auto gains = lanes::all_floats(gain);
  for_mirrored<lanes, kLength>([=](int32_t at_k, int32_t mirror, const int32_t *factors) {
    const auto x = split<lanes, kLength, false>(
        {lanes::load(z + at_k), lanes::backwards(lanes::load(z + mirror))}, factors);
    lanes::store_floats(out + at_k, lanes::to_floats(x.at_k, gains));
    lanes::store_floats(out + mirror, lanes::to_floats(lanes::backwards(x.mirror), gains));
  });
  // Both words are means of words of at most 2^29, so their sum cannot overflow.
  out[0] = static_cast<float>((z[0] + z[1]) >> 1) * gain;
  out[1] = 0.0f;
}

// High word of x times the factor 0.5, rounded to nearest.
static inline int32_t quarter(int32_t x) {
  return static_cast<int32_t>((static_cast<int64_t>(x) + 2) >> 2);
}

// Half-length spectrum from the packed spectrum `in`, times scale, with real and imaginary parts
// exchanged.
template <typename lanes, int32_t kLength>
void split_inverse(const float *in, float scale, int32_t *z) {
  const auto scales = lanes::all_floats(scale);
  for_mirrored<lanes, kLength>([=](int32_t at_k, int32_t mirror, const int32_t *factors) {
    const auto x =
        split<lanes, kLength, true>({lanes::to_words(in + at_k, scales),
                                     lanes::backwards(lanes::to_words(in + mirror, scales))},
                                    factors);
    lanes::store(z + at_k, x.at_k);
    lanes::store(z + mirror, lanes::backwards(x.mirror));
  });
  // Bin 0, with A = (0.5, -0.5). Bin N/2, behind the packed spectrum, is 0.
  const int32_t dc = static_cast<int32_t>(scale * in[0]);
  const int32_t nyquist = static_cast<int32_t>(scale * in[1]);
  z[1] = quarter(dc) + quarter(-nyquist);
  z[0] = quarter(nyquist) + quarter(dc);
}

// First stage of the complex transform; input(i) gives kWidth words from word i on.
template <typename lanes, int32_t kPoints, typename source>
[[gnu::always_inline]] inline void first_stage(int32_t *x, source input) {
  constexpr int32_t kPart = 2 * kPoints / kFirstRadix<kPoints>;
  for (int32_t i = 0; i < kPart; i += lanes::kWidth) {
    if constexpr (kPoints == 128) {
      first_radix2<lanes>(input(i), input(i + kPart), i, x);
    } else {
      first_radix4<lanes>(input(i), input(i + kPart), input(i + 2 * kPart), input(i + 3 * kPart), i,
                          x);
    }
  }
}

// Where the last stages work: in the second half of `spectrum`. Its first half receives the complex
// spectrum, and `frame` holds the pairs of the stages before.
template <typename lanes, int32_t kLength>
[[gnu::always_inline]] inline planes rows_of(q31_vector_work work) {
  return {work.spectrum + kLength, work.spectrum + kLength + kRow * lanes::kWidth};
}

template <typename lanes, int32_t kLength>
bool forward_of(q31_vector_work work, const float *in, const float *window, float *product,
                float *out) {
  constexpr int32_t kPoints = kLength / 2;
  const bool windowed = window != nullptr;
  const float *const samples = windowed ? product : in;
  const float scale = windowed ? block_scale<lanes, true>(in, window, product, kLength)
                               : block_scale<lanes, false>(in, nullptr, nullptr, kLength);
  if (scale == kNoScale) {
    return false;
  }

  int32_t *const x = work.frame;
  int32_t *const z = work.spectrum;
  const auto scales = lanes::all_floats(scale);
  first_stage<lanes, kPoints>(x, [=](int32_t i) { return lanes::to_words(samples + i, scales); });
  later_stages<lanes, kPoints, kFirstRadix<kPoints> == 2>(
      x, rows_of<lanes, kLength>(work), [=](int32_t k, complex<lanes> y) {
        const auto pairs = lanes::zip(y.re, y.im);
        lanes::store(z + 2 * k, pairs.v0);
        lanes::store(z + 2 * k + lanes::kWidth, pairs.v1);
      });
  split_forward<lanes, kLength>(z, 1.0f / scale, out);
  return true;
}

template <typename lanes, int32_t kLength>
bool inverse_of(q31_vector_work work, const float *in, const float *window, float *out) {
  constexpr int32_t kPoints = kLength / 2;
  const float scale = block_scale<lanes, false>(in, nullptr, nullptr, kLength);
  if (scale == kNoScale) {
    return false;
  }

  int32_t *const x = work.frame;
  split_inverse<lanes, kLength>(in, scale, x);
  first_stage<lanes, kPoints>(x, [=](int32_t i) { return lanes::load(x + i); });
  // What the radix-2 stage and the split leave to be doubled is part of the gain: no word is large
  // enough to wrap around.
  constexpr float kDoublings = kFirstRadix<kPoints> == 2 ? 4.0f : 2.0f;
  const auto gains = lanes::all_floats(kDoublings * (1.0f / (scale / static_cast<float>(kLength))));
  const planes rows = rows_of<lanes, kLength>(work);
  const auto samples_of = [=](complex<lanes> y) {
    const auto pairs = lanes::zip(y.im, y.re);
    return q31_vector::float_pair<lanes>{lanes::to_floats(pairs.v0, gains),
                                         lanes::to_floats(pairs.v1, gains)};
  };
  if (window == nullptr) {
    later_stages<lanes, kPoints, false>(x, rows, [=](int32_t k, complex<lanes> y) {
      const auto samples = samples_of(y);
      lanes::store_floats(out + 2 * k, samples.v0);
      lanes::store_floats(out + 2 * k + lanes::kWidth, samples.v1);
    });
  } else {
    later_stages<lanes, kPoints, false>(x, rows, [=](int32_t k, complex<lanes> y) {
      const auto samples = samples_of(y);
      const float *const weights = window + 2 * k;
      lanes::store_floats(out + 2 * k,
                          lanes::multiply_floats(samples.v0, lanes::load_floats(weights)));
      lanes::store_floats(
          out + 2 * k + lanes::kWidth,
          lanes::multiply_floats(samples.v1, lanes::load_floats(weights + lanes::kWidth)));
    });
  }
  return true;
}

template <typename lanes>
bool forward(q31_vector_work work, int32_t n, const float *in, const float *window, float *product,
             float *out) {
  return n == kVectorShortLength
             ? forward_of<lanes, kVectorShortLength>(work, in, window, product, out)
             : forward_of<lanes, kVectorLongLength>(work, in, window, product, out);
}

template <typename lanes>
bool inverse(q31_vector_work work, int32_t n, const float *in, const float *window, float *out) {
  return n == kVectorShortLength ? inverse_of<lanes, kVectorShortLength>(work, in, window, out)
                                 : inverse_of<lanes, kVectorLongLength>(work, in, window, out);
}

// The kernel of a set of lanes.
template <typename lanes>
constexpr q31_vector_kernel make_kernel() {
  return {forward<lanes>, inverse<lanes>};
}

}  // namespace q31_pairs

#endif  // TM_SE_BF_SPECTRAL_VECTOR_PAIRS_RFFT_H
