// A microphone that dies or fades in mid-stream, seen through the public header.
//
// The detector's levels belong to the process; CTest runs each test in a process of its own, and
// the streams below let the levels settle before they judge.
#include <gtest/gtest.h>

#include "stream_run.h"

namespace {

constexpr size_t kBlock = 320;
constexpr size_t kFade = 100 * kBlock;
constexpr size_t kCount = 400 * kBlock;

TEST(Fault, FadedMicrophoneIsRepairedBeyondFortyDecibelsWithoutAGap) {
  constexpr size_t kSpan = 14400;
  constexpr double kLargestLossDb = 5.0;  // of the level in any such span
  const struct {
    double fade;
    size_t earliest;  // call after the fading that is the first to be repaired
    size_t latest;
  } cases[] = {{0.0, 40, 48}, {0.005, 44, 60}, {0.02, 300, 300}};  // 300: never
  // 0.9^n reaches 1/100 at n = 43.7, and 1/100 - 1/200 at n = 50.3; the signals add a scatter.
  const std::vector<wave> both = microphones(51, kCount + 1, 1000.0);
  const pcm healthy = run_stream(kBeamformer, to_words(both));
  for (const auto &c : cases) {
    for (size_t victim = 0; victim < 2; ++victim) {
      std::vector<wave> faded = both;
      std::for_each(&faded[victim][kFade], end(faded[victim]), [&c](double &x) { x *= c.fade; });
      const pcm original = to_words(faded);
      pcm in = original;
      const pcm out = run_in_place(kBeamformer, &in);
      const auto change = std::mismatch(in.begin(), in.end(), original.begin()).first;
      const size_t first = static_cast<size_t>(change - in.begin()) / 2 / kBlock * kBlock;
      const size_t calls = (first - kFade) / kBlock;
      std::printf("microphone %zu times %.3f: repaired after %zu calls\n", victim, c.fade, calls);
      EXPECT_GE(calls, c.earliest);
      EXPECT_LE(calls, c.latest);
      for (size_t n = first; n < kCount; ++n) {
        const int16_t good = original[2 * n + 1 - victim];
        ASSERT_EQ(in[2 * n], good) << "repaired sample " << n;
        ASSERT_EQ(in[2 * n + 1], good) << "repaired sample " << n;
      }
      EXPECT_EQ(in[2 * kCount + victim], original[2 * kCount + victim]) << "beyond the last call";
      for (size_t n = 0; n + kSpan <= kCount; n += kBlock) {
        const double level = level_db(part(out, n, n + kSpan));
        ASSERT_GE(level, level_db(part(healthy, n, n + kSpan)) - kLargestLossDb) << n;
      }
    }
  }
}

// With a channel dead from the start, or with equal channels, the output is that of a one-channel
// instance.
TEST(Fault, DeadOrEqualChannelsGiveTheSingleChannelOutput) {
  const wave x = microphones(61, kSecond, 100.0)[0];
  const pcm expected = run_stream({1, 320, 192, SE_BF_MODE_OMLSA}, to_words({x}));
  pcm in = to_words({x, wave(kSecond)});
  EXPECT_EQ(difference(run_stream(kBeamformer, in), expected), "");
  EXPECT_EQ(difference(run_stream({2, 320, 192, SE_BF_MODE_MEAN}, in), expected), "");
  run_stream(kBeamformer, pcm(1200 * 2 * kBlock));  // in silence the levels decay to nothing
  EXPECT_EQ(difference(run_stream(kBeamformer, to_words({x, x})), expected), "");
}

}  // namespace
