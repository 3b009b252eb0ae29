// Block scaling, conversion to Q31 and back.
#include "spectral/fftwrap_fixpoint.h"

#include <cfloat>
#include <cstring>

namespace {

// Word to which the peak of a block is scaled: two bits of headroom below Q31 full scale.
constexpr float kBlockPeakQ31 = 536870912.0f;

// First float beyond the 32-bit range.
constexpr float kQ31Limit = 2147483648.0f;

// Truncates toward zero; saturates, and takes not-a-number as 0, so that every processor gives the
// same words.
int32_t float_to_q31(float x) {
  if (x >= kQ31Limit) {
    return INT32_MAX;
  }
  if (x < -kQ31Limit) {
    return INT32_MIN;
  }
  return x == x ? static_cast<int32_t>(x) : 0;
}

// Scale that brings max |in| to kBlockPeakQ31; 1 for a silent block. A not-a-number never wins.
float block_scale(const float *in, int32_t count) {
  float peak = 0.0f;
  for (int32_t i = 0; i < count; ++i) {
    if (in[i] > peak) {
      peak = in[i];
    } else if (-in[i] > peak) {
      peak = -in[i];
    }
  }
  return peak > 0.0f ? kBlockPeakQ31 / peak : 1.0f;
}

// What becomes of a block whose peak is so small that its scale is not finite.
void silence(float *out, int32_t count) {
  std::memset(out, 0, static_cast<size_t>(count) * sizeof(float));
}

// product[i] = x[i] window[i]; product may be x.
void apply_window(const float *x, const float *window, float *product, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    product[i] = x[i] * window[i];
  }
}

void to_q31(const float *in, float scale, int32_t *out, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    out[i] = float_to_q31(scale * in[i]);
  }
}

void from_q31(const int32_t *in, float gain, float *out, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    out[i] = static_cast<float>(in[i]) * gain;
  }
}

}  // namespace

fft_setup *spx_fft_init(core_state *core, int32_t n) {
  fft_setup *setup = static_cast<fft_setup *>(tamrin_malloc(core, sizeof(fft_setup)));
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
  setup->spectrum_q31 = static_cast<int32_t *>(tamrin_malloc(core, 2 * n * word));
  setup->frame_q31 = static_cast<int32_t *>(tamrin_malloc(core, n * word));

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
  const q31_vector_work work = {setup->frame_q31, setup->spectrum_q31};
  if (setup->kernel != nullptr) {
    setup->kernel->forward(work, setup->n, in, nullptr, nullptr, out);
    return;
  }
  const float scale = block_scale(in, setup->n);
  if (scale > FLT_MAX) {
    silence(out, setup->n);
    return;
  }
  to_q31(in, scale, setup->frame_q31, setup->n);
  arm_rfft_q31(&setup->forward, setup->frame_q31, setup->spectrum_q31);
  from_q31(setup->spectrum_q31, 1.0f / scale, out, setup->n);
}

void spx_fft_fixpoint(fft_setup *setup, const float *in, float *out) {
  spx_fft(setup, in, out);
}

void spx_ifft(fft_setup *setup, const float *in, float *out) {
  spx_ifft_fixpoint(setup, in, out);
}

void spx_ifft_fixpoint(fft_setup *setup, const float *in, float *out) {
  const q31_vector_work work = {setup->frame_q31, setup->spectrum_q31};
  if (setup->kernel != nullptr) {
    setup->kernel->inverse(work, setup->n, in, nullptr, out);
    return;
  }
  const float scale = block_scale(in, setup->n);
  if (scale > FLT_MAX) {
    silence(out, setup->n);
    return;
  }
  to_q31(in, scale, setup->spectrum_q31, setup->n);

  // The inverse reads bins 0 to N/2: the Nyquist pair behind the packed spectrum is nothing.
  for (int32_t i = setup->n; i < 2 * setup->n; ++i) {
    setup->spectrum_q31[i] = 0;
  }

  arm_rfft_q31(&setup->inverse, setup->spectrum_q31, setup->frame_q31);
  const float gain = 1.0f / (scale / static_cast<float>(setup->n));
  from_q31(setup->frame_q31, gain, out, setup->n);
}

void spx_fft_windowed(fft_setup *setup, const float *in, const float *window, float *product,
                      float *out) {
  if (setup->kernel != nullptr) {
    const q31_vector_work work = {setup->frame_q31, setup->spectrum_q31};
    setup->kernel->forward(work, setup->n, in, window, product, out);
    return;
  }
  apply_window(in, window, product, setup->n);
  spx_fft(setup, product, out);
}

void spx_ifft_windowed(fft_setup *setup, const float *in, const float *window, float *out) {
  if (setup->kernel != nullptr) {
    const q31_vector_work work = {setup->frame_q31, setup->spectrum_q31};
    setup->kernel->inverse(work, setup->n, in, window, out);
    return;
  }
  spx_ifft(setup, in, out);
  apply_window(out, window, out, setup->n);
}
