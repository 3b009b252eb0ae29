// Configurations and calls that cannot be streamed: a message, silence, and no access beyond the
// caller's buffers.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "stream_run.h"

namespace {

ptrdiff_t count_of(const std::string &text, const std::string &pattern) {
  const std::regex expression(pattern);
  return std::distance(std::sregex_iterator(text.begin(), text.end(), expression), {});
}

// Samples between guard words, all of the same value unless told otherwise.
constexpr size_t kGuardWords = 400;
pcm guarded(int32_t count, int16_t value = 0x5A5A) {
  pcm memory(static_cast<size_t>(std::max(count, 0)) + 2 * kGuardWords, 0x5A5A);
  std::fill(memory.begin() + kGuardWords, memory.end() - kGuardWords, value);
  return memory;
}

// Creates an instance, initialises it unless the mode is 0, and makes three calls, which must write
// to nothing but their output. What cannot be streamed gives silence and one message; a hop of 159
// gives the message only.
void expect_calls(const stream_setup &setup, int32_t latency, bool silent, const char *message) {
  SCOPED_TRACE(testing::Message() << "hop " << setup.hop << ", call " << setup.samples_per_call);
  const se_bf_create_param sizes = {setup.channels, setup.samples_per_call, setup.hop};
  const se_bf_init_param scene = {setup.mode, 0.0f, 0.0f};
  const int32_t count = setup.samples_per_call;
  pcm in = guarded(count * setup.channels, 7700);
  bool silence = true;
  testing::internal::CaptureStderr();
  se_bf_inst *inst = se_bf_create(&sizes);
  EXPECT_EQ(setup.mode == 0 ? 0 : se_bf_init(inst, &scene), latency);
  for (int32_t call = 0; call < 3; ++call) {
    pcm out = guarded(count);
    EXPECT_EQ(se_bf_do(inst, &out[kGuardWords], &in[kGuardWords]), count);
    silence = silence && out == guarded(count, 0);
    std::fill(out.begin() + kGuardWords, out.end() - kGuardWords, int16_t{0x5A5A});
    EXPECT_EQ(difference(out, guarded(count)), "") << "beyond the output";
    EXPECT_EQ(difference(in, guarded(count * setup.channels, 7700)), "") << "of the input";
  }
  se_bf_destroy(inst);
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_EQ(silence, silent);
  EXPECT_EQ(count_of(errors, "warning: "), *message == '\0' ? 0 : 1) << errors;
  EXPECT_PRED_FORMAT2(testing::IsSubstring, message, errors);
}

TEST(Refusal, OnlySupportedHopsAndWholeBlocksStreamAfterInitialisation) {
  for (int32_t hop = -5; hop <= 65536; hop += hop < 512 ? 1 : hop) {
    const int16_t length = hop < 1 ? int16_t{192} : static_cast<int16_t>(hop);
    int32_t latency = 32;
    while (2 * latency <= length) {
      latency *= 2;
    }
    latency += length <= 320 ? 320 - length : 0;
    const bool supported = length == 160 || length == 192 || length == 320;
    expect_calls({2, 320, hop, SE_BF_MODE_MEAN}, latency, !supported && length != 159,
                 supported ? "" : "160, 192 or 320");
  }
  for (int32_t count = -1; count <= 5000; count += count < 330 ? 1 : 10) {
    const bool whole = count > 0 && count % 320 == 0;
    for (const int16_t channels : {int16_t{1}, int16_t{2}}) {
      expect_calls({channels, count, 192, SE_BF_MODE_MVDR}, 256, !whole,
                   whole ? "" : "multiple of 320");
    }
  }
  expect_calls({2, 640, 192, 0}, 0, true, "until se_bf_init has been called");
}

TEST(Refusal, CallsInTheWrongOrderAreNamedAndTouchNothing) {
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.05f, 30.0f};
  pcm in = guarded(640);
  pcm out = guarded(320);
  testing::internal::CaptureStderr();
  EXPECT_EQ(se_bf_create(nullptr), nullptr);
  for (const int32_t mode : {SE_BF_MODE_MVDR, SE_BF_MODE_MONO}) {
    se_bf_inst *older = make_instance({1, 320, 192, mode});
    se_bf_inst *inst = make_instance({2, 320, 192, mode});
    EXPECT_EQ(se_bf_init(inst, nullptr), 0);
    for (int32_t call = 0; call < 50; ++call) {
      EXPECT_EQ(se_bf_do(older, nullptr, &in[kGuardWords]), 320);
      EXPECT_EQ(se_bf_do(inst, &out[kGuardWords], nullptr), 320);
    }
    se_bf_destroy(inst);
    for (se_bf_inst *gone : {inst, older, static_cast<se_bf_inst *>(nullptr)}) {
      EXPECT_EQ(se_bf_do(gone, &out[kGuardWords], &in[kGuardWords]), 0);
      EXPECT_EQ(se_bf_init(gone, &scene), 0);
      se_bf_change_mode(gone, SE_BF_MODE_MEAN);
      se_bf_destroy(gone);
    }
  }
  EXPECT_EQ(difference(in, guarded(640)), "");
  EXPECT_EQ(difference(out, guarded(320)), "");

