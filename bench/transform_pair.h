// What the transform benchmarks share: the lengths and the frame that is transformed.
#ifndef TM_SE_BF_BENCH_TRANSFORM_PAIR_H
#define TM_SE_BF_BENCH_TRANSFORM_PAIR_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

// Registers a benchmark for both lengths that the library streams with.
inline void both_lengths(benchmark::internal::Benchmark *which) {
  which->ArgName("N")->Arg(256)->Arg(512);
}

// n samples of noise between -1 and 1, the same in every run.
inline std::vector<float> noise_frame(int32_t n) {
  constexpr uint32_t kSeed = 1;
  std::minstd_rand generator(kSeed);
  std::uniform_real_distribution<float> amplitude(-1.0f, 1.0f);
  std::vector<float> frame(static_cast<size_t>(n));
  for (float &sample : frame) {
    sample = amplitude(generator);
  }
  return frame;
}

#endif  // TM_SE_BF_BENCH_TRANSFORM_PAIR_H
