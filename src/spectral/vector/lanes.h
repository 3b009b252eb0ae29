// What the vector transform needs from a processor, and what all processors share.
//
// A set of lanes is a record of types and static functions, one record per processor:
//   ints, floats          vectors of kWidth 32-bit integers, and of kWidth floats
//   kCompact              whether lengths and directions share the code of the stages, as where the
//                         library holds more than one kernel. Else each has its own, and the first
//                         stage of the forward transform reads the samples itself.
//   load, store           kWidth integers
//   reversed              a vector's integers in reversed order
//   first                 the first of them
//   load_fours            four integers at p and four at p + offset; only sets of eight lanes have
//                         it
//   add, subtract         modulo 2^32; also of products
//   in_lane_order         makes `ints` of a sum of products, which may be a type of its own: it may
//                         be in the order in which the multiplier leaves products
//   shift_down            by kBits, toward minus infinity
//   mul_high              high word of x y, truncated
//   mul_high_by_positive  the same for a factor that is not negative, which is cheaper where the
//                         multiplier is unsigned
//   mul_high_round        high word of x c, rounded to nearest; c is not negative
//   mul_high_round_negated  the same of -x c
//   transpose             of 4 x 4 integers, the rows in four vectors; eight lanes hold two such
//                         matrices side by side
//   store_zipped          x[0], y[0], x[1], y[1], ...
//   load_complex          2 kWidth floats times a scale, truncated to integers: even ones are real
//                         parts, odd ones imaginary parts; not-a-number becomes 0
//   store_pairs           x[0], y[0], x[1], y[1], ... as floats times a gain, and times a window
//                         unless that is null
//   store_zipped_pairs    the same of even.re[0], even.im[0], odd.re[0], odd.im[0], even.re[1], ...
//   load_floats, store_floats, multiply
//   no_peak               zeros, the start of a search for the peak
//   larger_magnitude      that search with the magnitudes of x
//   larger_product        the same with a product of x, which counts as lost when it is 0 and x not
//   highest               the peak found, a number beyond all peaks when a product was lost
//   keeps_products        whether no product of these weights and of words times gain can be lost
//
// Vectors of 32-bit Arm replace denormal numbers by zeros, and all not-a-numbers by one. Only there
// can products get lost, and the peak is infinite or not a number when one of the samples is.
// The other lanes pass over not-a-numbers.
//
// The templates of pairs_cfft.h and pairs_rfft.h need other operations. Their values are pairs of
// words or of floats, real part first, and products are 64 bits wide, in pairs of lanes:
//   multiply              signed products of the even lanes; with words in memory, kOffset behind
//                         the pointer
//   rounded, negated      a product, or its negative, plus half a unit of the high word
//   odd_to_even           moves the odd lanes to the even ones
//   join                  high words of two vectors of products: of the first in the even lanes, of
//                         the second in the odd ones
//   exchanged             real and imaginary parts exchanged
//   backwards             pairs in reversed order
//   zip                   x[0], y[0], x[1], y[1], ...
//   clear_lowest_bit, less_one_if_positive, negative
//   all, all_floats       the same value in all lanes
//   to_words              floats in memory times a scale, truncated to integers
//   to_floats             integers as floats, times a gain
//   magnitude_pattern     bit patterns of the magnitudes of floats
//   larger                the larger of each two integers
//   highest               the largest of a vector's integers
//   float_of              the float of a bit pattern
//
// The lanes are types of one source each, and every function of these headers is a template over
// them, or static. The linker therefore never takes a function that was compiled for AVX2 into code
// that must run on any processor.
//
// Functions are always_inline where the compiler would call them otherwise. A call passes vectors
// through memory, which would cost 2 to 6 % of a frame for each of them.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_LANES_H
#define TM_SE_BF_SPECTRAL_VECTOR_LANES_H

#include <cstdint>

namespace q31_vector {

// Complex values in memory: all real and all imaginary parts, each contiguous.
struct planes {
  int32_t *re;
  int32_t *im;
};

// Complex values as pairs of floats (real, imaginary), which become words when times scale.
struct samples {
  const float *pairs;
  float scale;
};

template <typename lanes>
struct complex {
  typename lanes::ints re;
  typename lanes::ints im;
};

// Result of transpose: v0 to v3 are the columns of the 4 x 4 values.
template <typename lanes>
struct columns {
  typename lanes::ints v0, v1, v2, v3;
};

// 2 kWidth consecutive floats.
template <typename lanes>
struct float_pair {
  typename lanes::floats v0, v1;
};

// Four integers from p, and with eight lanes four more from p + offset.
template <typename lanes>
typename lanes::ints load_fours(const int32_t *p, int32_t offset) {
  if constexpr (lanes::kWidth == 4) {
    return lanes::load(p);
  } else {
    return lanes::load_fours(p, offset);
  }
}

}  // namespace q31_vector

#endif  // TM_SE_BF_SPECTRAL_VECTOR_LANES_H
