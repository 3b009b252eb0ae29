// Lanes of x86-64 processors with AVX2: eight values a vector. Compiled for AVX2, called only where
// it exists.
#include "spectral/vector/kernel.h"

#if defined(__AVX2__)

#include <immintrin.h>

#include "spectral/q31_format.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/rfft.h"

namespace {

struct avx2_lanes {
  using ints = __m256i;
  using floats = __m256;
  // In lane order 0, 2, 1, 3 within each half: the multiplier takes the even or the odd lanes, and
  // one shuffle collects the high words of both.
  struct products {
    ints words;
  };
  using complex = q31_vector::complex<avx2_lanes>;
  using columns = q31_vector::columns<avx2_lanes>;
  static constexpr int32_t kWidth = 8;
  static constexpr bool kCompact = true;

  // Most instructions work on the two 128-bit halves of a vector separately. These selectors
  // combine the low halves of two vectors, or the high halves.
  static constexpr int kLowHalves = 0x20;
  static constexpr int kHighHalves = 0x31;

  static ints load(const int32_t *p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
  }
  static void store(int32_t *p, ints x) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), x);
  }
  static ints load_fours(const int32_t *p, int32_t offset) {
    return _mm256_loadu2_m128i(reinterpret_cast<const __m128i *>(p + offset),
                               reinterpret_cast<const __m128i *>(p));
  }
  static void store_fours(int32_t *p, int32_t offset, ints x) {
    _mm256_storeu2_m128i(reinterpret_cast<__m128i *>(p + offset), reinterpret_cast<__m128i *>(p),
                         x);
  }
  static ints reversed(ints x) {
    return _mm256_permutevar8x32_epi32(x, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0));
  }
  static int32_t first(ints x) {
    return _mm256_cvtsi256_si32(x);
  }

  static ints add(ints x, ints y) {
    return _mm256_add_epi32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return _mm256_sub_epi32(x, y);
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return _mm256_srai_epi32(x, kBits);
  }

  static products add(products x, products y) {
    return {add(x.words, y.words)};
  }
  static products subtract(products x, products y) {
    return {subtract(x.words, y.words)};
  }
  static ints in_lane_order(products x) {
    return _mm256_shuffle_epi32(x.words, _MM_SHUFFLE(3, 1, 2, 0));
  }
  static products high_words(ints even, ints odd) {
    const floats words = _mm256_shuffle_ps(_mm256_castsi256_ps(even), _mm256_castsi256_ps(odd),
                                           _MM_SHUFFLE(3, 1, 3, 1));
    return {_mm256_castps_si256(words)};
  }
  static ints even_product(ints x, ints y) {
    return _mm256_mul_epi32(x, y);
  }
  static ints odd_product(ints x, ints y) {
    return _mm256_mul_epi32(_mm256_srli_epi64(x, 32), _mm256_srli_epi64(y, 32));
  }
  static ints round_half() {
    return _mm256_set1_epi64x(kQ31RoundHalf);
  }
  static products mul_high(ints x, ints y) {
    return high_words(even_product(x, y), odd_product(x, y));
  }
  static products mul_high_by_positive(ints x, ints c) {
    return mul_high(x, c);
  }
  static products mul_high_round(ints x, ints y) {
    return high_words(_mm256_add_epi64(round_half(), even_product(x, y)),
                      _mm256_add_epi64(round_half(), odd_product(x, y)));
  }
  static products mul_high_round_negated(ints x, ints y) {
    return high_words(_mm256_sub_epi64(round_half(), even_product(x, y)),
                      _mm256_sub_epi64(round_half(), odd_product(x, y)));
  }

  static columns transpose(ints a, ints b, ints c, ints d) {
    const ints ab_low = _mm256_unpacklo_epi32(a, b);
    const ints ab_high = _mm256_unpackhi_epi32(a, b);
    const ints cd_low = _mm256_unpacklo_epi32(c, d);
    const ints cd_high = _mm256_unpackhi_epi32(c, d);
    return {_mm256_unpacklo_epi64(ab_low, cd_low), _mm256_unpackhi_epi64(ab_low, cd_low),
            _mm256_unpacklo_epi64(ab_high, cd_high), _mm256_unpackhi_epi64(ab_high, cd_high)};
  }
  struct zipped {
    ints v0, v1;
  };
  static zipped zip(ints x, ints y) {
    const ints low = _mm256_unpacklo_epi32(x, y);
    const ints high = _mm256_unpackhi_epi32(x, y);
    return {_mm256_permute2x128_si256(low, high, kLowHalves),
            _mm256_permute2x128_si256(low, high, kHighHalves)};
  }
  static void store_zipped(int32_t *p, ints x, ints y) {
    const zipped xy = zip(x, y);
    store(p, xy.v0);
    store(p + kWidth, xy.v1);
  }

  static floats load_floats(const float *p) {
    return _mm256_loadu_ps(p);
  }
  static void store_floats(float *p, floats x) {
    _mm256_storeu_ps(p, x);
  }
  static floats multiply(floats x, floats y) {
    return _mm256_mul_ps(x, y);
  }
  static floats no_peak() {
    return _mm256_setzero_ps();
  }
  // The instruction returns its second operand, the peak, if either is not a number.
  static floats larger_magnitude(floats x, floats peaks) {
    return _mm256_max_ps(_mm256_andnot_ps(_mm256_set1_ps(-0.0f), x), peaks);
  }
  static floats larger_product(floats, floats product, floats peaks) {
    return larger_magnitude(product, peaks);
  }
  static bool keeps_products(const float *, int32_t) {
    return true;
  }
  static float highest(floats x) {
    const __m128 four = _mm_max_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
    const __m128 two = _mm_max_ps(four, _mm_movehl_ps(four, four));
    return _mm_cvtss_f32(_mm_max_ss(two, _mm_shuffle_ps(two, two, 1)));
  }
  // The conversion turns not-a-number into -2^31; the mask of the comparison turns that into 0.
  static ints truncate(floats x) {
    const floats ordered = _mm256_cmp_ps(x, x, _CMP_ORD_Q);
    return _mm256_and_si256(_mm256_cvttps_epi32(x), _mm256_castps_si256(ordered));
  }
  static complex load_complex(const float *in, float scale) {
    const floats factor = _mm256_set1_ps(scale);
    const floats low = _mm256_loadu_ps(in);
    const floats high = _mm256_loadu_ps(in + kWidth);
    const floats outer = _mm256_permute2f128_ps(low, high, kLowHalves);
    const floats inner = _mm256_permute2f128_ps(low, high, kHighHalves);
    const floats even = _mm256_shuffle_ps(outer, inner, _MM_SHUFFLE(2, 0, 2, 0));
    const floats odd = _mm256_shuffle_ps(outer, inner, _MM_SHUFFLE(3, 1, 3, 1));
    return {truncate(_mm256_mul_ps(factor, even)), truncate(_mm256_mul_ps(factor, odd))};
  }
  static void store_pairs(float *out, ints x, ints y, float gain, const float *window) {
    const floats factor = _mm256_set1_ps(gain);
    const floats first = _mm256_mul_ps(_mm256_cvtepi32_ps(x), factor);
    const floats second = _mm256_mul_ps(_mm256_cvtepi32_ps(y), factor);
    const floats outer = _mm256_unpacklo_ps(first, second);
    const floats inner = _mm256_unpackhi_ps(first, second);
    floats low = _mm256_permute2f128_ps(outer, inner, kLowHalves);
    floats high = _mm256_permute2f128_ps(outer, inner, kHighHalves);
    if (window != nullptr) {
      low = _mm256_mul_ps(low, load_floats(window));
      high = _mm256_mul_ps(high, load_floats(window + kWidth));
    }
    store_floats(out, low);
    store_floats(out + kWidth, high);
  }
  static void store_zipped_pairs(float *out, complex even, complex odd, float gain,
                                 const float *window) {
    const zipped x = zip(even.re, odd.re);
    const zipped y = zip(even.im, odd.im);
    store_pairs(out, x.v0, y.v0, gain, window);
    store_pairs(out + 2 * kWidth, x.v1, y.v1, gain,
                window == nullptr ? nullptr : window + 2 * kWidth);
  }
};

}  // namespace

const q31_vector_kernel q31_vector_avx2 = q31_vector::make_kernel<avx2_lanes>();

#else

const q31_vector_kernel q31_vector_avx2 = {};

#endif
