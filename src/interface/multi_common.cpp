// Bin power, real gain and filter-and-sum on packed spectra.
#include "interface/multi_common.h"

void mean_bin_power(const float *spectrum, int32_t channels, int32_t bins, float *power) {
  const int32_t stride = 2 * (bins - 1);
  for (int32_t k = 0; k < bins; ++k) {
    power[k] = 0.0f;
  }
  for (int32_t c = 0; c < channels; ++c) {
    const float *s = spectrum + c * stride;
    power[0] += s[0] * s[0];
    power[bins - 1] += s[1] * s[1];
    for (int32_t k = 1; k < bins - 1; ++k) {
      power[k] += s[2 * k] * s[2 * k] + s[2 * k + 1] * s[2 * k + 1];
    }
  }
  for (int32_t k = 0; k < bins; ++k) {
    power[k] /= static_cast<float>(channels);
  }
}

void mul_amp_real_gain(float *spec, const float *gain, int32_t count, int32_t n) {
  const int16_t bins = static_cast<int16_t>(n / 2 + 1);
  for (int32_t s = 0; s < count; ++s) {
    float *one = spec + s * n;
    one[0] *= gain[0];
    one[1] *= gain[bins - 1];
    for (int32_t k = 1; k < bins - 1; ++k) {
      one[2 * k] *= gain[k];
      one[2 * k + 1] *= gain[k];
    }
  }
}

void mul_bf_gain(se_complex *spectrum, const se_complex *weights, int32_t C, int16_t N) {
  const int32_t stride = N / 2;
  spectrum[0].re = 0.0f;
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
