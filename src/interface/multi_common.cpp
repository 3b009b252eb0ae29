// Bin power, real gain and filter-and-sum on packed spectra.
#include "interface/multi_common.h"

#include "support/se_vector.h"

namespace {

SE_BF_VECTOR_CLONES void subtract_noise(float *__restrict power, const float *__restrict noise,
                                        int32_t bins) {
  for (int32_t k = 0; k < bins; ++k) {
    const float gain = (power[k] - noise[k]) / power[k];
    const float above_noise = power[k] > noise[k] ? gain : 0.0f;
    power[k] = power[k] > 0.0f ? above_noise : 0.0f;
  }
}

// Power of the complex entries 0 .. stride - 1 of one spectrum, and its mean over two.
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
  for (int32_t k = 0; k < stride; ++k) {
    s[2 * k] *= gain[k];
    s[2 * k + 1] *= gain[k];
  }
}

// y = conj(w0) x0 + conj(w1) x1 in place of x0, for entries 0 .. kMvdrLanes * count - 1.
SE_BF_VECTOR_CLONES void filter_and_sum(float *__restrict x0, const float *__restrict x1,
                                        const mvdr_block *__restrict blocks, int32_t count) {
  for (int32_t n = 0; n < count; ++n) {
    const complex_lanes *w = blocks[n].weights;
    float *first = x0 + 2 * kMvdrLanes * n;
    const float *second = x1 + 2 * kMvdrLanes * n;
    for (int32_t i = 0; i < kMvdrLanes; ++i) {
      const float a = first[2 * i];
      const float b = first[2 * i + 1];
      const float c = second[2 * i];
      const float d = second[2 * i + 1];
      // w^H x is a sum over the microphones. It starts with its first term, not with 0: the two
      // differ only in the sign of a zero, which the inverse transform drops.
      first[2 * i] = (w[0].re[i] * a + w[0].im[i] * b) + (w[1].re[i] * c + w[1].im[i] * d);
      first[2 * i + 1] = (w[0].re[i] * b - a * w[0].im[i]) + (w[1].re[i] * d - c * w[1].im[i]);
    }
  }
}

}  // namespace

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
    const float nyquist = one[1] * gain[bins - 1];
    scale_entries(one, gain, bins - 1);
    one[1] = nyquist;
  }
}

void mul_bf_gain(se_complex *spectrum, const mvdr_block *weights, int32_t C, int16_t N) {
  const float nyquist = spectrum[0].im;
  if (C == kBeamformerChannels) {
    float *first = &spectrum[0].re;
    filter_and_sum(first, first + N, weights, N / 2 / kMvdrLanes);
  }
  spectrum[0] = {0.0f, nyquist};
}
