// Conformance run, timing statistics and report.
#include "conformance/se_bf_conform.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "conformance/pcm_bf_mvdr.h"
#include "conformance/pcm_in_multi.h"
#include "support/se_time.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kSamplesPerCall = 2560;
constexpr int32_t kTimedCalls = 12;
constexpr int32_t kCallWords = kSamplesPerCall * kRecordingChannels;
constexpr int32_t kTailWords = kRecordingFrames * kRecordingChannels - kTimedCalls * kCallWords;
constexpr int32_t kComparedSamples = 31936;
constexpr int32_t kOutputSamples = 35072;

constexpr double kBlockMs = 160.0;
constexpr double kMicrosecondsPerMs = 1000.0;
constexpr double kPercent = 100.0;

constexpr char kRule[] = "##-----------------------------------------------------##";

// Output of all calls, and the tail of the recording that does not fill a call. Process-wide.
int16_t buff_out[kOutputSamples];
int16_t buff_in_last[kTailWords];

struct timing {
  uint64_t sum_us;
  uint64_t max_us;
};

struct type_mode {
  const char *name;
  int32_t mode;
};

constexpr type_mode kTypes[] = {{"bf_mean", SE_BF_MODE_MEAN},
                                {"bf_omlsa", SE_BF_MODE_OMLSA},
                                {"bf_mvdr", SE_BF_MODE_MVDR},
                                {"bf_mono", SE_BF_MODE_MONO}};

int32_t mode_of_type(const char *se_type) {
  for (const type_mode &type : kTypes) {
    if (std::strcmp(se_type, type.name) == 0) {
      return type.mode;
    }
  }
  return 0;
}

// se_bf_do may repair a channel of its input, so each call gets a private copy of the recording.
void load_call(int16_t *block, const int16_t *from, int32_t words) {
  std::memset(block, 0, kCallWords * sizeof(int16_t));
  std::memcpy(block, from, static_cast<size_t>(words) * sizeof(int16_t));
}

timing run_recording(se_bf_inst *inst) {
  timing times = {0, 0};
  int16_t block[kCallWords];
  int16_t *out = buff_out;
  for (int32_t call = 0; call < kTimedCalls; ++call) {
    load_call(block, g_buf_multi_in + call * kCallWords, kCallWords);
    const uint64_t start = get_cur_time();
    out += se_bf_do(inst, out, block);
    const uint64_t elapsed = get_cur_time() - start;
    times.sum_us += elapsed;
    times.max_us = elapsed > times.max_us ? elapsed : times.max_us;
  }

  // The last call is a full block whose second half is silent.
  std::memcpy(buff_in_last, g_buf_multi_in + kTimedCalls * kCallWords, sizeof buff_in_last);
  load_call(block, buff_in_last, kTailWords);
  se_bf_do(inst, out, block);
  return times;
}

// Times are rounded to single precision, which is exact for microseconds up to 16.7 s; printf takes
// doubles.
void print_timing(timing times) {
  const double sum_ms = static_cast<double>(static_cast<float>(times.sum_us)) / kMicrosecondsPerMs;
  const double max_ms = static_cast<double>(static_cast<float>(times.max_us)) / kMicrosecondsPerMs;
  std::puts(kRule);
  std::puts("time consume statistics:");
  std::printf("####\t[mean,max]=[%.2f,%.2f]/%.f(ms)\t####\n", sum_ms / kTimedCalls, max_ms,
              kBlockMs);
  std::printf("####\trtf =%.2f%%  \tmax_rtf=%.2f%%\t####\n",
              sum_ms * kPercent / kTimedCalls / kBlockMs, max_ms * kPercent / kBlockMs);
  std::puts(kRule);
}

// The output from sample `delay` on, or null: the latency of an unsupported hop can be outside the
// buffer.
const int16_t *delayed_output(int32_t delay) {
  const bool inside = delay >= 0 && delay <= kOutputSamples - kComparedSamples;
  return inside ? buff_out + delay : nullptr;
}

}  // namespace

float conform_analysis_on_bf_output(const int16_t *x, const int16_t *y, int32_t n, float *pwr_x,
                                    float *pwr_y) {
  float cross = 0.0f;
  float energy_x = 0.0f;
  float energy_y = 0.0f;
  for (int32_t i = 0; i < n; ++i) {
    const int32_t sample_x = x[i];
    const int32_t sample_y = y != nullptr ? y[i] : 0;
    cross += static_cast<float>(sample_x * sample_y);
    energy_x += static_cast<float>(sample_x * sample_x);
    energy_y += static_cast<float>(sample_y * sample_y);
  }

  const float count = static_cast<float>(n);
  *pwr_x = energy_x / count;
  *pwr_y = energy_y / count;
  const double norm = std::sqrt(static_cast<double>(*pwr_x * *pwr_y));
  return static_cast<float>(static_cast<double>(cross / count) / norm);
}

int32_t se_bf_conformance_test(const char *se_type, int32_t hop_len) {
  return bf_conformance_test(se_type, hop_len);
}

int32_t bf_conformance_test(const char *se_type, int32_t hop_len) {
  const char *type = se_type == nullptr ? "(null)" : se_type;
  std::puts("conformance test:----------------------------------------------");

  se_bf_create_param sizes = {};
  sizes.num_ch_in = kRecordingChannels;
  sizes.samples_per_call = kSamplesPerCall;
  sizes.hop_len = hop_len;
  se_bf_init_param scene = {};
  scene.mode = mode_of_type(type);

  se_bf_inst *inst = se_bf_create(&sizes);
  const int32_t delay = se_bf_init(inst, &scene);
  const timing times = run_recording(inst);
  print_timing(times);
  se_bf_destroy(inst);

  float reference_power = 0.0f;
  float output_power = 0.0f;
  const float similarity = conform_analysis_on_bf_output(
      g_buf_bf_mvdr, delayed_output(delay), kComparedSamples, &reference_power, &output_power);
  return std::printf("se_type= %s: similarity=%f, pwr_sim=%f\n", type,
                     static_cast<double>(similarity),
                     static_cast<double>(output_power / reference_power));
}
