// Lanes of x86-64 processors with AVX2: eight values a vector. Compiled for AVX2, called only where
// it exists.
#include "spectral/vector/kernel.h"

#if defined(__AVX2__)

#include <immintrin.h>

#include "spectral/q31_format.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/pairs_rfft.h"

namespace {

struct avx2_lanes {
  using ints = __m256i;
  using floats = __m256;
  using columns = q31_vector::columns<avx2_lanes>;
  struct zipped {
    ints v0, v1;
  };
  static constexpr int32_t kWidth = 8;

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
  static ints all(int32_t x) {
    return _mm256_set1_epi32(x);
  }

  static ints add(ints x, ints y) {
    return _mm256_add_epi32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return _mm256_sub_epi32(x, y);
  }
  static ints negative(ints x) {
    return _mm256_sub_epi32(_mm256_setzero_si256(), x);
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return _mm256_srai_epi32(x, kBits);
  }
  static ints clear_lowest_bit(ints x) {
    return _mm256_and_si256(x, all(-2));
  }
  static ints less_one_if_positive(ints x) {
    return add(x, _mm256_cmpgt_epi32(x, _mm256_setzero_si256()));
  }

  static ints multiply(ints x, ints y) {
    return _mm256_mul_epi32(x, y);
  }
  // The multiplier takes the factors from memory, kOffset words behind `factors`. A compiler would
  // load what several products use into a register first, and keep an address for each offset. The
  // factors are constants, so that the order of this and of any store does not matter.
  template <int32_t kOffset>
  static ints multiply(ints x, const int32_t *factors) {
    ints products;
    asm("vpmuldq %c3(%2), %1, %0"
        : "=x"(products)
        : "x"(x), "r"(factors), "i"(kOffset * sizeof(int32_t)));
    return products;
  }
  static ints rounded(ints products) {
    return _mm256_add_epi64(_mm256_set1_epi64x(kQ31RoundHalf), products);
  }
  static ints negated(ints products) {
    return _mm256_sub_epi64(_mm256_set1_epi64x(kQ31RoundHalf), products);
  }
  static ints odd_to_even(ints x) {
    return _mm256_srli_epi64(x, 32);
  }
  static ints join(ints even, ints odd) {
    constexpr int kOddLanes = 0xAA;
    return _mm256_blend_epi32(odd_to_even(even), odd, kOddLanes);
  }

  static ints exchanged(ints x) {
    return _mm256_shuffle_epi32(x, _MM_SHUFFLE(2, 3, 0, 1));
  }
  static ints backwards(ints x) {
    return _mm256_permute4x64_epi64(x, _MM_SHUFFLE(0, 1, 2, 3));
  }
  static columns transpose(ints a, ints b, ints c, ints d) {
    const ints ab_low = _mm256_unpacklo_epi32(a, b);
    const ints ab_high = _mm256_unpackhi_epi32(a, b);
    const ints cd_low = _mm256_unpacklo_epi32(c, d);
    const ints cd_high = _mm256_unpackhi_epi32(c, d);
    return {_mm256_unpacklo_epi64(ab_low, cd_low), _mm256_unpackhi_epi64(ab_low, cd_low),
            _mm256_unpacklo_epi64(ab_high, cd_high), _mm256_unpackhi_epi64(ab_high, cd_high)};
  }
  static zipped zip(ints x, ints y) {
    const ints low = _mm256_unpacklo_epi32(x, y);
    const ints high = _mm256_unpackhi_epi32(x, y);
    return {_mm256_permute2x128_si256(low, high, kLowHalves),
            _mm256_permute2x128_si256(low, high, kHighHalves)};
  }

  static floats load_floats(const float *p) {
    return _mm256_loadu_ps(p);
  }
  static void store_floats(float *p, floats x) {
    _mm256_storeu_ps(p, x);
  }
  static floats all_floats(float x) {
    return _mm256_set1_ps(x);
  }
  static floats multiply_floats(floats x, floats y) {
    return _mm256_mul_ps(x, y);
  }
  static ints to_words(const float *in, floats scale) {
    return _mm256_cvttps_epi32(_mm256_mul_ps(scale, _mm256_loadu_ps(in)));
  }
  static floats to_floats(ints x, floats gain) {
    return _mm256_mul_ps(_mm256_cvtepi32_ps(x), gain);
  }
  static ints magnitude_pattern(floats x) {
    return _mm256_castps_si256(_mm256_andnot_ps(_mm256_set1_ps(-0.0f), x));
  }
  static ints larger(ints x, ints y) {
    return _mm256_max_epi32(x, y);
  }
  static int32_t highest(ints x) {
    const __m128i four = _mm_max_epi32(_mm256_castsi256_si128(x), _mm256_extracti128_si256(x, 1));
    const __m128i two = _mm_max_epi32(four, _mm_unpackhi_epi64(four, four));
    return _mm_cvtsi128_si32(_mm_max_epi32(two, _mm_shuffle_epi32(two, 1)));
  }
  static float float_of(int32_t pattern) {
    return _mm_cvtss_f32(_mm_castsi128_ps(_mm_cvtsi32_si128(pattern)));
  }
};

}  // namespace

const q31_vector_kernel q31_vector_avx2 = q31_pairs::make_kernel<avx2_lanes>();

#else

const q31_vector_kernel q31_vector_avx2 = {};

#endif
