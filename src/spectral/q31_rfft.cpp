// Split steps and driver of the Q31 real FFT.
#include "spectral/q31_rfft.h"

#include "spectral/q31_arith.h"
#include "spectral/q31_tables.h"

namespace {

constexpr uint32_t kLengthMask = 0xFFFF;

const cfft_q31_instance *half_length_cfft(uint32_t fftLenReal) {
  if (fftLenReal < kMinRfftLength || fftLenReal > kMaxRfftLength) {
    return nullptr;
  }
  switch (fftLenReal) {
    case 32:
      return &arm_cfft_sR_q31_len16;
    case 64:
      return &arm_cfft_sR_q31_len32;
    case 128:
      return &arm_cfft_sR_q31_len64;
    case 256:
      return &arm_cfft_sR_q31_len128;
    case 512:
      return &arm_cfft_sR_q31_len256;
    case 1024:
      return &arm_cfft_sR_q31_len512;
    case 2048:
      return &arm_cfft_sR_q31_len1024;
    case 4096:
      return &arm_cfft_sR_q31_len2048;
    case 8192:
      return &arm_cfft_sR_q31_len4096;
    default:
      return nullptr;
  }
}

void forward(const rfft_q31_instance *S, int32_t *src, int32_t *dst) {
  const uint32_t half = S->fftLenReal / 2;
  arm_cfft_q31(S->pCfft, src, 0, S->bitReverseFlagR);
  arm_split_rfft_q31(src, half, S->pTwiddleAReal, S->pTwiddleBReal, dst, S->twidCoefRModifier);

  // DC and Nyquist are the sum and the difference of the DC of the even and of the odd samples.
  // Both may wrap for words beyond those of the float wrapper.
  q31_stage("DC and Nyquist");
  dst[0] = q31_shift_down(q31_add_wrap(src[0], src[1]), 1);
  dst[1] = 0;
  dst[2 * half] = q31_shift_down(q31_sub_wrap(src[0], src[1]), 1);
  dst[2 * half + 1] = 0;
}

void inverse(const rfft_q31_instance *S, const int32_t *src, int32_t *dst) {
  const uint32_t half = S->fftLenReal / 2;
  arm_split_rifft_q31(src, half, S->pTwiddleAReal, S->pTwiddleBReal, dst, S->twidCoefRModifier);
  arm_cfft_q31(S->pCfft, dst, 1, S->bitReverseFlagR);

  // Undoes the halving of the rounded products in the split.
  q31_stage("doubling");
  for (uint32_t n = 0; n < 2 * half; ++n) {
    dst[n] = q31_shift_up(dst[n], 1);
  }
}

}  // namespace

int32_t arm_rfft_init_q31(rfft_q31_instance *S, uint32_t fftLenReal, uint32_t ifftFlagR,
                          uint32_t bitReverseFlag) {
  S->fftLenReal = fftLenReal & kLengthMask;
  S->ifftFlagR = static_cast<uint8_t>(ifftFlagR);
  S->bitReverseFlagR = static_cast<uint8_t>(bitReverseFlag);
  S->pTwiddleAReal = realCoefAQ31;
  S->pTwiddleBReal = realCoefBQ31;

  const cfft_q31_instance *cfft = half_length_cfft(S->fftLenReal);
  if (cfft == nullptr) {
    return -1;
  }
  S->twidCoefRModifier = static_cast<uint32_t>(kMaxRfftLength) / S->fftLenReal;
  S->pCfft = cfft;
  return 0;
}

void arm_rfft_q31(const rfft_q31_instance *S, int32_t *src, int32_t *dst) {
  if (S->ifftFlagR == 1) {
    inverse(S, src, dst);
  } else {
    forward(S, src, dst);
  }
}

// X[k] = Z[k] A[k] + conj(Z[N/2 - k]) B[k], with Im B = -Im A; every product is halved.
void arm_split_rfft_q31(const int32_t *src, uint32_t half, const int32_t *table_a,
                        const int32_t *table_b, int32_t *dst, uint32_t modifier) {
  q31_stage("split");
  for (uint32_t k = 1; k < half; ++k) {
    const int32_t z_re = src[2 * k];
    const int32_t z_im = src[2 * k + 1];
    const int32_t mirror_re = src[2 * (half - k)];
    const int32_t mirror_im = src[2 * (half - k) + 1];
    const int32_t a_re = table_a[2 * k * modifier];
    const int32_t a_im = table_a[2 * k * modifier + 1];
    const int32_t b_re = table_b[2 * k * modifier];

    int32_t re = q31_mul_high_round(z_re, a_re);
    re = q31_msub_round(re, z_im, a_im);
    re = q31_msub_round(re, mirror_im, a_im);
    re = q31_mac_round(re, mirror_re, b_re);

    int32_t im = q31_mul_high_round(z_re, a_im);
    im = q31_mac_round(im, z_im, a_re);
    im = q31_msub_round(im, mirror_im, b_re);
    im = q31_msub_round(im, mirror_re, a_im);

    dst[2 * k] = re;
    dst[2 * k + 1] = im;
    dst[2 * (2 * half - k)] = re;
    dst[2 * (2 * half - k) + 1] = q31_sub(0, im);
  }
}

// Z[k] = X[k] conj(A[k]) + conj(X[N/2 - k]) conj(B[k]), with Im B = -Im A; every product is halved.
void arm_split_rifft_q31(const int32_t *src, uint32_t half, const int32_t *table_a,
                         const int32_t *table_b, int32_t *dst, uint32_t modifier) {
  q31_stage("split");
  for (uint32_t k = 0; k < half; ++k) {
    const int32_t x_re = src[2 * k];
    const int32_t x_im = src[2 * k + 1];
    const int32_t mirror_re = src[2 * (half - k)];
    const int32_t mirror_im = src[2 * (half - k) + 1];
    const int32_t a_re = table_a[2 * k * modifier];
    const int32_t a_im = table_a[2 * k * modifier + 1];
    const int32_t b_re = table_b[2 * k * modifier];

    int32_t re = q31_mul_high_round(x_re, a_re);
    re = q31_mac_round(re, x_im, a_im);
    re = q31_mac_round(re, mirror_im, a_im);
    re = q31_mac_round(re, mirror_re, b_re);

    int32_t im = q31_mul_high_round(x_im, a_re);
    im = q31_msub_round(im, x_re, a_im);
    im = q31_msub_round(im, mirror_im, b_re);
    im = q31_mac_round(im, mirror_re, a_im);

    dst[2 * k] = re;
    dst[2 * k + 1] = im;
  }
}