  // Each initialisation takes memory from the pool, until there is no room.
  se_bf_inst *inst = make_instance(kBeamformer);
  for (int32_t i = 0; i < 4; ++i) {
    se_bf_init(inst, &scene);
  }
  EXPECT_EQ(se_bf_do(inst, &out[kGuardWords], &in[kGuardWords]), 320);
  EXPECT_EQ(difference(in, guarded(640)), "");
  EXPECT_EQ(difference(out, guarded(320, 0)), "");
  const se_bf_create_param sizes = {1, 320, 160};
  while (se_bf_create(&sizes) != nullptr) {
  }
  se_bf_destroy(inst);
  const std::string errors = testing::internal::GetCapturedStderr();
  // Messages of the two rounds above and of the full pool. Of calls that hosts repeat, only the
  // first in each round has a message.
  const std::pair<const char *, ptrdiff_t> causes[] = {
      {"se_bf_create: param is null", 1},
      {"se_bf_init: param is null", 2},
      {"se_bf_do: pass both an output and an input buffer", 2},
      {"se_bf_do: no such instance", 2},
      {"se_bf_change_mode: no such instance", 2},
      {"se_bf_init: no such instance", 6},
      {"se_bf_init: the memory pool cannot hold this instance", 2}};
  for (const auto &[cause, lines] : causes) {
    EXPECT_EQ(count_of(errors, cause), lines) << cause << " in: " << errors;
  }
  EXPECT_PRED_FORMAT2(testing::IsSubstring, "[ ERROR! ]:Capacity: 102400, Added:", errors);
}

TEST(Refusal, OfFailedCreationsOnlyABadChannelCountEmptiesThePool) {
  pcm in(640, 7700);
  pcm out(320);
  se_bf_inst *inst = make_instance(kBeamformer);
  const se_bf_create_param three = {3, 320, 192};
  const se_bf_create_param two = {2, 320, 192};
  testing::internal::CaptureStderr();
  EXPECT_EQ(se_bf_create(nullptr), nullptr);
  EXPECT_EQ(se_bf_do(inst, out.data(), in.data()), 320) << "after null";
  while (se_bf_create(&two) != nullptr) {
  }
  EXPECT_EQ(se_bf_do(inst, out.data(), in.data()), 320) << "after the pool was full";
  EXPECT_EQ(se_bf_create(&three), nullptr);
  EXPECT_EQ(se_bf_do(inst, out.data(), in.data()), 0) << "after a bad channel count";
  inst = make_instance(kBeamformer);
  se_bf_inst *other = make_instance({1, 320, 160, SE_BF_MODE_OMLSA});
  se_bf_destroy(inst);
  inst = make_instance(kBeamformer);
  se_bf_destroy(other);
  EXPECT_EQ(se_bf_do(inst, out.data(), in.data()), 0) << "after a dead handle was destroyed";
  testing::internal::GetCapturedStderr();
}

// Hop 159 repeats a sample every 79 blocks until its output store is full.
TEST(Refusal, LossyHopStopsBeforeItOverruns) {
  constexpr size_t kLastSample = 2686 * 320;
  testing::internal::CaptureStderr();
  const pcm out = run_stream({1, 320, 159, SE_BF_MODE_OMLSA},
                             to_words({white_noise(111, kLastSample + kSecond, 2000.0)}));
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 2) << errors;
  EXPECT_GT(std::abs(part(out, kLastSample - 320, kLastSample)).max(), 0.0);
  EXPECT_EQ(std::abs(part(out, kLastSample, kLastSample + kSecond)).max(), 0.0);
}

TEST(Refusal, BadChannelCountGivesNoInstanceAndBadGeometryNoDirection) {
  for (const int16_t channels : {int16_t{0}, int16_t{-1}, int16_t{3}, int16_t{-32768}}) {
    const se_bf_create_param sizes = {channels, 320, 192};
    testing::internal::CaptureStdout();
    EXPECT_EQ(se_bf_create(&sizes), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "using static buffer for malloc\nERROR: _num_ch_in=" + std::to_string(channels) +
                  ", which must no more than 2\n ");
  }
  const pcm in = to_words(microphones(5, kSecond, 500.0));
  const pcm none = run_stream(kBeamformer, in);
  testing::internal::CaptureStderr();
  const stream_setup nowhere = {2, 320, 192, SE_BF_MODE_MVDR, 0.05f, std::nanf("")};
  EXPECT_EQ(difference(run_stream(nowhere, in), none), "");
  EXPECT_PRED_FORMAT2(testing::IsSubstring, "so none is preferred",
                      testing::internal::GetCapturedStderr());
}

}  // namespace
