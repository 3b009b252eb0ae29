// The complex transform of 128 or 256 points for multipliers that take the even lanes of a vector:
// those of x86-64 from SSE4.1 on. Written once for any number of lanes.
//
// Arithmetic, scaling and rounding of every stage are those of q31_cfft.cpp. The order of the work
// differs. The first two stages run on complex values as pairs of words, real part first. A real
// part is then where the multiplier takes it, one shift brings all imaginary parts there, and the
// high words of two sums of products join to a vector of pairs without a shuffle.
//
// After two stages the points form rows of 16, one row for each value of the lowest bits of the
// output's number. What is left are transforms of 16 points along the rows. turn_rows collects one
// point of several rows in a vector, so that these transforms need no shuffle, their factors are
// the same for all lanes, and their outputs come in natural order.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_PAIRS_CFFT_H
#define TM_SE_BF_SPECTRAL_VECTOR_PAIRS_CFFT_H

#include <cstdint>

#include "spectral/q31_cfft.h"
#include "spectral/q31_circle.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/tables.h"

namespace q31_pairs {

using q31_vector::complex;
using q31_vector::planes;

// Points of a row, and points that are a quarter of a row apart.
static constexpr int32_t kRow = 16;
static constexpr int32_t kRowQuarter = kRow / 4;

// Radix of the first stage, and rows after two stages, for kPoints points.
template <int32_t kPoints>
static constexpr int32_t kFirstRadix = kPoints == 128 ? 2 : 4;
template <int32_t kPoints>
static constexpr int32_t kRows = kPoints / kRow;

template <typename lanes>
[[gnu::always_inline]] inline typename lanes::ints doubled(typename lanes::ints x) {
  return lanes::add(x, x);
}

// Pairs times (cos - j sin) / 2, as sums of truncated high words. The factors are pairs too,
// kOffset words behind `factors`. Real parts are taken from `re`, imaginary parts from `im`.
template <typename lanes, int32_t kOffset>
[[gnu::always_inline]] inline typename lanes::ints turn_half(typename lanes::ints re,
                                                             typename lanes::ints im,
                                                             const int32_t *factors) {
  constexpr int32_t kCos = kOffset;
  constexpr int32_t kSin = kOffset + 1;
  const auto moved = lanes::odd_to_even(im);
  return lanes::join(lanes::add(lanes::template multiply<kCos>(re, factors),
                                lanes::template multiply<kSin>(moved, factors)),
                     lanes::subtract(lanes::template multiply<kCos>(moved, factors),
                                     lanes::template multiply<kSin>(re, factors)));
}

// Radix-4 stage at point i of a group of 4 `quarter` points. Outputs go to the quarter of their
// number. The first stage of a transform scales its inputs by 1/16, another its outputs by 1/4.
template <typename lanes, int32_t kSpan, bool kFirst>
[[gnu::always_inline]] inline void radix4_butterfly(typename lanes::ints a, typename lanes::ints b,
                                                    typename lanes::ints c, typename lanes::ints d,
                                                    const int32_t *factors, int32_t *out) {
  constexpr int32_t kQuarterWords = 2 * (kSpan / 4);
  if constexpr (kFirst) {
    a = lanes::template shift_down<kFirstStageShift>(a);
    b = lanes::template shift_down<kFirstStageShift>(b);
    c = lanes::template shift_down<kFirstStageShift>(c);
    d = lanes::template shift_down<kFirstStageShift>(d);
  }
  const auto ac = lanes::add(a, c);
  const auto bd = lanes::add(b, d);
  const auto p = lanes::subtract(a, c);
  const auto q = lanes::exchanged(lanes::subtract(b, d));
  const auto sum = lanes::add(ac, bd);
  const auto even = lanes::subtract(ac, bd);
  // p - j(b - d) has its real part in `plus` and its imaginary part in `minus`, p + j(b - d) the
  // other way round.
  const auto plus = lanes::add(p, q);
  const auto minus = lanes::subtract(p, q);

  // turn_half has halved these values already.
  const auto scale_turned = [](typename lanes::ints x) {
    return kFirst ? doubled<lanes>(x) : lanes::template shift_down<kMiddleStageShift - 1>(x);
  };
  lanes::store(out, kFirst ? sum : lanes::template shift_down<kMiddleStageShift>(sum));
  lanes::store(out + kQuarterWords, scale_turned(turn_half<lanes, 0>(plus, minus, factors)));
  lanes::store(out + 2 * kQuarterWords,
               scale_turned(turn_half<lanes, kQuarterWords>(even, even, factors)));
  lanes::store(out + 3 * kQuarterWords,
               scale_turned(turn_half<lanes, 2 * kQuarterWords>(minus, plus, factors)));
}

// Second stage, in place: radix 4 within each group of 64 points.
template <typename lanes, int32_t kPoints>
void second_stage(int32_t *x) {
  constexpr int32_t kSpan = 64;
  constexpr int32_t kQuarterWords = 2 * (kSpan / 4);
  for (int32_t j = 0; j < kQuarterWords; j += lanes::kWidth) {
    for (int32_t i = j; i < 2 * kPoints; i += 2 * kSpan) {
      radix4_butterfly<lanes, kSpan, kPoints == 128>(
          lanes::load(x + i), lanes::load(x + i + kQuarterWords),
          lanes::load(x + i + 2 * kQuarterWords), lanes::load(x + i + 3 * kQuarterWords),
          q31_turns_64.words + j, x + i);
    }
  }
}

// First stage of 256 points at words i of each quarter: radix 4.
template <typename lanes>
[[gnu::always_inline]] inline void first_radix4(typename lanes::ints a, typename lanes::ints b,
                                                typename lanes::ints c, typename lanes::ints d,
                                                int32_t i, int32_t *x) {
  radix4_butterfly<lanes, 256, true>(a, b, c, d, q31_turns_256.words + i, x + i);
}

// First stage of 128 points at words i of each half: radix 2. Inputs are scaled by 1/4, the
// difference is rotated with rounding and doubled.
template <typename lanes>
[[gnu::always_inline]] inline void first_radix2(typename lanes::ints a, typename lanes::ints b,
                                                int32_t i, int32_t *x) {
  constexpr int32_t kHalfWords = 128;
  a = lanes::template shift_down<kRadix2Shift>(a);
  b = lanes::template shift_down<kRadix2Shift>(b);
  const int32_t *const cos_sin = q31_half_turn_128.words + i;
  const auto re = lanes::subtract(a, b);
  const auto im = lanes::odd_to_even(re);
  const auto turned =
      lanes::join(lanes::add(lanes::rounded(lanes::template multiply<0>(re, cos_sin)),
                             lanes::rounded(lanes::template multiply<1>(im, cos_sin))),
                  lanes::add(lanes::rounded(lanes::template multiply<0>(im, cos_sin)),
                             lanes::negated(lanes::template multiply<1>(re, cos_sin))));
  lanes::store(x + i, lanes::add(a, b));
  lanes::store(x + i + kHalfWords, doubled<lanes>(turned));
}

// Word of x where a row starts after two stages: the digits of its number stand in the order of the
// stages, the lower one first.
template <int32_t kPoints>
static constexpr int32_t row_start(int32_t row) {
  constexpr int32_t kRadix = kFirstRadix<kPoints>;
  return 2 * (row % kRadix * (kPoints / kRadix) + row / kRadix * kRow);
}

// Collects kWidth rows from x on: point p of the rows goes to out.re[kWidth p ...] and
// out.im[kWidth p ...].
template <typename lanes, int32_t kPoints>
void turn_rows(const int32_t *x, planes out) {
  constexpr int32_t kOffset = row_start<kPoints>(4);  // from each of four rows to the next four
  for (int32_t p = 0; p < kRow; p += 2) {
    const auto rows = [=](int32_t start) {
      return q31_vector::load_fours<lanes>(x + start + 2 * p, kOffset);
    };
    const auto columns = lanes::transpose(rows(0), rows(row_start<kPoints>(1)),
                                          rows(row_start<kPoints>(2)), rows(row_start<kPoints>(3)));
    const int32_t to = lanes::kWidth * p;
    lanes::store(out.re + to, columns.v0);
    lanes::store(out.im + to, columns.v1);
    lanes::store(out.re + to + lanes::kWidth, columns.v2);
    lanes::store(out.im + to + lanes::kWidth, columns.v3);
  }
}

// High word of x c for the factor c = 2^31 - 1 that stands for 1: (x - 1) / 2 where x is positive,
// x / 2 elsewhere, rounded down.
template <typename lanes>
[[gnu::always_inline]] inline typename lanes::ints half(typename lanes::ints x) {
  return lanes::template shift_down<1>(lanes::less_one_if_positive(x));
}

// High words of x c for a factor that is the same for all lanes: of the even lanes, then of the
// odd.
template <typename lanes>
struct halves {
  typename lanes::ints even;
  typename lanes::ints odd;
};

template <typename lanes>
[[gnu::always_inline]] inline halves<lanes> multiply_all(typename lanes::ints x, int32_t factor) {
  const auto c = lanes::all(factor);
  return {lanes::multiply(x, c), lanes::multiply(lanes::odd_to_even(x), c)};
}

template <typename lanes>
[[gnu::always_inline]] inline typename lanes::ints sum(halves<lanes> x, halves<lanes> y) {
  return lanes::join(lanes::add(x.even, y.even), lanes::add(x.odd, y.odd));
}

template <typename lanes>
[[gnu::always_inline]] inline typename lanes::ints difference(halves<lanes> x, halves<lanes> y) {
  return lanes::join(lanes::subtract(x.even, y.even), lanes::subtract(x.odd, y.odd));
}

// x (cos - j sin) / 2 for an angle of kStep / 16 of a turn, as sums of truncated high words.
template <typename lanes, int32_t kStep>
[[gnu::always_inline]] inline complex<lanes> turn_half_all(complex<lanes> x) {
  constexpr int32_t kCos = q31_down(circle_cos(kStep, kRow));
  constexpr int32_t kSin = q31_down(circle_sin(kStep, kRow));
  if constexpr (kSin == 0) {
    static_assert(kCos == kQ31Max, "the angle is 0");
    return {half<lanes>(x.re), half<lanes>(x.im)};
  } else if constexpr (kCos == 0) {
    static_assert(kSin == kQ31Max, "the angle is a quarter turn");
    return {half<lanes>(x.im), lanes::negative(half<lanes>(x.re))};
  } else if constexpr (kCos == kSin) {
    const auto re = multiply_all<lanes>(x.re, kCos);
    const auto im = multiply_all<lanes>(x.im, kCos);
    return {sum<lanes>(re, im), difference<lanes>(im, re)};
  } else {
    return {sum<lanes>(multiply_all<lanes>(x.re, kCos), multiply_all<lanes>(x.im, kSin)),
            difference<lanes>(multiply_all<lanes>(x.im, kCos), multiply_all<lanes>(x.re, kSin))};
  }
}

// Outputs of a radix-4 butterfly, by their numbers.
template <typename lanes>
struct quad {
  complex<lanes> y0, y1, y2, y3;
};

// Butterfly over four points of a row that are `step` apart, without factors.
template <typename lanes>
[[gnu::always_inline]] inline quad<lanes> butterfly(planes x, int32_t step) {
  const auto at = [step](const int32_t *plane, int32_t i) {
    return lanes::load(plane + lanes::kWidth * step * i);
  };
  struct part {
    typename lanes::ints ac, bd, p, q;
  };
  const auto halves_of = [&](const int32_t *plane) -> part {
    const auto a = at(plane, 0);
    const auto b = at(plane, 1);
    const auto c = at(plane, 2);
    const auto d = at(plane, 3);
    return {lanes::add(a, c), lanes::add(b, d), lanes::subtract(a, c), lanes::subtract(b, d)};
  };
  const part re = halves_of(x.re);
  const part im = halves_of(x.im);
  return {{lanes::add(re.ac, re.bd), lanes::add(im.ac, im.bd)},
          {lanes::add(re.p, im.q), lanes::subtract(im.p, re.q)},
          {lanes::subtract(re.ac, re.bd), lanes::subtract(im.ac, im.bd)},
          {lanes::subtract(re.p, im.q), lanes::add(im.p, re.q)}};
}

// Scales by 2^-kBits, rounded down, and with kDouble by 2 afterwards.
template <int kBits, bool kDouble, typename lanes>
[[gnu::always_inline]] inline typename lanes::ints scaled(typename lanes::ints x) {
  if constexpr (kDouble) {
    return lanes::clear_lowest_bit(scaled<kBits - 1, false, lanes>(x));
  } else if constexpr (kBits == 0) {
    return x;
  } else {
    return lanes::template shift_down<kBits>(x);
  }
}

// Third stage at point kPoint of the quarter rows, in place. With kDouble the outputs are doubled,
// as the radix-2 stage needs it in the end: that is cheaper here than after the last stage.
template <typename lanes, int32_t kPoint, bool kDouble>
[[gnu::always_inline]] inline void third_butterfly(planes row) {
  constexpr int32_t kStart = lanes::kWidth * kPoint;
  constexpr int32_t kQuarter = lanes::kWidth * kRowQuarter;
  const planes x = {row.re + kStart, row.im + kStart};
  const quad<lanes> y = butterfly<lanes>(x, kRowQuarter);
  lanes::store(x.re, scaled<kMiddleStageShift, kDouble, lanes>(y.y0.re));
  lanes::store(x.im, scaled<kMiddleStageShift, kDouble, lanes>(y.y0.im));
  // turn_half_all halves these values.
  const auto put = [&](int32_t number, complex<lanes> turned) {
    constexpr int kBits = kMiddleStageShift - 1;
    lanes::store(x.re + number * kQuarter, scaled<kBits, kDouble, lanes>(turned.re));
    lanes::store(x.im + number * kQuarter, scaled<kBits, kDouble, lanes>(turned.im));
  };
  put(1, turn_half_all<lanes, kPoint>(y.y1));
  put(2, turn_half_all<lanes, 2 * kPoint>(y.y2));
  put(3, turn_half_all<lanes, 3 * kPoint>(y.y3));
}

// Not inlined: one copy serves both directions.
template <typename lanes, bool kDouble>
[[gnu::noinline]] void third_stage(planes row) {
  third_butterfly<lanes, 0, kDouble>(row);
  third_butterfly<lanes, 1, kDouble>(row);
  third_butterfly<lanes, 2, kDouble>(row);
  third_butterfly<lanes, 3, kDouble>(row);
}

// All stages after the first: of x, pairs, to the outputs. put(k, values) takes outputs
// k .. k + kWidth - 1. `rows` is work space for 16 values of each lane.
template <typename lanes, int32_t kPoints, bool kDouble, typename output>
[[gnu::always_inline]] inline void later_stages(int32_t *x, planes rows, output put) {
  second_stage<lanes, kPoints>(x);
  for (int32_t first = 0; first < kRows<kPoints>; first += lanes::kWidth) {
    turn_rows<lanes, kPoints>(x + row_start<kPoints>(first), rows);
    third_stage<lanes, kDouble>(rows);
    for (int32_t i = 0; i < kRowQuarter; ++i) {
      const int32_t start = lanes::kWidth * kRowQuarter * i;
      const quad<lanes> y = butterfly<lanes>({rows.re + start, rows.im + start}, 1);
      const int32_t k = first + kRows<kPoints> * i;
      put(k, y.y0);
      put(k + kPoints / 4, y.y1);
      put(k + kPoints / 2, y.y2);
      put(k + 3 * kPoints / 4, y.y3);
    }
  }
}

}  // namespace q31_pairs

#endif  // TM_SE_BF_SPECTRAL_VECTOR_PAIRS_CFFT_H
