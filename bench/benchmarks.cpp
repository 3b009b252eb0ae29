// Measures the time of the parts of a frame and of whole modes: every transform kernel, the noise
// estimator, the gain rule, accumulation and weight update of the beamformer, and se_bf_do.
//
// RECORDING in the environment names the recording that the modes run on.
#include <benchmark/benchmark.h>

#include "interface/se_bf_instance.h"
#include "recording.h"
#include "spectral/vector/kernel.h"
#include "transform_pair.h"

namespace {

constexpr int32_t kPerCall = 960;

// Bins of the default hop.
constexpr int32_t kBins = 129;

// Kernels by number: 0 the scalar path, then SSE2, AVX2, NEON.
constexpr int64_t kKernels = 4;

const q31_vector_kernel *kernel_number(int64_t number) {
  const q31_vector_kernel *const kernels[] = {nullptr, &q31_vector_sse2, &q31_vector_avx2,
                                              &q31_vector_neon};
  return kernels[number];
}

const char *kernel_name(int64_t number) {
  const char *const names[] = {"scalar", "SSE2", "AVX2", "NEON"};
  return names[number];
}

// The kernels of other processors are empty. The AVX2 kernel exists in every x86-64 build; this
// processor can run it if the library chooses it.
bool can_run(int64_t number) {
  const q31_vector_kernel *kernel = kernel_number(number);
  const bool exists = kernel == nullptr || kernel->forward != nullptr;
  return exists && (kernel != &q31_vector_avx2 || q31_vector_kernel_for(256) == kernel);
}

void pair_kernel(benchmark::State &state) {
  const int32_t n = static_cast<int32_t>(state.range(0));
  state.SetLabel(kernel_name(state.range(1)));
  const std::vector<float> in = noise_frame(n);
  std::vector<float> spectrum(in.size());
  std::vector<float> out(in.size());
  fft_setup *setup = spx_fft_init(n);
  setup->kernel = kernel_number(state.range(1));
  for (auto _ : state) {
    spx_fft(setup, in.data(), spectrum.data());
    spx_ifft(setup, spectrum.data(), out.data());
    benchmark::ClobberMemory();
  }
  spx_fft_destroy(setup);
}

void every_kernel(benchmark::internal::Benchmark *which) {
  which->ArgNames({"N", "kernel"});
  for (int64_t number = 0; number < kKernels; ++number) {
    if (can_run(number)) {
      which->Args({256, number});
      which->Args({512, number});
    }
  }
}
BENCHMARK(pair_kernel)->Apply(every_kernel);

// A two-channel instance that has heard enough speech for every state to be in use.
se_bf_inst *warm_instance(int32_t mode, int32_t hop, recording *speech) {
  constexpr int32_t kWarmUpCalls = 60;
  const se_bf_create_param sizes = {kRecordedChannels, kPerCall, hop};
  const se_bf_init_param scene = {mode, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  std::vector<int16_t> in(kPerCall * kRecordedChannels);
  std::vector<int16_t> out(kPerCall);
  for (int32_t call = 0; call < kWarmUpCalls; ++call) {
    next_block(speech, kPerCall, kRecordedChannels, in.data());
    se_bf_do(inst, out.data(), in.data());
  }
  return inst;
}

// Power spectra to feed the estimator with.
std::vector<float> noise_powers() {
  std::vector<float> power = noise_frame(kBins);
  for (float &value : power) {
    value *= value;
  }
  return power;
}

void noise_estimator(benchmark::State &state) {
  const std::vector<float> power = noise_powers();
  mcra_state *mcra = mcra_init(kBins, 0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(mcra_do_mcra(mcra, power.data()));
  }
  mcra_uninit(mcra);
}
BENCHMARK(noise_estimator);

void gain_rule(benchmark::State &state) {
  const std::vector<float> power = noise_powers();
  const std::vector<float> noise(power.size(), 0.5f);
  const std::vector<float> prob(power.size(), 0.5f);
  omlsa_state *omlsa = omlsa_init(kBins, 0, 0.0f);
  for (auto _ : state) {
    benchmark::DoNotOptimize(do_ss(omlsa, power.data(), noise.data(), prob.data()));
  }
  omlsa_uninit(omlsa);
}
BENCHMARK(gain_rule);

void accumulation(benchmark::State &state) {
  recording speech = open_recording();
  se_bf_inst *inst = warm_instance(SE_BF_MODE_MVDR, 0, &speech);
  const std::vector<float> prob(kBins, 0.5f);
  const se_complex *spectrum = reinterpret_cast<const se_complex *>(inst->spectrum);
  for (auto _ : state) {
    mvdr_evd_psd_sta(inst->mvdr, spectrum, prob.data());
    benchmark::ClobberMemory();
  }
  se_bf_destroy(inst);
}
BENCHMARK(accumulation);

void weight_update(benchmark::State &state) {
  recording speech = open_recording();
  se_bf_inst *inst = warm_instance(SE_BF_MODE_MVDR, 0, &speech);
  for (auto _ : state) {
    benchmark::DoNotOptimize(mvdr_update_param(inst->mvdr));
  }
  se_bf_destroy(inst);
}
BENCHMARK(weight_update);

// One iteration is one call; per_frame is the time of one hop.
void whole_mode(benchmark::State &state) {
  recording speech = open_recording();
  const int32_t hop = static_cast<int32_t>(state.range(1));
  se_bf_inst *inst = warm_instance(static_cast<int32_t>(state.range(0)), hop, &speech);

  // The blocks come straight from the recording in memory, again and again, so that no time for
  // making blocks is counted.
  const size_t block = kPerCall * kRecordedChannels;
  const size_t blocks = speech.pcm.size() / block;
  std::vector<int16_t> out(kPerCall);
  size_t next = 0;
  for (auto _ : state) {
    se_bf_do(inst, out.data(), speech.pcm.data() + next * block);
    next = (next + 1) % blocks;
  }
  const double frames = static_cast<double>(kPerCall) / hop;
  state.counters["per_frame"] = benchmark::Counter(
      frames, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  se_bf_destroy(inst);
}
BENCHMARK(whole_mode)
    ->ArgNames({"mode", "hop"})
    ->ArgsProduct({{SE_BF_MODE_MEAN, SE_BF_MODE_OMLSA, SE_BF_MODE_MVDR}, {160, 192, 320}});

}  // namespace
