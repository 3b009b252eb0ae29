// The complex transform of 128 or 256 points on planes, written once for any set of lanes.
//
// Arithmetic, scaling and rounding of every stage are those of q31_cfft.cpp. The bit reversal needs
// no pass of its own: the last stage loads its groups in bit-reversed order.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_CFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_CFFT_H

#include <cstdint>

#include "spectral/q31_cfft.h"
#include "spectral/vector/kernel.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/tables.h"

namespace q31_vector {

template <typename lanes>
complex<lanes> load(planes x, int32_t i) {
  return {lanes::load(x.re + i), lanes::load(x.im + i)};
}

// The words of samples: truncated to integers, not-a-number as 0.
template <typename lanes>
complex<lanes> load(samples x, int32_t i) {
  return lanes::load_complex(x.pairs + 2 * i, x.scale);
}

template <typename lanes>
void store(planes x, int32_t i, complex<lanes> value) {
  lanes::store(x.re + i, value.re);
  lanes::store(x.im + i, value.im);
}

// Outputs i .. i + kWidth - 1 of a transform.
template <typename lanes>
void put(planes to, int32_t i, complex<lanes> x) {
  store(to, i, x);
}

// 2 kWidth outputs from i on, even and odd ones apart, doubled.
template <typename lanes>
void put_doubled(planes to, int32_t i, complex<lanes> even, complex<lanes> odd) {
  const auto twice = [](typename lanes::ints x) { return lanes::add(x, x); };
  lanes::store_zipped(to.re + i, twice(even.re), twice(odd.re));
  lanes::store_zipped(to.im + i, twice(even.im), twice(odd.im));
}

template <typename lanes>
complex<lanes> add(complex<lanes> x, complex<lanes> y) {
  return {lanes::add(x.re, y.re), lanes::add(x.im, y.im)};
}

template <typename lanes>
complex<lanes> subtract(complex<lanes> x, complex<lanes> y) {
  return {lanes::subtract(x.re, y.re), lanes::subtract(x.im, y.im)};
}

template <int kBits, typename lanes>
complex<lanes> shift_down(complex<lanes> x) {
  return {lanes::template shift_down<kBits>(x.re), lanes::template shift_down<kBits>(x.im)};
}

// x * (cos - j sin) / 2, as sums of truncated high words.
template <typename lanes>
[[gnu::always_inline]] inline complex<lanes> turn_half(complex<lanes> x,
                                                       typename lanes::ints cosine,
                                                       typename lanes::ints sine) {
  const auto re = lanes::add(lanes::mul_high(x.re, cosine), lanes::mul_high(x.im, sine));
  const auto im = lanes::subtract(lanes::mul_high(x.im, cosine), lanes::mul_high(x.re, sine));
  return {lanes::in_lane_order(re), lanes::in_lane_order(im)};
}

// The same for an angle in the first quadrant, whose cosine and sine are not negative.
template <typename lanes>
[[gnu::always_inline]] inline complex<lanes> turn_half_acute(complex<lanes> x,
                                                             typename lanes::ints cosine,
                                                             typename lanes::ints sine) {
  const auto re = lanes::add(lanes::mul_high_by_positive(x.re, cosine),
                             lanes::mul_high_by_positive(x.im, sine));
  const auto im = lanes::subtract(lanes::mul_high_by_positive(x.im, cosine),
                                  lanes::mul_high_by_positive(x.re, sine));
  return {lanes::in_lane_order(re), lanes::in_lane_order(im)};
}

// Sign of a product in a sum. Rounding is not symmetric, so the sign is applied before it.
constexpr bool kPlus = false;
constexpr bool kMinus = true;

// x c or -x c, rounded, for a factor c that is not negative.
template <typename lanes, bool kNegate>
[[gnu::always_inline]] inline auto product(typename lanes::ints x, typename lanes::ints c) {
  if constexpr (kNegate) {
    return lanes::mul_high_round_negated(x, c);
  } else {
    return lanes::mul_high_round(x, c);
  }
}

// The four outputs of a radix-4 butterfly before their twiddle factors, as in q31_cfft.cpp.
template <typename lanes>
struct quad {
  complex<lanes> sum;
  complex<lanes> even;
  complex<lanes> odd;
  complex<lanes> odd_third;
};

template <typename lanes>
quad<lanes> butterfly(complex<lanes> a, complex<lanes> b, complex<lanes> c, complex<lanes> d) {
  const complex<lanes> ac = add(a, c);
  const complex<lanes> bd = add(b, d);
  const complex<lanes> p = subtract(a, c);
  const complex<lanes> q = subtract(b, d);
  return {add(ac, bd),
          subtract(ac, bd),
          {lanes::add(p.re, q.im), lanes::subtract(p.im, q.re)},
          {lanes::subtract(p.re, q.im), lanes::add(p.im, q.re)}};
}

// Radix-4 stage over groups of `span` >= 4 kWidth points, from `in` to x, which may be the same.
// The first stage scales its inputs by 1/16, a middle stage its outputs by 1/4.
template <typename lanes, bool kFirst, typename input>
[[gnu::always_inline]] inline void inline_wide_stage(input in, planes x, int32_t length,
                                                     int32_t span, const int32_t *table) {
  const int32_t quarter = span / 4;
  const auto load_input = [&](int32_t i) {
    const complex<lanes> value = load<lanes>(in, i);
    return kFirst ? shift_down<kFirstStageShift>(value) : value;
  };
  const auto scale_sum = [](complex<lanes> value) {
    return kFirst ? value : shift_down<kMiddleStageShift>(value);
  };
  // turn_half has halved these values already.
  const auto scale_turned = [](complex<lanes> value) {
    return kFirst ? add(value, value) : shift_down<kMiddleStageShift - 1>(value);
  };

  for (int32_t j = 0; j < quarter; j += lanes::kWidth) {
    const auto load_factor = [&](int32_t plane) {
      return lanes::load(table + plane * quarter + j);
    };
    // Kept in registers where there are enough of them: the compiler cannot know that no store
    // changes the table.
    const typename lanes::ints kept[] = {load_factor(0), load_factor(1), load_factor(2),
                                         load_factor(3), load_factor(4), load_factor(5)};
    const auto factor = [&](int32_t plane) {
      return lanes::kCompact ? load_factor(plane) : kept[plane];
    };
    for (int32_t i = j; i < length; i += span) {
      const quad<lanes> y = butterfly(load_input(i), load_input(i + quarter),
                                      load_input(i + 2 * quarter), load_input(i + 3 * quarter));
      store(x, i, scale_sum(y.sum));
      store(x, i + quarter, scale_turned(turn_half(y.even, factor(2), factor(3))));
      store(x, i + 2 * quarter, scale_turned(turn_half_acute(y.odd, factor(0), factor(1))));
      store(x, i + 3 * quarter, scale_turned(turn_half(y.odd_third, factor(4), factor(5))));
    }
  }
}

// The same as one function for all lengths, and as one for each.
template <typename lanes, bool kFirst, typename input>
void shared_wide_stage(input in, planes x, int32_t length, int32_t span, const int32_t *table) {
  inline_wide_stage<lanes, kFirst>(in, x, length, span, table);
}

template <typename lanes, bool kFirst, int32_t kLength, int32_t kSpan, typename input>
void wide_stage(input in, planes x, const int32_t *table) {
  if constexpr (lanes::kCompact) {
    shared_wide_stage<lanes, kFirst>(in, x, kLength, kSpan, table);
  } else {
    inline_wide_stage<lanes, kFirst>(in, x, kLength, kSpan, table);
  }
}

// Middle stage over groups of 16 points. A quarter of a group is four values: a vector of eight
// takes the same quarter of two groups.
template <typename lanes>
void narrow_stage(planes x, int32_t length) {
  constexpr int32_t kSpan = 16;
  constexpr int32_t kQuarter = 4;
  const auto load_groups = [&](int32_t i) -> complex<lanes> {
    return {load_fours<lanes>(x.re + i, kSpan), load_fours<lanes>(x.im + i, kSpan)};
  };
  const auto store_groups = [&](int32_t i, complex<lanes> value) {
    lanes::store(x.re + i, value.re);
    lanes::store(x.im + i, value.im);
  };
  const auto scale_turned = [](complex<lanes> value) {
    return shift_down<kMiddleStageShift - 1>(value);
  };
  // Every group takes the same factors.
  const auto factor = [](int32_t plane) {
    return load_fours<lanes>(q31_stage_16.planes + plane * kQuarter, 0);
  };

  for (int32_t i = 0; i < length; i += kSpan * lanes::kWidth / kQuarter) {
    const quad<lanes> y = butterfly(load_groups(i), load_groups(i + kQuarter),
                                    load_groups(i + 2 * kQuarter), load_groups(i + 3 * kQuarter));
    store_groups(i, shift_down<kMiddleStageShift>(y.sum));
    store_groups(i + kQuarter, scale_turned(turn_half(y.even, factor(2), factor(3))));
    store_groups(i + 2 * kQuarter, scale_turned(turn_half_acute(y.odd, factor(0), factor(1))));
    store_groups(i + 3 * kQuarter, scale_turned(turn_half(y.odd_third, factor(4), factor(5))));
  }
}

// i with its lowest `bits` bits in reversed order.
static constexpr int32_t reversed(int32_t i, int32_t bits) {
  int32_t result = 0;
  for (int32_t bit = 0; bit < bits; ++bit) {
    result = 2 * result + (i >> bit) % 2;
  }
  return result;
}

// Last stage of kLength points, over groups of four. Returns outputs k .. k + kWidth - 1 of each
// quarter of the spectrum, in natural order.
//
// Output k of all four quarters comes from one group, whose number is k with its bits reversed.
// Outputs k, k + 1, k + 2 and k + 3 differ in the lowest two bits of k only. Reversed, these are
// the highest bits, so the four groups are a base, and the base plus 1/2, 1/4 and 3/4 of kGroups. A
// vector of eight also holds the next four outputs; their groups are 1/8 of kGroups further on.
template <typename lanes, int32_t kLength>
[[gnu::always_inline]] inline quad<lanes> last_stage(planes x, int32_t k) {
  constexpr int32_t kGroups = kLength / 4;
  constexpr int32_t kBits = kLength == 64 ? 2 : 4;  // of k without the lowest two
  const int32_t base = reversed(k / 4, kBits);
  const auto load_column = [&](const int32_t *plane) {
    const auto row = [&](int32_t groups) {
      return load_fours<lanes>(plane + 4 * (base + groups), 4 * (kGroups / 8));
    };
    return lanes::transpose(row(0), row(kGroups / 2), row(kGroups / 4), row(3 * kGroups / 4));
  };
  const auto re = load_column(x.re);
  const auto im = load_column(x.im);
  return butterfly<lanes>({re.v0, im.v0}, {re.v1, im.v1}, {re.v2, im.v2}, {re.v3, im.v3});
}

// Half of the radix-2 stage of 128 points: inputs scaled by 1/4, the difference rotated with
// rounding and doubled. The cosine is positive in the first quarter turn and negative in the
// second.
template <typename lanes, bool kSecondQuarter, typename input>
void radix2_half(input in, planes x) {
  constexpr int32_t kPoints = 64;
  constexpr int32_t kFirst = kSecondQuarter ? kPoints / 2 : 0;
  constexpr bool kPlusCosine = kSecondQuarter ? kMinus : kPlus;
  for (int32_t i = kFirst; i < kFirst + kPoints / 2; i += lanes::kWidth) {
    const complex<lanes> a = shift_down<kRadix2Shift>(load<lanes>(in, i));
    const complex<lanes> b = shift_down<kRadix2Shift>(load<lanes>(in, i + kPoints));
    const complex<lanes> d = subtract(a, b);
    const auto cosine = lanes::load(q31_radix2_128.cosine + i);
    const auto sine = lanes::load(q31_radix2_128.sine + i);
    const auto re =
        lanes::add(product<lanes, kPlusCosine>(d.re, cosine), product<lanes, kPlus>(d.im, sine));
    const auto im =
        lanes::add(product<lanes, kPlusCosine>(d.im, cosine), product<lanes, kMinus>(d.re, sine));
    const complex<lanes> turned = {lanes::in_lane_order(re), lanes::in_lane_order(im)};
    store(x, i, add(a, b));
    store(x, i + kPoints, add(turned, turned));
  }
}

// The stages of 128 or 256 points, from `in` to x, which may be the same; less the last stage.
template <typename lanes, typename input>
void stages_128(input in, planes x) {
  constexpr int32_t kLength = 128;
  radix2_half<lanes, false>(in, x);
  radix2_half<lanes, true>(in, x);
  wide_stage<lanes, true, kLength, kLength / 2>(x, x, q31_stage_64.planes);
  narrow_stage<lanes>(x, kLength);
}

template <typename lanes, typename input>
void stages_256(input in, planes x) {
  constexpr int32_t kLength = 256;
  wide_stage<lanes, true, kLength, kLength>(in, x, q31_stage_256.planes);
  wide_stage<lanes, false, kLength, kLength / 4>(x, x, q31_stage_64.planes);
  narrow_stage<lanes>(x, kLength);
}

// The last stage, from x to `out`, in natural order. That of 128 points also doubles; its two
// halves give the even and the odd outputs.
template <typename lanes, typename output>
void finish_128(planes x, output out) {
  constexpr int32_t kHalf = 64;
  constexpr int32_t kQuarter = kHalf / 4;
  const planes upper = {x.re + kHalf, x.im + kHalf};
  for (int32_t k = 0; k < kQuarter; k += lanes::kWidth) {
    const quad<lanes> even = last_stage<lanes, kHalf>(x, k);
    const quad<lanes> odd = last_stage<lanes, kHalf>(upper, k);
    put_doubled(out, 2 * k, even.sum, odd.sum);
    put_doubled(out, 2 * (k + kQuarter), even.odd, odd.odd);
    put_doubled(out, 2 * (k + 2 * kQuarter), even.even, odd.even);
    put_doubled(out, 2 * (k + 3 * kQuarter), even.odd_third, odd.odd_third);
  }
}

template <typename lanes, typename output>
void finish_256(planes x, output out) {
  constexpr int32_t kLength = 256;
  constexpr int32_t kQuarter = kLength / 4;
  for (int32_t k = 0; k < kQuarter; k += lanes::kWidth) {
    const quad<lanes> y = last_stage<lanes, kLength>(x, k);
    put(out, k, y.sum);
    put(out, k + kQuarter, y.odd);
    put(out, k + 2 * kQuarter, y.even);
    put(out, k + 3 * kQuarter, y.odd_third);
  }
}

// The complex transform of 128 or 256 points, from `in` to `out`, with x as work space, which may
// be `in`.
template <typename lanes, typename input, typename output>
void complex_transform(input in, planes x, output out, int32_t points) {
  if (2 * points == kVectorShortLength) {
    stages_128<lanes>(in, x);
    finish_128<lanes>(x, out);
  } else {
    stages_256<lanes>(in, x);
    finish_256<lanes>(x, out);
  }
}

}  // namespace q31_vector

#endif  // TM_SE_BF_SPECTRAL_VECTOR_CFFT_H
