// Lanes of Arm processors with NEON: four values a vector. For 32-bit Arm this file is compiled for
// NEON, and called only where it exists.
#include "spectral/vector/kernel.h"

#if defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__

#include <arm_neon.h>

#include <cmath>

#include "spectral/q31_format.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/rfft.h"

namespace {

// The peak of a block. 64-bit Arm: where x is not a number, the instruction returns the peak.
#if defined(__aarch64__)

using peak_search = float32x4_t;

peak_search no_peak() {
  return vdupq_n_f32(0.0f);
}

peak_search larger_magnitude(float32x4_t x, peak_search peaks) {
  return vmaxnmq_f32(vabsq_f32(x), peaks);
}

peak_search larger_product(float32x4_t, float32x4_t product, peak_search peaks) {
  return larger_magnitude(product, peaks);
}

float highest(peak_search peaks) {
  return vmaxvq_f32(peaks);
}

bool keeps_products(const float *, int32_t) {
  return true;
}

int32x4x4_t transpose(int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
  const int64x2_t ab_low = vreinterpretq_s64_s32(vzip1q_s32(a, b));
  const int64x2_t ab_high = vreinterpretq_s64_s32(vzip2q_s32(a, b));
  const int64x2_t cd_low = vreinterpretq_s64_s32(vzip1q_s32(c, d));
  const int64x2_t cd_high = vreinterpretq_s64_s32(vzip2q_s32(c, d));
  return {vreinterpretq_s32_s64(vzip1q_s64(ab_low, cd_low)),
          vreinterpretq_s32_s64(vzip2q_s64(ab_low, cd_low)),
          vreinterpretq_s32_s64(vzip1q_s64(ab_high, cd_high)),
          vreinterpretq_s32_s64(vzip2q_s64(ab_high, cd_high))};
}

// 32-bit Arm: the bits of magnitudes are compared as integers, so that no denormal number counts as
// 0. Infinities and not-a-numbers are above all others.
#else

struct peak_search {
  uint32x4_t magnitudes;
  int32x4_t lost;  // products
};

peak_search no_peak() {
  return {vdupq_n_u32(0), vdupq_n_s32(0)};
}

peak_search larger_magnitude(float32x4_t x, peak_search peaks) {
  const uint32x4_t magnitude = vreinterpretq_u32_f32(vabsq_f32(x));
  return {vmaxq_u32(magnitude, peaks.magnitudes), peaks.lost};
}

peak_search larger_product(float32x4_t x, float32x4_t product, peak_search peaks) {
  const uint32x4_t zero = vceqq_f32(product, vdupq_n_f32(0.0f));
  const uint32x4_t not_zero = vtstq_u32(vreinterpretq_u32_f32(x), vdupq_n_u32(INT32_MAX));
  peaks = larger_magnitude(product, peaks);
  peaks.lost = vmlaq_s32(peaks.lost, vreinterpretq_s32_u32(zero), vreinterpretq_s32_u32(not_zero));
  return peaks;
}

uint32_t highest_word(uint32x4_t x) {
  const uint32x2_t two = vpmax_u32(vget_low_u32(x), vget_high_u32(x));
  return vget_lane_u32(vpmax_u32(two, two), 0);
}

float highest(peak_search peaks) {
  const bool lost = highest_word(vreinterpretq_u32_s32(peaks.lost)) != 0;
  const uint32_t peak = highest_word(peaks.magnitudes);
  return lost ? INFINITY : vget_lane_f32(vcreate_f32(peak), 0);
}

// Words times gain are 0 or at least 2^-90: the weights must lie between 2^-31 and 2^31. As
// integers, negative numbers are above all others.
bool keeps_products(const float *weights, int32_t count) {
  constexpr uint32_t kLowest = 0x30000000;
  constexpr uint32_t kHighest = 0x4f000000;
  uint32x4_t low = vdupq_n_u32(kLowest);
  uint32x4_t high = low;
  for (int32_t i = 0; i < count; i += 4) {
    const uint32x4_t x = vreinterpretq_u32_f32(vld1q_f32(weights + i));
    low = vminq_u32(low, x);
    high = vmaxq_u32(high, x);
  }
  return highest_word(vmvnq_u32(low)) == ~kLowest && highest_word(high) <= kHighest;
}

int32x4x4_t transpose(int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
  const int32x4x2_t ab = vtrnq_s32(a, b);
  const int32x4x2_t cd = vtrnq_s32(c, d);
  return {vcombine_s32(vget_low_s32(ab.val[0]), vget_low_s32(cd.val[0])),
          vcombine_s32(vget_low_s32(ab.val[1]), vget_low_s32(cd.val[1])),
          vcombine_s32(vget_high_s32(ab.val[0]), vget_high_s32(cd.val[0])),
          vcombine_s32(vget_high_s32(ab.val[1]), vget_high_s32(cd.val[1]))};
}

#endif

struct neon_lanes {
  using ints = int32x4_t;
  using floats = float32x4_t;
  // Twice a product and a bit more, before the high word is truncated or rounded.
  struct products {
    ints doubled;
  };
  struct rounded_products {
    ints doubled;
  };
  using complex = q31_vector::complex<neon_lanes>;
  using columns = q31_vector::columns<neon_lanes>;
  static constexpr int32_t kWidth = 4;
  static constexpr bool kCompact = false;

