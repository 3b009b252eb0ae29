// Lanes of the x86-64 baseline: four values a vector.
#include "spectral/vector/kernel.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include "spectral/vector/rfft.h"

namespace {

struct sse2_lanes {
  using ints = __m128i;
  using floats = __m128;
  static constexpr int32_t kWidth = 4;

  using products = __m128i;
  struct pair {
    ints v0, v1;
  };
  struct float_pair {
    floats v0, v1;
  };
  struct quad {
    ints v0, v1, v2, v3;
  };

  static ints load(const int32_t *p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
  }
  static void store(int32_t *p, ints x) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), x);
  }
  static ints load_quads(const int32_t *p, int32_t) {
    return load(p);
  }
  static void store_quads(int32_t *p, int32_t, ints x) {
    store(p, x);
  }
  // Values p[0], p[-1], p[-2], p[-3].
  static ints load_reversed(const int32_t *p) {
    return _mm_shuffle_epi32(load(p - (kWidth - 1)), _MM_SHUFFLE(0, 1, 2, 3));
  }

  static ints add(ints x, ints y) {
    return _mm_add_epi32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return _mm_sub_epi32(x, y);
  }
  static ints settle(products x) {
    return x;
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return _mm_srai_epi32(x, kBits);
  }

  // The multiplier is unsigned: what it counts too much for negative factors is (x<0 ? y : 0) +
  // (y<0 ? x : 0) in the high word.
  static ints surplus(ints x, ints y) {
    return add(_mm_and_si128(_mm_srai_epi32(x, 31), y), _mm_and_si128(_mm_srai_epi32(y, 31), x));
  }
  static ints high_words(ints even, ints odd) {
    const __m128 mixed =
        _mm_shuffle_ps(_mm_castsi128_ps(even), _mm_castsi128_ps(odd), _MM_SHUFFLE(3, 1, 3, 1));
    return _mm_shuffle_epi32(_mm_castps_si128(mixed), _MM_SHUFFLE(3, 1, 2, 0));
  }
  static ints even_product(ints x, ints y) {
    return _mm_mul_epu32(x, y);
  }
  static ints odd_product(ints x, ints y) {
    return _mm_mul_epu32(_mm_srli_epi64(x, 32), _mm_srli_epi64(y, 32));
  }
  static ints half() {
    return _mm_set1_epi64x(int64_t{1} << 31);
  }
  static ints surplus_by_positive(ints x, ints c) {
    return _mm_and_si128(_mm_srai_epi32(x, 31), c);
  }
  static products mul_high(ints x, ints y) {
    return subtract(high_words(even_product(x, y), odd_product(x, y)), surplus(x, y));
  }
  static products mul_high_by_positive(ints x, ints c) {
    return subtract(high_words(even_product(x, c), odd_product(x, c)), surplus_by_positive(x, c));
  }
  static products mul_high_round(ints x, ints c) {
    const ints even = _mm_add_epi64(half(), even_product(x, c));
    const ints odd = _mm_add_epi64(half(), odd_product(x, c));
    return subtract(high_words(even, odd), surplus_by_positive(x, c));
  }
  static products mul_high_round_negated(ints x, ints c) {
    const ints even = _mm_sub_epi64(half(), even_product(x, c));
    const ints odd = _mm_sub_epi64(half(), odd_product(x, c));
    return add(high_words(even, odd), surplus_by_positive(x, c));
  }

  static quad transpose(ints a, ints b, ints c, ints d) {
    const ints ab_low = _mm_unpacklo_epi32(a, b);
    const ints ab_high = _mm_unpackhi_epi32(a, b);
    const ints cd_low = _mm_unpacklo_epi32(c, d);
    const ints cd_high = _mm_unpackhi_epi32(c, d);
    return {_mm_unpacklo_epi64(ab_low, cd_low), _mm_unpackhi_epi64(ab_low, cd_low),
            _mm_unpacklo_epi64(ab_high, cd_high), _mm_unpackhi_epi64(ab_high, cd_high)};
  }
  static pair zip(ints x, ints y) {
    return {_mm_unpacklo_epi32(x, y), _mm_unpackhi_epi32(x, y)};
  }

  static floats load_floats(const float *p) {
    return _mm_loadu_ps(p);
  }
  static void store_floats(float *p, floats x) {
    _mm_storeu_ps(p, x);
  }
  static floats multiply(floats x, floats y) {
    return _mm_mul_ps(x, y);
  }
  static floats no_peak() {
    return _mm_setzero_ps();
  }
  // Keeps the peak where the magnitude is not a number: the second operand wins then.
  static floats larger_magnitude(floats x, floats peaks) {
    return _mm_max_ps(_mm_andnot_ps(_mm_set1_ps(-0.0f), x), peaks);
  }
  static float highest(floats x) {
    const floats pairs = _mm_max_ps(x, _mm_movehl_ps(x, x));
    return _mm_cvtss_f32(_mm_max_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
  }
  // Truncated; not-a-number becomes 0.
  static ints to_words(floats x) {
    return _mm_and_si128(_mm_cvttps_epi32(x), _mm_castps_si128(_mm_cmpord_ps(x, x)));
  }
  static pair load_pairs(const float *in, float scale) {
    const floats factor = _mm_set1_ps(scale);
    const floats low = _mm_loadu_ps(in);
    const floats high = _mm_loadu_ps(in + kWidth);
    const floats even = _mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0));
    const floats odd = _mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1));
    return {to_words(_mm_mul_ps(factor, even)), to_words(_mm_mul_ps(factor, odd))};
  }
  static float_pair interleave(ints even, ints odd, float gain) {
    const floats factor = _mm_set1_ps(gain);
    const floats first = _mm_mul_ps(_mm_cvtepi32_ps(even), factor);
    const floats second = _mm_mul_ps(_mm_cvtepi32_ps(odd), factor);
    return {_mm_unpacklo_ps(first, second), _mm_unpackhi_ps(first, second)};
  }
};

}  // namespace

const q31_vector_kernel q31_vector_sse2 = q31_vector::vector_kernel<sse2_lanes>();

#else

const q31_vector_kernel q31_vector_sse2 = {};

#endif
