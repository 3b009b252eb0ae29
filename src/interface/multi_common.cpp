// Bin power, real gain and filter-and-sum on packed spectra.
#include "interface/multi_common.h"

#include "support/se_vector.h"

namespace {

SE_BF_VECTOR_CLONES void average_halves(float *frame, int32_t hop) {
  for (int32_t i = 0; i < hop; ++i) {
    frame[i] = (frame[i] + frame[hop + i]) * 0.5f;
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

// Power of the complex entries 0 .. stride - 1 of one spectrum, and of the mean of two.
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

SE_BF_VECTOR_CLONES void scale_entries(float *__restrict s, const float *__restrict gain,
                                       int32_t stride) {
  for (int32_t k = 1; k < stride; ++k) {
    s[2 * k] *= gain[k];
    s[2 * k + 1] *= gain[k];
  }
}

// y = conj(w0) x0 + conj(w1) x1 in place of x0, for entries 1 .. stride - 1.
SE_BF_VECTOR_CLONES void filter_and_sum_two(float *__restrict x0, const float *__restrict w,
                                            int32_t stride) {
  const float *x1 = x0 + 2 * stride;
  for (int32_t k = 1; k < stride; ++k) {
    const float first_re = w[4 * k] * x0[2 * k] + w[4 * k + 1] * x0[2 * k + 1];
    const float first_im = w[4 * k] * x0[2 * k + 1] - x0[2 * k] * w[4 * k + 1];
    const float second_re = w[4 * k + 2] * x1[2 * k] + w[4 * k + 3] * x1[2 * k + 1];
    const float second_im = w[4 * k + 2] * x1[2 * k + 1] - x1[2 * k] * w[4 * k + 3];
    x0[2 * k] = 0.0f + first_re + second_re;
    x0[2 * k + 1] = 0.0f + first_im + second_im;
  }
}

// The same for any number of channels.
SE_BF_RARELY_RUN void filter_and_sum(se_complex *spectrum, const se_complex *weights, int32_t C,
                                     int32_t stride) {
  for (int32_t k = 1; k < stride; ++k) {
    se_complex y = {0.0f, 0.0f};
    for (int32_t c = 0; c < C; ++c) {
      const se_complex w = weights[k * C + c];
      const se_complex x = spectrum[c * stride + k];
      y.re += w.re * x.re + w.im * x.im;
      y.im += w.re * x.im - x.re * w.im;
    }
    spectrum[k] = y;
  }
}

}  // namespace

void average_two_channels(float *frame, int32_t hop) {
  average_halves(frame, hop);
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

void mul_amp_real_gain(float *spec, const float *gain, int32_t count, int32_t n) {
  const int16_t bins = static_cast<int16_t>(n / 2 + 1);
  for (int32_t s = 0; s < count; ++s) {
    float *one = spec + s * n;
    one[0] *= gain[0];
    one[1] *= gain[bins - 1];
    scale_entries(one, gain, bins - 1);
  }
}

void mul_bf_gain(se_complex *spectrum, const se_complex *weights, int32_t C, int16_t N) {
  const int32_t stride = N / 2;
  spectrum[0].re = 0.0f;
  if (C == 2) {
    filter_and_sum_two(reinterpret_cast<float *>(spectrum),
                       reinterpret_cast<const float *>(weights), stride);
  } else {
    filter_and_sum(spectrum, weights, C, stride);
  }
}
