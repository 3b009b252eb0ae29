// The library's transform pair, float to float, with the kernel that it chooses on this processor.
#include "spectral/fftwrap_fixpoint.h"
#include "transform_pair.h"

namespace {

void pair_library(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  const std::vector<float> in = noise_frame(n);
  std::vector<float> spectrum(in.size());
  std::vector<float> out(in.size());
  fft_setup *setup = spx_fft_init(n);
  for (auto _ : state) {
    spx_fft(setup, in.data(), spectrum.data());
    spx_ifft(setup, spectrum.data(), out.data());
    benchmark::ClobberMemory();
  }
  spx_fft_destroy(setup);
}
BENCHMARK(pair_library)->Apply(both_lengths);

}  // namespace
