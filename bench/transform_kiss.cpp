// KissFFT's real transform pair in single precision.
#include <kiss_fftr.h>

#include "transform_pair.h"

namespace {

void pair_kiss(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  const std::vector<float> in = noise_frame(n);
  std::vector<kiss_fft_cpx> spectrum(in.size() / 2 + 1);
  std::vector<float> out(in.size());
  const kiss_fftr_cfg forward = kiss_fftr_alloc(n, 0, nullptr, nullptr);
  const kiss_fftr_cfg inverse = kiss_fftr_alloc(n, 1, nullptr, nullptr);
  for (auto _ : state) {
    kiss_fftr(forward, in.data(), spectrum.data());
    kiss_fftri(inverse, spectrum.data(), out.data());
    benchmark::ClobberMemory();
  }
  kiss_fftr_free(inverse);
  kiss_fftr_free(forward);
}
BENCHMARK(pair_kiss)->Apply(both_lengths);

}  // namespace
