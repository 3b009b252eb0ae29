// Fuzzes the Q31 transform pair: through the float wrapper with any floats, on the scalar path and
// on every vector kernel, and raw with any words. Paths must agree to the bit, no fixed-point
// operation may leave its range on the way from the wrapper, and a round trip must return the
// block.
#include <algorithm>
#include <cmath>
#include <vector>

#include "script.h"
#include "spectral/fftwrap_fixpoint.h"
#include "spectral/q31_arith.h"

namespace {

using block = std::vector<float>;

constexpr uint32_t kLengths = 9;
constexpr uint32_t kShortest = 32;

// Blocks within these peaks neither overflow nor fall under the block scaling.
constexpr double kSmallestPeak = 1e-20;
constexpr double kLargestPeak = 1e20;

// Error of a round trip per point, relative to the peak. Truncated products bias all bins of a
// nearly constant block alike, by up to some 63 units in the last place of a word of 2^29, and in
// one sample they add up; the limit is twice that.
constexpr double kRoundTripError = 128.0 / 536870912.0;

// A block that repeats the rest of the script as any floats, as signs of one level, or as small
// multiples of it.
block take_block(fuzz_script *script, uint32_t n) {
  const uint32_t kind = take(script, 1) % 4;
  const float level = take_float(script);
  const fuzz_script pattern = *script;
  block x(n);
  for (uint32_t i = 0; i < n; ++i) {
    if (script->left == 0) {
      *script = pattern;
    }
    if (kind == 0) {
      x[i] = take_float(script);
    } else if (kind == 1) {
      x[i] = take(script, 1) % 2 == 0 ? level : -level;
    } else {
      x[i] = level * static_cast<float>(static_cast<int8_t>(take(script, 1)));
    }
  }
  return x;
}

block transform(fft_setup *setup, const q31_vector_kernel *kernel, const block &in, bool inverse) {
  block out(in.size());
  setup->kernel = kernel;
  if (inverse) {
    spx_ifft(setup, in.data(), out.data());
  } else {
    spx_fft(setup, in.data(), out.data());
  }
  return out;
}

// Every vector kernel that this processor runs must repeat the scalar path.
void check_kernels(fft_setup *setup, const block &in, const block &expected, bool inverse) {
  const q31_vector_kernel *const fastest = q31_vector_kernel_for(setup->n);
  if (fastest == nullptr) {
    return;
  }
  const q31_vector_kernel *const kernels[] = {fastest, &q31_vector_sse2, &q31_vector_neon};
  for (const q31_vector_kernel *kernel : kernels) {
    if (kernel->forward == nullptr) {
      continue;
    }
    const block out = transform(setup, kernel, in, inverse);
    for (size_t i = 0; i < out.size(); ++i) {
      require(out[i] == expected[i] || (std::isnan(out[i]) && std::isnan(expected[i])));
    }
  }
}

void check_round_trip(const block &x, const block &y) {
  double peak = 0.0;
  double nyquist = 0.0;
  for (size_t i = 0; i < x.size(); ++i) {
    const double sample = static_cast<double>(x[i]);
    // Also true for not-a-number and infinity.
    if (!(std::fabs(sample) <= kLargestPeak)) {
      return;
    }
    peak = std::max(peak, std::fabs(sample));
    nyquist += (i % 2 == 0 ? sample : -sample) / static_cast<double>(x.size());
  }
  if (peak < kSmallestPeak) {
    return;
  }
  const double tolerance = kRoundTripError * peak * static_cast<double>(x.size());
  for (size_t i = 0; i < x.size(); ++i) {
    const double kept = static_cast<double>(x[i]) - (i % 2 == 0 ? nyquist : -nyquist);
    require(std::fabs(static_cast<double>(y[i]) - kept) <= tolerance);
  }
}

void fuzz_wrapper(fft_setup *setup, fuzz_script *script) {
  const block x = take_block(script, static_cast<uint32_t>(setup->n));
  const block spectrum = transform(setup, nullptr, x, false);
  const block y = transform(setup, nullptr, spectrum, true);
  // Any block is also a spectrum.
  const block z = transform(setup, nullptr, x, true);
  require(q31_log_overflows() == 0);
  check_round_trip(x, y);
  check_kernels(setup, x, spectrum, false);
  check_kernels(setup, spectrum, y, true);
  check_kernels(setup, x, z, true);
}

// Words beyond what the wrapper hands over wrap; all that is asked is that nothing else happens.
void fuzz_raw(fft_setup *setup, fuzz_script *script) {
  const size_t n = static_cast<size_t>(setup->n);
  std::vector<int32_t> frame(n);
  std::vector<int32_t> spectrum(2 * n);
  const fuzz_script pattern = *script;
  for (int32_t &word : frame) {
    if (script->left == 0) {
      *script = pattern;
    }
    word = static_cast<int32_t>(take(script, sizeof word));
  }
  arm_rfft_q31(&setup->forward, frame.data(), spectrum.data());
  arm_rfft_q31(&setup->inverse, spectrum.data(), frame.data());
  q31_log_clear();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz_script script = {data, size};
  const uint32_t choice = take(&script, 1);
  const uint32_t n = kShortest << choice % kLengths;
  tamrin_free(nullptr);
  fft_setup *setup = spx_fft_init(static_cast<int32_t>(n));
  if (choice / kLengths % 4 == 0) {
    fuzz_raw(setup, &script);
  } else {
    fuzz_wrapper(setup, &script);
  }
  return 0;
}
