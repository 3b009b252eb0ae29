// Lanes of x86-64 processors with SSE4.1: four values a vector. Compiled once for SSE4.1 and once
// for AVX, whose instructions on the same vectors keep their operands, which saves copies.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_LANES_SSE41_H
#define TM_SE_BF_SPECTRAL_VECTOR_LANES_SSE41_H

#include <smmintrin.h>

#include <cstdint>

#include "spectral/q31_format.h"
#include "spectral/vector/lanes.h"

// Internal to each source that includes this, so that the linker keeps their functions apart, also
// where two static libraries have the same ones.
namespace {  // NOLINT(cert-dcl59-cpp)

struct sse41_lanes {
#if defined(__AVX__)
  static constexpr bool kAvx = true;
#else
  static constexpr bool kAvx = false;
#endif
  using ints = __m128i;
  using floats = __m128;
  using columns = q31_vector::columns<sse41_lanes>;
  struct zipped {
    ints v0, v1;
  };
  static constexpr int32_t kWidth = 4;

  static ints load(const int32_t *p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
  }
  static void store(int32_t *p, ints x) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), x);
  }
  static ints all(int32_t x) {
    return _mm_set1_epi32(x);
  }

  static ints add(ints x, ints y) {
    return _mm_add_epi32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return _mm_sub_epi32(x, y);
  }
  static ints negative(ints x) {
    return _mm_sub_epi32(_mm_setzero_si128(), x);
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return _mm_srai_epi32(x, kBits);
  }
  static ints clear_lowest_bit(ints x) {
    return _mm_and_si128(x, all(-2));
  }
  static ints less_one_if_positive(ints x) {
    return add(x, _mm_cmpgt_epi32(x, _mm_setzero_si128()));
  }

  static ints multiply(ints x, ints y) {
    return _mm_mul_epi32(x, y);
  }
  // As in lanes_avx2.cpp. Without AVX the multiplier takes only aligned vectors from memory.
  template <int32_t kOffset>
  static ints multiply(ints x, const int32_t *factors) {
    if constexpr (kAvx) {
      ints products;
      asm("vpmuldq %c3(%2), %1, %0"
          : "=x"(products)
          : "x"(x), "r"(factors), "i"(kOffset * sizeof(int32_t)));
      return products;
    } else {
      return multiply(load(factors + kOffset), x);
    }
  }
  static ints rounded(ints products) {
    return _mm_add_epi64(products, _mm_set1_epi64x(kQ31RoundHalf));
  }
  static ints negated(ints products) {
    return _mm_sub_epi64(_mm_set1_epi64x(kQ31RoundHalf), products);
  }
  static ints odd_to_even(ints x) {
    return _mm_srli_epi64(x, 32);
  }
  static ints join(ints even, ints odd) {
    constexpr int kOddLanes = 0xCC;
    return _mm_blend_epi16(odd_to_even(even), odd, kOddLanes);
  }

  static ints exchanged(ints x) {
    return _mm_shuffle_epi32(x, _MM_SHUFFLE(2, 3, 0, 1));
  }
  static ints backwards(ints x) {
    return _mm_shuffle_epi32(x, _MM_SHUFFLE(1, 0, 3, 2));
  }
  static columns transpose(ints a, ints b, ints c, ints d) {
    const ints ab_low = _mm_unpacklo_epi32(a, b);
    const ints ab_high = _mm_unpackhi_epi32(a, b);
    const ints cd_low = _mm_unpacklo_epi32(c, d);
    const ints cd_high = _mm_unpackhi_epi32(c, d);
    return {_mm_unpacklo_epi64(ab_low, cd_low), _mm_unpackhi_epi64(ab_low, cd_low),
            _mm_unpacklo_epi64(ab_high, cd_high), _mm_unpackhi_epi64(ab_high, cd_high)};
  }
  static zipped zip(ints x, ints y) {
    return {_mm_unpacklo_epi32(x, y), _mm_unpackhi_epi32(x, y)};
  }

  static floats load_floats(const float *p) {
    return _mm_loadu_ps(p);
  }
  static void store_floats(float *p, floats x) {
    _mm_storeu_ps(p, x);
  }
  static floats all_floats(float x) {
    return _mm_set1_ps(x);
  }
  static floats multiply_floats(floats x, floats y) {
    return _mm_mul_ps(x, y);
  }
  static ints to_words(const float *in, floats scale) {
    return _mm_cvttps_epi32(_mm_mul_ps(_mm_loadu_ps(in), scale));
  }
  static floats to_floats(ints x, floats gain) {
    return _mm_mul_ps(_mm_cvtepi32_ps(x), gain);
  }
  static ints magnitude_pattern(floats x) {
    return _mm_and_si128(_mm_castps_si128(x), all(INT32_MAX));
  }
  static ints larger(ints x, ints y) {
    return _mm_max_epi32(x, y);
  }
  static int32_t highest(ints x) {
    const ints two = larger(x, _mm_unpackhi_epi64(x, x));
    return _mm_cvtsi128_si32(larger(two, _mm_shuffle_epi32(two, 1)));
  }
  static float float_of(int32_t pattern) {
    return _mm_cvtss_f32(_mm_castsi128_ps(_mm_cvtsi32_si128(pattern)));
  }
};

}  // namespace

#endif  // TM_SE_BF_SPECTRAL_VECTOR_LANES_SSE41_H
