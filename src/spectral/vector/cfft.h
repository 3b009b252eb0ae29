// The vector transform, written once for any set of lanes.
//
// `lanes` names the types and operations of one processor: `ints` holds kWidth 32-bit integers,
// `floats` as many floats. `products` holds high words of products in whatever form the processor
// finds them cheapest; they can be added and subtracted, and settle makes `ints` of them.
// Arithmetic, scaling and rounding are those of q31_cfft.cpp and q31_rfft.cpp. Included by one
// source file per processor.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_CFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_CFFT_H

#include <cstdint>

#include "spectral/vector/tables.h"

// Instantiated with lanes of internal linkage only: nothing here may be shared between source files
// that are compiled for different processors.
namespace q31_vector {

// The shorter of the two real lengths.
inline constexpr int32_t kShortLength = 256;

// Real and imaginary parts, each contiguous.
struct q31_planes {
  int32_t *re;
  int32_t *im;
};

template <typename lanes>
struct vector_complex {
  typename lanes::ints re;
  typename lanes::ints im;
};

template <typename lanes>
struct vector_quad {
  vector_complex<lanes> sum;
  vector_complex<lanes> even;
  vector_complex<lanes> odd;
  vector_complex<lanes> odd_third;
};

template <typename lanes>
vector_complex<lanes> add(vector_complex<lanes> x, vector_complex<lanes> y) {
  return {lanes::add(x.re, y.re), lanes::add(x.im, y.im)};
}

template <typename lanes>
vector_complex<lanes> subtract(vector_complex<lanes> x, vector_complex<lanes> y) {
  return {lanes::subtract(x.re, y.re), lanes::subtract(x.im, y.im)};
}

// x * (cos - j sin) / 2 from truncated high words.
template <typename lanes>
[[gnu::always_inline]] inline vector_complex<lanes> turn_half(vector_complex<lanes> x,
                                                              typename lanes::ints cosine,
                                                              typename lanes::ints sine) {
  return {
      lanes::settle(lanes::add(lanes::mul_high(x.re, cosine), lanes::mul_high(x.im, sine))),
      lanes::settle(lanes::subtract(lanes::mul_high(x.im, cosine), lanes::mul_high(x.re, sine)))};
}

// The same for an angle in the first quadrant, whose cosine and sine are not negative.
template <typename lanes>
[[gnu::always_inline]] inline vector_complex<lanes> turn_half_acute(vector_complex<lanes> x,
                                                                    typename lanes::ints cosine,
                                                                    typename lanes::ints sine) {
  return {lanes::settle(lanes::add(lanes::mul_high_by_positive(x.re, cosine),
                                   lanes::mul_high_by_positive(x.im, sine))),
          lanes::settle(lanes::subtract(lanes::mul_high_by_positive(x.im, cosine),
                                        lanes::mul_high_by_positive(x.re, sine)))};
}

// x c rounded, or -x c rounded, for a factor c that is not negative.
template <typename lanes, bool kNegate>
[[gnu::always_inline]] inline typename lanes::products product(typename lanes::ints x,
                                                               typename lanes::ints c) {
  return kNegate ? lanes::mul_high_round_negated(x, c) : lanes::mul_high_round(x, c);
}

template <typename lanes>
[[gnu::always_inline]] inline vector_quad<lanes> butterfly(vector_complex<lanes> a,
                                                           vector_complex<lanes> b,
                                                           vector_complex<lanes> c,
                                                           vector_complex<lanes> d) {
  const vector_complex<lanes> ac = add(a, c);
  const vector_complex<lanes> bd = add(b, d);
  const vector_complex<lanes> p = subtract(a, c);
  const vector_complex<lanes> q = subtract(b, d);
  return {add(ac, bd),
          subtract(ac, bd),
          {lanes::add(p.re, q.im), lanes::subtract(p.im, q.re)},
          {lanes::subtract(p.re, q.im), lanes::add(p.im, q.re)}};
}

// Radix-4 stage over groups of `span` >= 4 kWidth points. The first stage scales its inputs by
// 1/16, a middle stage its outputs by 1/4.
template <typename lanes, bool kFirst>
[[gnu::noinline]] void wide_stage(q31_planes x, int32_t length, int32_t span,
                                  const int32_t *table) {
  using complex = vector_complex<lanes>;
  const int32_t quarter = span / 4;
  const auto load = [&](int32_t i) -> complex {
    const complex value = {lanes::load(x.re + i), lanes::load(x.im + i)};
    return kFirst ? complex{lanes::template shift_down<4>(value.re),
                            lanes::template shift_down<4>(value.im)}
                  : value;
  };
  const auto store = [&](int32_t i, complex value) {
    lanes::store(x.re + i, value.re);
    lanes::store(x.im + i, value.im);
  };
  const auto scale_turned = [](complex value) -> complex {
    return kFirst ? complex{lanes::add(value.re, value.re), lanes::add(value.im, value.im)}
                  : complex{lanes::template shift_down<1>(value.re),
                            lanes::template shift_down<1>(value.im)};
  };
  const auto scale_sum = [](complex value) -> complex {
    return kFirst ? value
                  : complex{lanes::template shift_down<2>(value.re),
                            lanes::template shift_down<2>(value.im)};
  };

  for (int32_t j = 0; j < quarter; j += lanes::kWidth) {
    const auto factor = [&](int32_t plane) { return lanes::load(table + plane * quarter + j); };
    for (int32_t i = j; i < length; i += span) {
      const vector_quad<lanes> y =
          butterfly(load(i), load(i + quarter), load(i + 2 * quarter), load(i + 3 * quarter));
      store(i, scale_sum(y.sum));
      store(i + quarter, scale_turned(turn_half(y.even, factor(2), factor(3))));
      store(i + 2 * quarter, scale_turned(turn_half_acute(y.odd, factor(0), factor(1))));
      store(i + 3 * quarter, scale_turned(turn_half(y.odd_third, factor(4), factor(5))));
    }
  }
}

// Middle stage over groups of 16 points, whose quarters are four values: a vector takes the same
// quarter of as many groups as it holds.
template <typename lanes>
[[gnu::noinline]] void narrow_stage(q31_planes x, int32_t length) {
  constexpr int32_t kSpan = 16;
  constexpr int32_t kQuarter = 4;
  using complex = vector_complex<lanes>;
  const auto load = [&](int32_t i) -> complex {
    return {lanes::load_quads(x.re + i, kSpan), lanes::load_quads(x.im + i, kSpan)};
  };
  const auto store = [&](int32_t i, complex value) {
    lanes::store_quads(x.re + i, kSpan, value.re);
    lanes::store_quads(x.im + i, kSpan, value.im);
  };
  const auto quarter = [](complex value) -> complex {
    return {lanes::template shift_down<2>(value.re), lanes::template shift_down<2>(value.im)};
  };
  const auto halve = [](complex value) -> complex {
    return {lanes::template shift_down<1>(value.re), lanes::template shift_down<1>(value.im)};
  };
  const auto factor = [](int32_t plane) {
    return lanes::load_quads(q31_stage_16.data() + plane * kQuarter, 0);
  };

  for (int32_t i = 0; i < length; i += kSpan * lanes::kWidth / kQuarter) {
    const vector_quad<lanes> y =
        butterfly(load(i), load(i + kQuarter), load(i + 2 * kQuarter), load(i + 3 * kQuarter));
    store(i, quarter(y.sum));
    store(i + kQuarter, halve(turn_half(y.even, factor(2), factor(3))));
    store(i + 2 * kQuarter, halve(turn_half_acute(y.odd, factor(0), factor(1))));
    store(i + 3 * kQuarter, halve(turn_half(y.odd_third, factor(4), factor(5))));
  }
}

// i with its lowest kBits bits in reversed order.
constexpr int32_t reversed(int32_t i, int32_t bits) {
  int32_t result = 0;
  for (int32_t bit = 0; bit < bits; ++bit) {
    result = 2 * result + (i >> bit) % 2;
  }
  return result;
}

// Last stage of kLength points for outputs kk .. kk + kWidth - 1 of each quarter. Group g holds the
// outputs reversed(g) of the four quarters, so loading groups in reversed order gives contiguous
// outputs.
template <typename lanes, int32_t kLength>
[[gnu::always_inline]] inline vector_quad<lanes> last_stage(q31_planes x, int32_t kk) {
  constexpr int32_t kGroups = kLength / 4;
  constexpr int32_t kQuadBits = kLength == 64 ? 2 : 4;
  const int32_t group = reversed(kk / 4, kQuadBits);
  const auto load = [&](const int32_t *plane, int32_t quarter) {
    const int32_t first = 4 * (group + quarter);
    return lanes::load_quads(plane + first, 4 * kGroups / 8);
  };
  const auto columns = [&](const int32_t *plane) {
    return lanes::transpose(load(plane, 0), load(plane, kGroups / 2), load(plane, kGroups / 4),
                            load(plane, 3 * kGroups / 4));
  };
  const auto re = columns(x.re);
  const auto im = columns(x.im);
  return butterfly<lanes>({re.v0, im.v0}, {re.v1, im.v1}, {re.v2, im.v2}, {re.v3, im.v3});
}

template <typename lanes>
void store_planes(q31_planes out, int32_t k, vector_complex<lanes> value) {
  lanes::store(out.re + k, value.re);
  lanes::store(out.im + k, value.im);
}

// Complex transform of 256 points from x, which is overwritten, to natural order in out.
template <typename lanes>
void transform_256(q31_planes x, q31_planes out) {
  constexpr int32_t kQuarter = 64;
  wide_stage<lanes, true>(x, 4 * kQuarter, 256, q31_stage_256.data());
  wide_stage<lanes, false>(x, 4 * kQuarter, 64, q31_stage_64.data());
  narrow_stage<lanes>(x, 4 * kQuarter);
  for (int32_t kk = 0; kk < kQuarter; kk += lanes::kWidth) {
    const vector_quad<lanes> y = last_stage<lanes, 256>(x, kk);
    store_planes(out, kk, y.sum);
    store_planes(out, kk + kQuarter, y.odd);
    store_planes(out, kk + 2 * kQuarter, y.even);
    store_planes(out, kk + 3 * kQuarter, y.odd_third);
  }
}

// Half of the radix-2 stage of 128 points: inputs scaled by 1/4, the difference turned with
// rounding and doubled. The cosine is positive in the first quarter turn and negative in the
// second.
template <typename lanes, bool kUpper>
void radix2_half(q31_planes x) {
  constexpr int32_t kPoints = 64;
  constexpr int32_t kFirst = kUpper ? kPoints / 2 : 0;
  for (int32_t i = kFirst; i < kFirst + kPoints / 2; i += lanes::kWidth) {
    const auto load = [&](int32_t at) -> vector_complex<lanes> {
      return {lanes::template shift_down<2>(lanes::load(x.re + at)),
              lanes::template shift_down<2>(lanes::load(x.im + at))};
    };
    const vector_complex<lanes> a = load(i);
    const vector_complex<lanes> b = load(i + kPoints);
    const vector_complex<lanes> d = subtract(a, b);
    const auto cosine = lanes::load(q31_radix2_128.data() + i);
    const auto sine = lanes::load(q31_radix2_128.data() + kPoints + i);
    const auto re = lanes::settle(
        lanes::add(product<lanes, kUpper>(d.re, cosine), product<lanes, false>(d.im, sine)));
    const auto im = lanes::settle(
        lanes::add(product<lanes, kUpper>(d.im, cosine), product<lanes, true>(d.re, sine)));
    store_planes(x, i, add(a, b));
    store_planes<lanes>(x, i + kPoints, {lanes::add(re, re), lanes::add(im, im)});
  }
}

// Doubles and interleaves the even and odd outputs that the two halves of 64 points give.
template <typename lanes>
void store_zipped(int32_t *out, typename lanes::ints even, typename lanes::ints odd) {
  const auto pair = lanes::zip(lanes::add(even, even), lanes::add(odd, odd));
  lanes::store(out, pair.v0);
  lanes::store(out + lanes::kWidth, pair.v1);
}

// Complex transform of 128 points from x, which is overwritten, to natural order in out.
template <typename lanes>
void transform_128(q31_planes x, q31_planes out) {
  constexpr int32_t kHalf = 64;
  constexpr int32_t kQuarter = 16;
  const q31_planes upper = {x.re + kHalf, x.im + kHalf};
  radix2_half<lanes, false>(x);
  radix2_half<lanes, true>(x);
  wide_stage<lanes, true>(x, 2 * kHalf, kHalf, q31_stage_64.data());
  narrow_stage<lanes>(x, 2 * kHalf);
  for (int32_t kk = 0; kk < kQuarter; kk += lanes::kWidth) {
    const vector_quad<lanes> even = last_stage<lanes, kHalf>(x, kk);
    const vector_quad<lanes> odd = last_stage<lanes, kHalf>(upper, kk);
    const auto store = [&](int32_t k, vector_complex<lanes> e, vector_complex<lanes> o) {
      store_zipped<lanes>(out.re + 2 * k, e.re, o.re);
      store_zipped<lanes>(out.im + 2 * k, e.im, o.im);
    };
    store(kk, even.sum, odd.sum);
    store(kk + kQuarter, even.odd, odd.odd);
    store(kk + 2 * kQuarter, even.even, odd.even);
    store(kk + 3 * kQuarter, even.odd_third, odd.odd_third);
  }
}

template <typename lanes>
void transform(q31_planes x, q31_planes out, int32_t half) {
  if (2 * half == kShortLength) {
    transform_128<lanes>(x, out);
  } else {
    transform_256<lanes>(x, out);
  }
}

}  // namespace q31_vector

#endif  // TM_SE_BF_SPECTRAL_VECTOR_CFFT_H
