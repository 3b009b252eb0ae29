// FFTW's real transform pair in single precision, measured plans.
#include <fftw3.h>

#include <algorithm>

#include "transform_pair.h"

namespace {

void pair_fftw(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  float *in = fftwf_alloc_real(static_cast<size_t>(n));
  float *out = fftwf_alloc_real(static_cast<size_t>(n));
  fftwf_complex *spectrum = fftwf_alloc_complex(static_cast<size_t>(n / 2 + 1));
  const fftwf_plan forward = fftwf_plan_dft_r2c_1d(n, in, spectrum, FFTW_MEASURE);
  const fftwf_plan inverse = fftwf_plan_dft_c2r_1d(n, spectrum, out, FFTW_MEASURE);

  // Planning overwrites the arrays.
  const std::vector<float> frame = noise_frame(n);
  std::copy(frame.begin(), frame.end(), in);
  for (auto _ : state) {
    fftwf_execute(forward);
    fftwf_execute(inverse);
    benchmark::ClobberMemory();
  }
  fftwf_destroy_plan(inverse);
  fftwf_destroy_plan(forward);
  fftwf_free(spectrum);
  fftwf_free(out);
  fftwf_free(in);
}
BENCHMARK(pair_fftw)->Apply(both_lengths);

}  // namespace
