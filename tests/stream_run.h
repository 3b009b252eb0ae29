// Runs whole streams through a new instance, through the public header.
#ifndef TM_SE_BF_TESTS_STREAM_RUN_H
#define TM_SE_BF_TESTS_STREAM_RUN_H

#include <fstream>
#include <iterator>

#include "test_signals.h"
#include "tm_se_bf.h"

struct hop_figures {
  int32_t hop;
  int32_t fft_len;
  int32_t delay;  // of the signal
};

constexpr hop_figures kHops[] = {{160, 256, 256}, {192, 256, 192}, {320, 512, 192}};

struct stream_setup {
  int16_t channels;
  int32_t samples_per_call;
  int32_t hop;
  int32_t mode;
  float mic_distance = 0.0f;  // m
  float doa = 0.0f;           // degrees
};

constexpr stream_setup kBeamformer = {2, 320, 192, SE_BF_MODE_MVDR};

// Two microphones on one talker, each with noise of its own.
inline std::vector<wave> microphones(uint32_t seed, size_t count, double noise_rms) {
  const wave voice = speech(count, 2000.0);
  return {voice + white_noise(seed, count, noise_rms),
          0.9 * voice + white_noise(seed + 1, count, noise_rms)};
}

inline se_bf_inst *make_instance(const stream_setup &setup) {
  const se_bf_create_param sizes = {setup.channels, setup.samples_per_call, setup.hop};
  const se_bf_init_param scene = {setup.mode, setup.mic_distance, setup.doa};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  return inst;
}

// Runs the whole calls that `input` holds; the library may repair a channel of it.
inline pcm process(se_bf_inst *inst, const stream_setup &setup, pcm *input) {
  const size_t frames = static_cast<size_t>(setup.samples_per_call);
  const size_t channels = static_cast<size_t>(setup.channels);
  pcm output(input->size() / channels / frames * frames, 0x5A5A);  // loud where nothing is written
  for (size_t n = 0; n < output.size(); n += frames) {
    se_bf_do(inst, output.data() + n, input->data() + n * channels);
  }
  return output;
}

// The library may repair a channel in `input`.
inline pcm run_in_place(const stream_setup &setup, pcm *input) {
  se_bf_inst *inst = make_instance(setup);
  pcm output = process(inst, setup, input);
  se_bf_destroy(inst);
  return output;
}

inline pcm run_stream(const stream_setup &setup, pcm input) {
  return run_in_place(setup, &input);
}

// Samples of a raw 16-bit little-endian file; none when it cannot be read.
inline pcm read_words(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  pcm words;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    words.push_back(static_cast<int16_t>(bytes[i] | bytes[i + 1] << 8));
  }
  return words;
}

#endif  // TM_SE_BF_TESTS_STREAM_RUN_H
