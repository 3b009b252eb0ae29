// Block scaling, conversion to Q31 and back.
#include "spectral/fftwrap_fixpoint.h"

#include <cfloat>
#include <cstring>

#include "spectral/q31_format.h"

namespace {

// Bits of a magnitude. As integers they are in the order of the numbers: infinity is above all of
// them, and not-a-number above infinity.
uint32_t magnitude_bits(float x) {
  uint32_t bits = 0;
  std::memcpy(&bits, &x, sizeof bits);
  return bits & static_cast<uint32_t>(INT32_MAX);
}

constexpr uint32_t kInfinityBits = 0x7f800000;

// Largest magnitude that is a number or infinity, and whether all are numbers.
struct block_peak {
  float peak;
  bool numbers;
};

block_peak peak_of(const float *in, int32_t count) {
  uint32_t bits = 0;
  for (int32_t i = 0; i < count; ++i) {
    const uint32_t magnitude = magnitude_bits(in[i]);
    bits = magnitude > bits ? magnitude : bits;
  }
  const bool numbers = bits < kInfinityBits;
  if (bits > kInfinityBits) {
    bits = 0;
    for (int32_t i = 0; i < count; ++i) {
      const uint32_t magnitude = magnitude_bits(in[i]);
      bits = magnitude > bits && magnitude <= kInfinityBits ? magnitude : bits;
    }
  }
  float peak = 0.0f;
  std::memcpy(&peak, &bits, sizeof peak);
  return {peak, numbers};
}

// Scale that brings the peak to kBlockPeakQ31; 1 for a silent block.
float block_scale(block_peak block) {
  return block.peak > 0.0f ? kBlockPeakQ31 / block.peak : 1.0f;
}

// product[i] = x[i] window[i]; product may be x.
void apply_window(const float *x, const float *window, float *product, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    product[i] = x[i] * window[i];
  }
}

// Truncates toward zero. In a block with infinite samples, the scale is 0 and every other sample
// becomes 0; so do products that are not a number. So every processor gives the same words.
void to_q31(const float *in, block_peak block, float scale, int32_t *out, int32_t count) {
  if (block.numbers) {
    for (int32_t i = 0; i < count; ++i) {
      out[i] = static_cast<int32_t>(scale * in[i]);
    }
    return;
  }
  for (int32_t i = 0; i < count; ++i) {
    const float x = scale * in[i];
    out[i] = x == x ? static_cast<int32_t>(x) : 0;
  }
}

void from_q31(const int32_t *in, float gain, float *out, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    out[i] = static_cast<float>(in[i]) * gain;
  }
}

// Both directions return false, without a transform, when the peak of the block is so small that
// its scale is not finite.
bool scalar_forward(fft_setup *setup, const float *in, const float *window, float *product,
                    float *out) {
  const int32_t n = setup->n;
  const float *samples = in;
  if (window != nullptr) {
    apply_window(in, window, product, n);
    samples = product;
  }
  const block_peak block = peak_of(samples, n);
  const float scale = block_scale(block);
  if (scale > FLT_MAX) {
    return false;
  }

  to_q31(samples, block, scale, setup->frame_q31, n);
  arm_rfft_q31(&setup->forward, setup->frame_q31, setup->spectrum_q31);
  from_q31(setup->spectrum_q31, 1.0f / scale, out, n);
  return true;
}

bool scalar_inverse(fft_setup *setup, const float *in, const float *window, float *out) {
  const int32_t n = setup->n;
  const block_peak block = peak_of(in, n);
  const float scale = block_scale(block);
  if (scale > FLT_MAX) {
    return false;
  }

  to_q31(in, block, scale, setup->spectrum_q31, n);
  // The inverse reads bins 0 to N/2. Bin N/2, behind the packed spectrum, is set to 0.
  for (int32_t i = n; i < 2 * n; ++i) {
    setup->spectrum_q31[i] = 0;
  }
  arm_rfft_q31(&setup->inverse, setup->spectrum_q31, setup->frame_q31);
  const float gain = 1.0f / (scale / static_cast<float>(n));
  from_q31(setup->frame_q31, gain, out, n);
  if (window != nullptr) {
    apply_window(out, window, out, n);
  }
  return true;
}

// Result of a block that has no finite scale.
void silence(float *out, int32_t count) {
  std::memset(out, 0, static_cast<size_t>(count) * sizeof(float));
}

}  // namespace

fft_setup *spx_fft_init_in(core_state *core, int32_t n) {
  fft_setup *setup = static_cast<fft_setup *>(tamrin_malloc_in(core, sizeof(fft_setup)));
  tamrin_note(core, "cmsis fixpoint fft");
  if (setup == nullptr) {
    return nullptr;
  }

  const uint32_t length = static_cast<uint32_t>(n);
  const int32_t forward_status = arm_rfft_init_q31(&setup->forward, length, 0, 1);
  const int32_t inverse_status = arm_rfft_init_q31(&setup->inverse, length, 1, 1);
  setup->n = n;
  setup->kernel = q31_vector_kernel_for(n);
  const int32_t word = sizeof(int32_t);
  setup->spectrum_q31 = static_cast<int32_t *>(tamrin_malloc_in(core, 2 * n * word));
  setup->frame_q31 = static_cast<int32_t *>(tamrin_malloc_in(core, n * word));

  const bool supported = forward_status == 0 && inverse_status == 0;
  const bool allocated = setup->spectrum_q31 != nullptr && setup->frame_q31 != nullptr;
  return supported && allocated ? setup : nullptr;
}

void spx_fft_destroy(fft_setup *setup) {
  if (setup == nullptr) {
    return;
  }
  tamrin_free(setup->frame_q31);
  tamrin_free(setup->spectrum_q31);
  tamrin_free(setup);
}

void spx_fft(fft_setup *setup, const float *in, float *out) {
  spx_fft_windowed(setup, in, nullptr, nullptr, out);
}

void spx_fft_fixpoint(fft_setup *setup, const float *in, float *out) {
  spx_fft(setup, in, out);
}

void spx_ifft(fft_setup *setup, const float *in, float *out) {
  spx_ifft_fixpoint(setup, in, out);
}

void spx_ifft_fixpoint(fft_setup *setup, const float *in, float *out) {
  spx_ifft_windowed(setup, in, nullptr, out);
}

void spx_fft_windowed(fft_setup *setup, const float *in, const float *window, float *product,
                      float *out) {
  const q31_vector_work work = {setup->frame_q31, setup->spectrum_q31};
  const bool done =
      setup->kernel != nullptr && setup->kernel->forward(work, setup->n, in, window, product, out);
  if (!done && !scalar_forward(setup, in, window, product, out)) {
    silence(out, setup->n);
  }
}

void spx_ifft_windowed(fft_setup *setup, const float *in, const float *window, float *out) {
  const q31_vector_work work = {setup->frame_q31, setup->spectrum_q31};
  const bool done =
      setup->kernel != nullptr && setup->kernel->inverse(work, setup->n, in, window, out);
  if (!done && !scalar_inverse(setup, in, window, out)) {
    silence(out, setup->n);
  }
}
