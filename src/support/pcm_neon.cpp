// NEON forms of the loops over PCM. For 32-bit Arm this file is compiled for NEON.
#include "support/pcm_neon.h"

#if defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__

#include <arm_neon.h>

namespace {

// Samples a round.
constexpr int32_t kRound = 8;

// How many of `count` samples the vectors do.
int32_t whole_rounds(int32_t count) {
  return count / kRound * kRound;
}

void store_floats(float *to, int16x8_t x) {
  vst1q_f32(to, vcvtq_f32_s32(vmovl_s16(vget_low_s16(x))));
  vst1q_f32(to + 4, vcvtq_f32_s32(vmovl_s16(vget_high_s16(x))));
}

int32_t sum_of(uint32x4_t x) {
  const uint64x2_t two = vpaddlq_u32(x);
  return static_cast<int32_t>(vgetq_lane_u64(two, 0) + vgetq_lane_u64(two, 1));
}

int32_t to_floats(const int16_t *in, float *samples, int32_t count) {
  const int32_t end = whole_rounds(count);
  for (int32_t i = 0; i < end; i += kRound) {
    store_floats(samples + i, vld1q_s16(in + i));
  }
  return end;
}

int32_t to_two_channels(const int16_t *in, float *first, float *second, int32_t count) {
  const int32_t end = whole_rounds(count);
  for (int32_t i = 0; i < end; i += kRound) {
    const int16x8x2_t pairs = vld2q_s16(in + 2 * i);
    store_floats(first + i, pairs.val[0]);
    store_floats(second + i, pairs.val[1]);
  }
  return end;
}

int32_t to_pcm(const float *x, int16_t *out, int32_t count) {
  const int32_t end = whole_rounds(count);
  for (int32_t i = 0; i < end; i += kRound) {
    const int32x4_t low = vcvtq_s32_f32(vld1q_f32(x + i));
    const int32x4_t high = vcvtq_s32_f32(vld1q_f32(x + i + 4));
    vst1q_s16(out + i, vcombine_s16(vqmovn_s32(low), vqmovn_s32(high)));
  }
  return end;
}

int32_t mean_of_two(const float *first, const float *second, float *mean, int32_t count) {
  const int32_t end = whole_rounds(count);
  for (int32_t i = 0; i < end; i += kRound) {
    const float32x4_t low = vaddq_f32(vld1q_f32(first + i), vld1q_f32(second + i));
    const float32x4_t high = vaddq_f32(vld1q_f32(first + i + 4), vld1q_f32(second + i + 4));
    vst1q_f32(mean + i, vmulq_n_f32(low, 0.5f));
    vst1q_f32(mean + i + 4, vmulq_n_f32(high, 0.5f));
  }
  return end;
}

int32_t add_magnitudes(const int16_t *in, int32_t count, int32_t *first, int32_t *second) {
  const int32_t end = whole_rounds(count);
  uint32x4_t firsts = vdupq_n_u32(0);
  uint32x4_t seconds = firsts;
  for (int32_t i = 0; i < end; i += kRound) {
    const int16x8x2_t pairs = vld2q_s16(in + 2 * i);
    // The magnitude of the smallest sample needs all 16 bits.
    firsts = vpadalq_u16(firsts, vreinterpretq_u16_s16(vabsq_s16(pairs.val[0])));
    seconds = vpadalq_u16(seconds, vreinterpretq_u16_s16(vabsq_s16(pairs.val[1])));
  }
  *first += sum_of(firsts);
  *second += sum_of(seconds);
  return end;
}

}  // namespace

const pcm_neon_loops pcm_neon = {to_floats, to_two_channels, to_pcm, mean_of_two, add_magnitudes};

#else

const pcm_neon_loops pcm_neon = {};

#endif
