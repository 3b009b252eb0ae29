// Signals and the reference processing that the tests of host layer and program share.
#ifndef SE_BF_TEST_AUDIO_H
#define SE_BF_TEST_AUDIO_H

#include <stdint.h>

#include <random>
#include <vector>

#include "tm_se_bf.h"

constexpr size_t BLOCK = 320;
constexpr size_t SECOND = 16000;  // samples

using pcm = std::vector<int16_t>;

// Interleaved noise: a part that the channels share, and a smaller one of each channel.
inline pcm make_noise(size_t frames, size_t channels, uint32_t seed, int amplitude = 6000) {
  std::mt19937 random(seed);
  const auto draw = [&random](int peak) {
    return static_cast<int>(random() % static_cast<uint32_t>(2 * peak + 1)) - peak;
  };
  pcm x;
  for (size_t t = 0; t < frames; ++t) {
    const int shared = draw(amplitude);
    for (size_t m = 0; m < channels; ++m) {
      x.push_back(static_cast<int16_t>(shared + draw(amplitude / 2)));
    }
  }
  return x;
}

inline pcm join(pcm a, const pcm &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline pcm part(const pcm &x, size_t from, size_t to) {
  return pcm(x.begin() + static_cast<long>(from), x.begin() + static_cast<long>(to));
}

// The bare library, called as its header says, with the delay found by an impulse cut off: 192
// samples at the hops 192 and 320, 256 at 160, none in mode mono.
inline pcm run_library(pcm in, int channels, int mode, int hop) {
  const se_bf_create_param sizes = {static_cast<int16_t>(channels), BLOCK, hop};
  const se_bf_init_param scene = {mode, 0.05f, 90.0f};
  const size_t frames = in.size() / static_cast<size_t>(channels);
  const size_t blocks = frames / BLOCK + 2;
  const bool copied = channels == 2 && mode == SE_BF_MODE_MONO;
  const size_t delay = copied ? 0 : (hop == 160 ? 256 : 192);
  in.resize(blocks * BLOCK * static_cast<size_t>(channels));
  pcm out(blocks * BLOCK);
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  for (size_t b = 0; b < blocks; ++b) {
    se_bf_do(inst, &out[b * BLOCK], &in[b * BLOCK * static_cast<size_t>(channels)]);
  }
  se_bf_destroy(inst);
  return part(out, delay, delay + frames);
}

#endif  // SE_BF_TEST_AUDIO_H
