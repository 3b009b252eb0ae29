// Runs whole streams through a fresh instance by way of the public header.
#ifndef TM_SE_BF_TESTS_STREAM_RUN_H
#define TM_SE_BF_TESTS_STREAM_RUN_H

#include "test_signals.h"
#include "tm_se_bf.h"

struct hop_figures {
  int32_t hop;
  int32_t fft_len;
  int32_t reported;  // latency that se_bf_init returns
  size_t delay;      // of the signal
};

constexpr hop_figures kHops[] = {{160, 256, 288, 256}, {192, 256, 256, 192}, {320, 512, 256, 192}};
constexpr int32_t kModes[] = {SE_BF_MODE_MEAN, SE_BF_MODE_OMLSA, SE_BF_MODE_MVDR, SE_BF_MODE_MONO};

struct stream_setup {
  int16_t channels;
  int32_t samples_per_call;
  int32_t hop;
  int32_t mode;
};

inline se_bf_inst *make_instance(const stream_setup &setup) {
  const se_bf_create_param sizes = {setup.channels, setup.samples_per_call, setup.hop};
  const se_bf_init_param scene = {setup.mode, 0.0f, 0.0f};
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

inline pcm run_stream(const stream_setup &setup, pcm input) {
  se_bf_inst *inst = make_instance(setup);
  se_bf_change_mode(inst, setup.mode);  // no change, and none at all with one channel
  pcm output = process(inst, setup, &input);
  se_bf_destroy(inst);
  return output;
}

#endif  // TM_SE_BF_TESTS_STREAM_RUN_H
