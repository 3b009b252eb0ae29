// Configurations and calls that cannot be streamed: a message, silence, no foreign memory touched.
#include <gtest/gtest.h>

#include <string>

#include "stream_run.h"

namespace {

constexpr int16_t kGuardWord = 0x5A5A;
constexpr size_t kGuardWords = 400;
constexpr stream_setup kBeamformer = {2, 320, 192, SE_BF_MODE_MVDR};
constexpr se_bf_init_param kScene = {SE_BF_MODE_MVDR, 0.05f, 30.0f};

// Samples of one value between guard words.
pcm guarded(int32_t count, int16_t value = kGuardWord) {
  pcm memory(static_cast<size_t>(std::max(count, 0)) + 2 * kGuardWords, kGuardWord);
  std::fill(memory.begin() + kGuardWords, memory.end() - kGuardWords, value);
  return memory;
}

int16_t *samples(pcm *memory) {
  return memory->data() + kGuardWords;
}

void expect_mention(const std::string &text, const char *part) {
  EXPECT_NE(text.find(part), std::string::npos) << text;
}

// Creates, initialises unless the mode is 0, makes three calls that must touch nothing but their
// output, destroys. Returns standard error; *silent says whether all output was.
std::string three_calls(const stream_setup &setup, int32_t latency, bool *silent) {
  const se_bf_create_param sizes = {setup.channels, setup.samples_per_call, setup.hop};
  const se_bf_init_param scene = {setup.mode, 0.0f, 0.0f};
  const int32_t count = setup.samples_per_call;
  pcm in = guarded(count * setup.channels);
  for (size_t i = kGuardWords; i < in.size() - kGuardWords; ++i) {
    in[i] = static_cast<int16_t>(i % 2 == 0 ? 37 * i : 11 * i);
  }
  const pcm original = in;
  *silent = true;
  testing::internal::CaptureStderr();
  se_bf_inst *inst = se_bf_create(&sizes);
  EXPECT_EQ(setup.mode == 0 ? 0 : se_bf_init(inst, &scene), latency);
  for (int32_t call = 0; call < 3; ++call) {
    pcm out = guarded(count);
    EXPECT_EQ(se_bf_do(inst, samples(&out), samples(&in)), count);
    *silent = *silent && out == guarded(count, 0);
    std::fill(out.begin() + kGuardWords, out.end() - kGuardWords, kGuardWord);
    EXPECT_TRUE(out == guarded(count) && in == original);
  }
  se_bf_destroy(inst);
  return testing::internal::GetCapturedStderr();
}

TEST(Refusal, OnlySupportedHopsStream) {
  std::vector<int32_t> hops = {8192, 16384, 32767, 40000, 65535, 65536};
  for (int32_t hop = -5; hop <= 400; ++hop) {
    hops.push_back(hop);
  }
  for (const int32_t hop : hops) {
    SCOPED_TRACE(hop);
    const int16_t length = hop < 1 ? int16_t{192} : static_cast<int16_t>(hop);
    int32_t latency = 32;
    while (2 * latency <= length) {
      latency *= 2;
    }
    latency += length <= 320 ? 320 - length : 0;
    const bool supported = length == 160 || length == 192 || length == 320;
    bool silent = false;
    const std::string errors = three_calls({2, 320, hop, SE_BF_MODE_MEAN}, latency, &silent);
    EXPECT_EQ(silent, !supported && length != 159);
    EXPECT_EQ(errors.empty(), supported) << errors;
    expect_mention(errors, supported ? "" : "160, 192 or 320");
  }
}

TEST(Refusal, OnlyWholeBlocksStreamAfterInitialisation) {
  bool silent = false;
  for (const int32_t count : {-1, 0, 1, 100, 319, 321, 5000}) {
    for (const int16_t channels : {int16_t{1}, int16_t{2}}) {
      SCOPED_TRACE(count);
      const stream_setup setup = {channels, count, 192, SE_BF_MODE_MVDR};
      expect_mention(three_calls(setup, 256, &silent), "multiple of 320");
      EXPECT_TRUE(silent);
    }
  }
  expect_mention(three_calls({2, 640, 192, 0}, 0, &silent), "until se_bf_init has been called");
  EXPECT_TRUE(silent);
}

TEST(Refusal, NullAndDestroyedArgumentsAreNamedAndNotTouched) {
  pcm in = guarded(640);
  pcm out = guarded(320);
  testing::internal::CaptureStderr();
  EXPECT_EQ(se_bf_create(nullptr), nullptr);
  for (const int32_t mode : {SE_BF_MODE_MVDR, SE_BF_MODE_MONO}) {
    se_bf_inst *inst = make_instance({2, 320, 192, mode});
    EXPECT_EQ(se_bf_init(inst, nullptr), 0);
    EXPECT_EQ(se_bf_do(inst, nullptr, samples(&in)), 320);
    EXPECT_EQ(se_bf_do(inst, samples(&out), nullptr), 320);
    se_bf_destroy(inst);
    for (se_bf_inst *gone : {inst, static_cast<se_bf_inst *>(nullptr)}) {
      EXPECT_EQ(se_bf_do(gone, samples(&out), samples(&in)), 0);
      EXPECT_EQ(se_bf_init(gone, &kScene), 0);
      se_bf_change_mode(gone, SE_BF_MODE_MEAN);
      se_bf_destroy(gone);
    }
  }
  const std::string errors = testing::internal::GetCapturedStderr();
  expect_mention(errors, "both an output and an input buffer");
  expect_mention(errors, "se_bf_do: no such instance");
  expect_mention(errors, "se_bf_init: no such instance");
  EXPECT_TRUE(in == guarded(640) && out == guarded(320));
}

TEST(Refusal, ExhaustedPoolIsNamedAndSilent) {
  const se_bf_create_param sizes = {1, 320, 160};
  se_bf_inst *inst = make_instance(kBeamformer);
  pcm in = guarded(640, 77);
  pcm out = guarded(320);
  testing::internal::CaptureStderr();
  for (int32_t i = 0; i < 4; ++i) {
    se_bf_init(inst, &kScene);  // there is no room from some call on
  }
  EXPECT_EQ(se_bf_do(inst, samples(&out), samples(&in)), 320);
  EXPECT_TRUE(out == guarded(320, 0) && in == guarded(640, 77));
  for (int32_t i = 0; i < 1000; ++i) {
    se_bf_create(&sizes);
  }
  EXPECT_EQ(se_bf_create(&sizes), nullptr);
  const std::string errors = testing::internal::GetCapturedStderr();
  expect_mention(errors, "[ ERROR! ]:Capacity: 102400, Added:");
  expect_mention(errors, "the memory pool cannot hold this instance");
  se_bf_destroy(inst);
}

TEST(Refusal, SceneWithoutADirectionPrefersNone) {
  const wave noise = white_noise(5, 3200, 500.0);
  const pcm in = to_words({noise, mix(noise, 0.5, white_noise(6, 3200, 500.0), 1.0)});
  const auto run = [&in](float metres, float degrees) {
    const se_bf_create_param sizes = {2, 320, 192};
    const se_bf_init_param scene = {SE_BF_MODE_MVDR, metres, degrees};
    se_bf_inst *inst = se_bf_create(&sizes);
    se_bf_init(inst, &scene);
    pcm input = in;
    pcm out = process(inst, kBeamformer, &input);
    se_bf_destroy(inst);
    return out;
  };
  const pcm none = run(0.0f, 0.0f);
  testing::internal::CaptureStderr();
  EXPECT_EQ(run(0.05f, std::nanf("")), none);
  expect_mention(testing::internal::GetCapturedStderr(), "so none is preferred");
}

TEST(Refusal, BadChannelCountGivesNoInstance) {
  for (const int16_t channels : {int16_t{0}, int16_t{-1}, int16_t{3}, int16_t{-32768}}) {
    const se_bf_create_param sizes = {channels, 320, 192};
    const std::string count = std::to_string(channels);
    testing::internal::CaptureStdout();
    EXPECT_EQ(se_bf_create(&sizes), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "using static buffer for malloc\nERROR: _num_ch_in=" + count +
                  ", which must no more than 2\n ");
  }
}

}  // namespace
