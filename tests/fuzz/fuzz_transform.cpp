// Fuzzes the Q31 transform pair: through the float wrapper with any floats, on the scalar path and
// on every vector kernel, and directly with any words. All paths must give the same bits, and no
// fixed-point operation may leave its range on data from the wrapper.
#include <cmath>
#include <vector>

#include "script.h"
#include "spectral/fftwrap_fixpoint.h"
#include "spectral/q31_arith.h"

namespace {

using block = std::vector<float>;

constexpr uint32_t kLengths = 9;
constexpr uint32_t kShortest = 32;

// Takes from the rest of the script, which is repeated when it ends.
uint32_t take_again(fuzz_script *script, const fuzz_script &rest, size_t bytes) {
  if (script->left == 0) {
    *script = rest;
  }
  return take(script, bytes);
}

// Any floats, signs of one level, or small multiples of it.
block take_block(fuzz_script *script, int32_t n) {
  const uint32_t kind = take(script, 1) % 4;
  const float level = take_float(script);
  const fuzz_script rest = *script;
  block x(static_cast<size_t>(n));
  for (float &sample : x) {
    const uint32_t bits = take_again(script, rest, kind == 0 ? sizeof sample : 1);
    if (kind == 0) {
      std::memcpy(&sample, &bits, sizeof sample);
    } else if (kind == 1) {
      sample = bits % 2 == 0 ? level : -level;
    } else {
      sample = level * static_cast<float>(static_cast<int8_t>(bits));
    }
  }
  return x;
}

// Transforms on the scalar path, and on every vector kernel that this processor can run: all must
// give the same bits.
block transform(fft_setup *setup, const block &in,
                void (*run)(fft_setup *, const float *, float *)) {
  block expected(in.size());
  block out(in.size());
  setup->kernel = nullptr;
  run(setup, in.data(), expected.data());
  const bool has_kernel = setup->n == kVectorShortLength || setup->n == kVectorLongLength;
  for (const q31_vector_kernel *kernel :
       {&q31_vector_avx2, &q31_vector_avx, &q31_vector_sse41, &q31_vector_sse2, &q31_vector_neon}) {
    if (!has_kernel || !q31_vector_runs(kernel)) {
      continue;
    }
    setup->kernel = kernel;
    run(setup, in.data(), out.data());
    for (size_t i = 0; i < out.size(); ++i) {
      assert(out[i] == expected[i] || (std::isnan(out[i]) && std::isnan(expected[i])));
    }
  }
  return expected;
}

void fuzz_wrapper(fft_setup *setup, fuzz_script *script) {
  const block x = take_block(script, setup->n);
  const block spectrum = transform(setup, x, spx_fft);
  transform(setup, spectrum, spx_ifft);
  transform(setup, x, spx_ifft);  // any block is also a spectrum
  assert(q31_log_overflows() == 0);
}

// Words beyond those of the wrapper may wrap around; nothing worse must happen.
void fuzz_raw(fft_setup *setup, fuzz_script *script) {
  const size_t n = static_cast<size_t>(setup->n);
  std::vector<int32_t> frame(n);
  std::vector<int32_t> spectrum(2 * n);
  const fuzz_script rest = *script;
  for (int32_t &word : frame) {
    word = static_cast<int32_t>(take_again(script, rest, sizeof word));
  }
  arm_rfft_q31(&setup->forward, frame.data(), spectrum.data());
  arm_rfft_q31(&setup->inverse, spectrum.data(), frame.data());
  q31_log_clear();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz_script script = {data, size};
  const uint32_t choice = take(&script, 1);
  tamrin_free(nullptr);
  fft_setup *setup = spx_fft_init(static_cast<int32_t>(kShortest << choice % kLengths));
  if (choice / kLengths % 4 == 0) {
    fuzz_raw(setup, &script);
  } else {
    fuzz_wrapper(setup, &script);
  }
  return 0;
}