  static ints load(const int32_t *p) {
    return vld1q_s32(p);
  }
  static void store(int32_t *p, ints x) {
    vst1q_s32(p, x);
  }
  static ints reversed(ints x) {
    const ints swapped = vrev64q_s32(x);
    return vextq_s32(swapped, swapped, 2);
  }
  static int32_t first(ints x) {
    return vgetq_lane_s32(x, 0);
  }

  static ints add(ints x, ints y) {
    return vaddq_s32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return vsubq_s32(x, y);
  }
  static ints in_lane_order(ints x) {
    return x;
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return vshrq_n_s32(x, kBits);
  }

  // The multiplier gives floor(x y / 2^31), twice the high word and its next bit. The identities
  //   floor(p / 2) + floor(q / 2) = floor((p + q') / 2), where q' is q with its lowest bit cleared,
  //   floor((x y + 2^31) / 2^32)  = floor((p + 1) / 2)
  // make the high words of it. It saturates only where both factors are the smallest integer, which
  // no factor of a table is.
  static products mul_high(ints x, ints c) {
    return {vqdmulhq_s32(x, c)};
  }
  static products mul_high_by_positive(ints x, ints c) {
    return mul_high(x, c);
  }
  static ints even(ints x) {
    return vbicq_s32(x, vdupq_n_s32(1));
  }
  static ints add(products x, products y) {
    return vhaddq_s32(x.doubled, even(y.doubled));
  }
  static ints subtract(products x, products y) {
    return vhsubq_s32(x.doubled, even(y.doubled));
  }

  static rounded_products mul_high_round(ints x, ints c) {
    return {vqdmulhq_s32(x, c)};
  }
  static rounded_products mul_high_round_negated(ints x, ints c) {
    return {vqdmulhq_s32(x, vnegq_s32(c))};
  }
  static ints add(ints sum, rounded_products x) {
    return vrsraq_n_s32(sum, x.doubled, 1);
  }
  static ints add(rounded_products x, rounded_products y) {
    return add(vrshrq_n_s32(x.doubled, 1), y);
  }

  static columns transpose(ints a, ints b, ints c, ints d) {
    const int32x4x4_t x = ::transpose(a, b, c, d);
    return {x.val[0], x.val[1], x.val[2], x.val[3]};
  }
  static void store_zipped(int32_t *p, ints x, ints y) {
    const int32x4x2_t pairs = {x, y};
    vst2q_s32(p, pairs);
  }

  static floats load_floats(const float *p) {
    return vld1q_f32(p);
  }
  static void store_floats(float *p, floats x) {
    vst1q_f32(p, x);
  }
  static floats multiply(floats x, floats y) {
    return vmulq_f32(x, y);
  }
  static peak_search no_peak() {
    return ::no_peak();
  }
  static peak_search larger_magnitude(floats x, peak_search peaks) {
    return ::larger_magnitude(x, peaks);
  }
  static peak_search larger_product(floats x, floats product, peak_search peaks) {
    return ::larger_product(x, product, peaks);
  }
  static float highest(peak_search peaks) {
    return ::highest(peaks);
  }
  static bool keeps_products(const float *weights, int32_t count) {
    return ::keeps_products(weights, count);
  }
  // The conversion truncates toward zero and turns not-a-number into 0.
  static complex load_complex(const float *in, float scale) {
    const float32x4x2_t pairs = vld2q_f32(in);
    return {vcvtq_s32_f32(vmulq_n_f32(pairs.val[0], scale)),
            vcvtq_s32_f32(vmulq_n_f32(pairs.val[1], scale))};
  }
  static floats scaled(ints x, float gain) {
    return vmulq_n_f32(vcvtq_f32_s32(x), gain);
  }
  static void store_pairs(float *out, ints x, ints y, float gain, const float *window) {
    float32x4x2_t values = {scaled(x, gain), scaled(y, gain)};
    if (window != nullptr) {
      const float32x4x2_t weights = vld2q_f32(window);
      values = {vmulq_f32(values.val[0], weights.val[0]), vmulq_f32(values.val[1], weights.val[1])};
    }
    vst2q_f32(out, values);
  }
  static void store_zipped_pairs(float *out, complex even, complex odd, float gain,
                                 const float *window) {
    float32x4x4_t values = {scaled(even.re, gain), scaled(even.im, gain), scaled(odd.re, gain),
                            scaled(odd.im, gain)};
    if (window != nullptr) {
      const float32x4x4_t weights = vld4q_f32(window);
      values = {vmulq_f32(values.val[0], weights.val[0]), vmulq_f32(values.val[1], weights.val[1]),
                vmulq_f32(values.val[2], weights.val[2]), vmulq_f32(values.val[3], weights.val[3])};
    }
    vst4q_f32(out, values);
  }
};

}  // namespace

const q31_vector_kernel q31_vector_neon = q31_vector::make_kernel<neon_lanes>();

#else

const q31_vector_kernel q31_vector_neon = {};

#endif
