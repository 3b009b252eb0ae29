// Lanes of 64-bit ARM processors: four values a vector.
#include "spectral/vector/kernel.h"

#if defined(__aarch64__) && defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__

#include <arm_neon.h>

#include "spectral/q31_format.h"
#include "spectral/vector/lanes.h"
#include "spectral/vector/rfft.h"

namespace {

struct neon_lanes {
  using ints = int32x4_t;
  using floats = float32x4_t;
  using products = int32x4_t;  // in lane order
  using complex = q31_vector::complex<neon_lanes>;
  using columns = q31_vector::columns<neon_lanes>;
  using float_pair = q31_vector::float_pair<neon_lanes>;
  static constexpr int32_t kWidth = 4;

  static ints load(const int32_t *p) {
    return vld1q_s32(p);
  }
  static void store(int32_t *p, ints x) {
    vst1q_s32(p, x);
  }
  static ints load_reversed(const int32_t *last) {
    const ints swapped = vrev64q_s32(load(last - (kWidth - 1)));
    return vextq_s32(swapped, swapped, 2);
  }

  static ints add(ints x, ints y) {
    return vaddq_s32(x, y);
  }
  static ints subtract(ints x, ints y) {
    return vsubq_s32(x, y);
  }
  static ints in_lane_order(products x) {
    return x;
  }
  template <int kBits>
  static ints shift_down(ints x) {
    return vshrq_n_s32(x, kBits);
  }

  static products high_words(int64x2_t low, int64x2_t high) {
    return vuzp2q_s32(vreinterpretq_s32_s64(low), vreinterpretq_s32_s64(high));
  }
  static int64x2_t round_half() {
    return vdupq_n_s64(kQ31RoundHalf);
  }
  static products mul_high(ints x, ints y) {
    return high_words(vmull_s32(vget_low_s32(x), vget_low_s32(y)), vmull_high_s32(x, y));
  }
  static products mul_high_by_positive(ints x, ints c) {
    return mul_high(x, c);
  }
  static products mul_high_round(ints x, ints y) {
    return high_words(vmlal_s32(round_half(), vget_low_s32(x), vget_low_s32(y)),
                      vmlal_high_s32(round_half(), x, y));
  }
  static products mul_high_round_negated(ints x, ints y) {
    return high_words(vmlsl_s32(round_half(), vget_low_s32(x), vget_low_s32(y)),
                      vmlsl_high_s32(round_half(), x, y));
  }

  static columns transpose(ints a, ints b, ints c, ints d) {
    const int64x2_t ab_low = vreinterpretq_s64_s32(vzip1q_s32(a, b));
    const int64x2_t ab_high = vreinterpretq_s64_s32(vzip2q_s32(a, b));
    const int64x2_t cd_low = vreinterpretq_s64_s32(vzip1q_s32(c, d));
    const int64x2_t cd_high = vreinterpretq_s64_s32(vzip2q_s32(c, d));
    return {vreinterpretq_s32_s64(vzip1q_s64(ab_low, cd_low)),
            vreinterpretq_s32_s64(vzip2q_s64(ab_low, cd_low)),
            vreinterpretq_s32_s64(vzip1q_s64(ab_high, cd_high)),
            vreinterpretq_s32_s64(vzip2q_s64(ab_high, cd_high))};
  }
  static void store_zipped(int32_t *p, ints x, ints y) {
    store(p, vzip1q_s32(x, y));
    store(p + kWidth, vzip2q_s32(x, y));
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
  static floats no_peak() {
    return vdupq_n_f32(0.0f);
  }
  // Where x is not a number, the instruction returns the peak.
  static floats larger_magnitude(floats x, floats peaks) {
    return vmaxnmq_f32(vabsq_f32(x), peaks);
  }
  static float highest(floats x) {
    return vmaxvq_f32(x);
  }
  // The conversion truncates toward zero and turns not-a-number into 0.
  static complex load_complex(const float *in, float scale) {
    const float32x4x2_t pairs = vld2q_f32(in);
    return {vcvtq_s32_f32(vmulq_n_f32(pairs.val[0], scale)),
            vcvtq_s32_f32(vmulq_n_f32(pairs.val[1], scale))};
  }
  static float_pair interleave(ints re, ints im, float gain) {
    const floats first = vmulq_n_f32(vcvtq_f32_s32(re), gain);
    const floats second = vmulq_n_f32(vcvtq_f32_s32(im), gain);
    return {vzip1q_f32(first, second), vzip2q_f32(first, second)};
  }
};

}  // namespace

const q31_vector_kernel q31_vector_neon = q31_vector::make_kernel<neon_lanes>();

#else

const q31_vector_kernel q31_vector_neon = {};

#endif
