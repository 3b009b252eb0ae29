// Bin power, real gain and filter-and-sum on packed spectra.
#include "interface/multi_common.h"

#include "support/has_neon.h"
#include "support/pcm_neon.h"
#include "support/pool_vector.h"
#include "support/se_vector.h"

namespace {

// Of floats that are PCM samples; mean may be first. Two vectors a round: a vector needs hardly
// more instructions than the loop.
SE_BF_VECTOR_CLONES void mean_of_two(const float *first, const float *second, float *mean,
                                     int32_t count) {
  const int32_t done = has_neon() ? pcm_neon.mean_of_two(first, second, mean, count) : 0;
  SE_BF_INDEPENDENT_ROUNDS
#pragma GCC unroll 2
  for (int32_t i = done; i < count; ++i) {
    mean[i] = (first[i] + second[i]) * 0.5f;
  }
}

SE_BF_VECTOR_CLONES void subtract_noise(float *__restrict power, const float *__restrict noise,
                                        int32_t bins) {
  for (int32_t k = 0; k < bins; ++k) {
    const float gain = (power[k] - noise[k]) / power[k];
    const float above_noise = power[k] > noise[k] ? gain : 0.0f;
    power[k] = power[k] > 0.0f ? above_noise : 0.0f;
  }
}

// Power of the complex entries 0 .. stride - 1 of one spectrum, and the mean power of two spectra.
SE_BF_VECTOR_CLONES void entry_power(const float *__restrict s, int32_t stride,
                                     float *__restrict power) {
  for (int32_t k = 0; k < stride; ++k) {
    power[k] = s[2 * k] * s[2 * k] + s[2 * k + 1] * s[2 * k + 1];
  }
}

SE_BF_VECTOR_CLONES void entry_power_of_two(const float *__restrict s, int32_t stride,
                                            float *__restrict power) {
  const float *second = s + 2 * stride;
  for (int32_t k = 0; k < stride; ++k) {
    const float first_power = s[2 * k] * s[2 * k] + s[2 * k + 1] * s[2 * k + 1];
    const float second_power =
        second[2 * k] * second[2 * k] + second[2 * k + 1] * second[2 * k + 1];
    power[k] = (first_power + second_power) * 0.5f;
  }
}

// Eight entries a round: written out, each gain becomes two lanes of a vector with one shuffle. In
// a loop over entries compilers separate real and imaginary parts and join them again.
SE_BF_VECTOR_CLONES void scale_entries(float *__restrict s, const float *__restrict gain,
                                       int32_t stride) {
  constexpr int32_t kRound = 8;
  int32_t k = 0;
  for (; k + kRound <= stride; k += kRound) {
#pragma GCC unroll 16
    for (int32_t i = 0; i < 2 * kRound; ++i) {
      s[2 * k + i] *= gain[k + i / 2];
    }
  }
  for (; k < stride; ++k) {
    s[2 * k] *= gain[k];
    s[2 * k + 1] *= gain[k];
  }
}

// y = conj(w0) x0 + conj(w1) x1, which replaces x0. The sum over the microphones starts with 0,
// which makes a negative zero in the first term positive.
SE_BF_VECTOR_CLONES void filter_two(float *__restrict x0, const float *__restrict x1,
                                    const float *__restrict w, int32_t count) {
  for (int32_t k = 0; k < count; ++k) {
    const float a = x0[2 * k];
    const float b = x0[2 * k + 1];
    const float c = x1[2 * k];
    const float d = x1[2 * k + 1];
    const float re = 0.0f + (w[4 * k] * a + w[4 * k + 1] * b);
    const float im = 0.0f + (w[4 * k] * b - a * w[4 * k + 1]);
    x0[2 * k] = re + (w[4 * k + 2] * c + w[4 * k + 3] * d);
    x0[2 * k + 1] = im + (w[4 * k + 2] * d - c * w[4 * k + 3]);
  }
}

// The same for any number of channels, `stride` entries apart, without entry 0.
SE_BF_RARELY_RUN void filter_any(se_complex *x, const se_complex *w, int32_t channels,
                                 int32_t stride) {
  for (int32_t k = 1; k < stride; ++k) {
    se_complex y = {0.0f, 0.0f};
    for (int32_t m = 0; m < channels; ++m) {
      y = complex_add(y, complex_conj_mul_complex(w[k * channels + m], x[m * stride + k]));
    }
    x[k] = y;
  }
}

}  // namespace

void mean_of_channels(const float *frame, int32_t channels, int32_t hop, float *mean) {
  if (channels == 2) {
    mean_of_two(frame, frame + hop, mean, hop);
  } else if (mean != frame) {
    copy_floats(mean, frame, hop);
  }
}

void mean_bin_power(const float *spectrum, int32_t channels, int32_t bins, float *power) {
  const int32_t stride = bins - 1;
  float nyquist = 0.0f;
  for (int32_t c = 0; c < channels; ++c) {
    const float slot = spectrum[2 * c * stride + 1];
    nyquist += slot * slot;
  }
  if (channels == 1) {
    entry_power(spectrum, stride, power);
    power[0] = spectrum[0] * spectrum[0];
  } else {
    const float second = spectrum[2 * stride];
    entry_power_of_two(spectrum, stride, power);
    power[0] = (spectrum[0] * spectrum[0] + second * second) * 0.5f;
  }
  power[stride] = nyquist / static_cast<float>(channels);
}

void power_above_noise(float *power, const float *noise, int32_t bins) {
  subtract_noise(power, noise, bins);
}

void mul_amp_real_gain(float *spectrum, const float *gain, int32_t count, int32_t n) {
  const int16_t bins = static_cast<int16_t>(n / 2 + 1);
  for (int32_t s = 0; s < count; ++s) {
    float *one = spectrum + s * n;
    const float dc = one[0] * gain[0];
    const float nyquist = one[1] * gain[bins - 1];
    scale_entries(one, gain, bins - 1);
    one[0] = dc;
    one[1] = nyquist;
  }
}

void mul_bf_gain(se_complex *spectrum, const se_complex *weights, int32_t C, int16_t N) {
  const int32_t stride = N / 2;
  const float nyquist = spectrum[0].im;
  if (C == 2 && stride > 1) {
    filter_two(&spectrum->re, &spectrum[stride].re, &weights->re, stride);
  } else {
    filter_any(spectrum, weights, C, stride);
  }
  spectrum[0] = {0.0f, nyquist};
}
