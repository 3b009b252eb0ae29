// Lanes of the x86-64 baseline: four values a vector.
#include "spectral/vector/kernel.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include "spectral/q31_format.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/rfft.h"

namespace {

struct sse2_lanes {
  using ints = __m128i;
  using floats = __m128;
  using products = __m128i;  // in lane order, which the correction by `surplus` needs
  using complex = q31_vector::complex<sse2_lanes>;
  using columns = q31_vector::columns<sse2_lanes>;
  static constexpr int32_t kWidth = 4;
  static constexpr bool kCompact = true;

  static ints load(const int32_t *p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
  }
  static void store(int32_t *p, ints x) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), x);
  }
  static ints reversed(ints x) {
    return _mm_shuffle_epi32(x, _MM_SHUFFLE(0, 1, 2, 3));
  }
  static int32_t first(ints x) {
    return _mm_cvtsi128_si32(x);
  }

  static ints add(ints x, ints y) {
    return _mm_add_epi32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return _mm_sub_epi32(x, y);
  }
  static ints in_lane_order(products x) {
    return x;
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return _mm_srai_epi32(x, kBits);
  }

  // The multiplier is unsigned: it takes a negative x as x + 2^32. The high word is therefore too
  // large by y where x < 0, and by x where y < 0.
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
  static ints round_half() {
    return _mm_set1_epi64x(kQ31RoundHalf);
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
    const ints even = _mm_add_epi64(round_half(), even_product(x, c));
    const ints odd = _mm_add_epi64(round_half(), odd_product(x, c));
    return subtract(high_words(even, odd), surplus_by_positive(x, c));
  }
  static products mul_high_round_negated(ints x, ints c) {
    const ints even = _mm_sub_epi64(round_half(), even_product(x, c));
    const ints odd = _mm_sub_epi64(round_half(), odd_product(x, c));
    return add(high_words(even, odd), surplus_by_positive(x, c));
  }

  static columns transpose(ints a, ints b, ints c, ints d) {
    const ints ab_low = _mm_unpacklo_epi32(a, b);
    const ints ab_high = _mm_unpackhi_epi32(a, b);
    const ints cd_low = _mm_unpacklo_epi32(c, d);
    const ints cd_high = _mm_unpackhi_epi32(c, d);
    return {_mm_unpacklo_epi64(ab_low, cd_low), _mm_unpackhi_epi64(ab_low, cd_low),
            _mm_unpacklo_epi64(ab_high, cd_high), _mm_unpackhi_epi64(ab_high, cd_high)};
  }
  static void store_zipped(int32_t *p, ints x, ints y) {
    store(p, _mm_unpacklo_epi32(x, y));
    store(p + kWidth, _mm_unpackhi_epi32(x, y));
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
  // The instruction returns its second operand, the peak, if either is not a number.
  static floats larger_magnitude(floats x, floats peaks) {
    return _mm_max_ps(_mm_andnot_ps(_mm_set1_ps(-0.0f), x), peaks);
  }
  static floats larger_product(floats, floats product, floats peaks) {
    return larger_magnitude(product, peaks);
  }
  static bool keeps_products(const float *, int32_t) {
    return true;
  }
  static float highest(floats x) {
    const floats pairs = _mm_max_ps(x, _mm_movehl_ps(x, x));
    return _mm_cvtss_f32(_mm_max_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
  }
  // The conversion turns not-a-number into -2^31; the mask of the comparison turns that into 0.
  static ints truncate(floats x) {
    return _mm_and_si128(_mm_cvttps_epi32(x), _mm_castps_si128(_mm_cmpord_ps(x, x)));
  }
  static complex load_complex(const float *in, float scale) {
    const floats factor = _mm_set1_ps(scale);
    const floats low = _mm_loadu_ps(in);
    const floats high = _mm_loadu_ps(in + kWidth);
    const floats even = _mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0));
    const floats odd = _mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1));
    return {truncate(_mm_mul_ps(factor, even)), truncate(_mm_mul_ps(factor, odd))};
  }
  static void store_pairs(float *out, ints x, ints y, float gain, const float *window) {
    const floats factor = _mm_set1_ps(gain);
    const floats first = _mm_mul_ps(_mm_cvtepi32_ps(x), factor);
    const floats second = _mm_mul_ps(_mm_cvtepi32_ps(y), factor);
    floats low = _mm_unpacklo_ps(first, second);
    floats high = _mm_unpackhi_ps(first, second);
    if (window != nullptr) {
      low = _mm_mul_ps(low, load_floats(window));
      high = _mm_mul_ps(high, load_floats(window + kWidth));
    }
    store_floats(out, low);
    store_floats(out + kWidth, high);
  }
  static void store_zipped_pairs(float *out, complex even, complex odd, float gain,
                                 const float *window) {
    store_pairs(out, _mm_unpacklo_epi32(even.re, odd.re), _mm_unpacklo_epi32(even.im, odd.im), gain,
                window);
    store_pairs(out + 2 * kWidth, _mm_unpackhi_epi32(even.re, odd.re),
                _mm_unpackhi_epi32(even.im, odd.im), gain,
                window == nullptr ? nullptr : window + 2 * kWidth);
  }
};

}  // namespace

const q31_vector_kernel q31_vector_sse2 = q31_vector::make_kernel<sse2_lanes>();

#else

const q31_vector_kernel q31_vector_sse2 = {};

#endif
