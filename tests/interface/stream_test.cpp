// The processing call through the public header: delay, gain, modes, call lengths, and how much the
// modes improve the sound.
#include <gtest/gtest.h>

#ifdef __SSE2__
#include <immintrin.h>
#endif

#include "stream_run.h"

namespace {

constexpr size_t kCount = 16 * kSecond;
constexpr size_t kSettled = kCount / 2;

// SI-SDR of the settled half of the output against the delayed source.
double settled_sdr_db(const wave &source, const pcm &out, int32_t delay) {
  return sdr_db(part(source.shift(-delay), kSettled, kCount), part(out, kSettled, kCount));
}

TEST(Stream, MeanCopyAndUnknownModesPassWhatTheyShould) {
  constexpr double kLeastMeanSnrDb = 63.0;
  wave left(9600);
  wave right(9600);
  for (size_t n = 0; n < left.size(); ++n) {
    left[n] = kFull * std::sin(0.4 * static_cast<double>(n));
    right[n] = kFull * std::sin(0.7 * static_cast<double>(n));
  }
  const pcm in = to_words({left, right});
  const auto expect_delayed = [&](const stream_setup &setup, int32_t delay) {
    EXPECT_EQ(difference(run_stream(setup, in), to_words({left.shift(-delay)})), "")
        << "mode " << setup.mode << ", hop " << setup.hop;
  };
  for (const hop_figures &h : kHops) {
    const pcm mean = run_stream({2, 320, h.hop, SE_BF_MODE_MEAN}, in);
    const wave expected = 0.5 * (left + right);
    const double snr = snr_db(expected.shift(-h.delay), part(mean, 0, expected.size()));
    std::printf("hop %d: pass-through SNR %.1f dB\n", h.hop, snr);
    EXPECT_GE(snr, kLeastMeanSnrDb);
    expect_delayed({2, 320, h.hop, SE_BF_MODE_MONO}, 0);
    for (const int32_t unknown : {0, -1, 5999, 6004, 65536 + 6004}) {
      expect_delayed({2, 320, h.hop, unknown}, 320 - h.hop);
    }
  }
  // The copy of mode 6003 is not cut into blocks: any hop and any call length will do.
  expect_delayed({2, 100, 7, SE_BF_MODE_MONO}, 0);
}

TEST(Stream, SuppressionRemovesSteadyNoiseAndKeepsSpeech) {
  constexpr double kNoiseReductionDb = 9.0;
  constexpr double kBenefitDb = 4.0;
  const wave noise = white_noise(11, kCount, 300.0);
  const wave voice = speech(kCount, 2500.0);
  const pcm noisy = to_words({voice + noise});
  const double before = settled_sdr_db(voice, noisy, 0);
  for (const hop_figures &h : kHops) {
    const stream_setup setup = {1, 320, h.hop, SE_BF_MODE_OMLSA};
    const wave quiet = part(run_stream(setup, to_words({noise})), kSettled, kCount);
    const pcm out = run_stream(setup, noisy);
    const double fall = level_db(noise) - level_db(quiet);
    const double after = settled_sdr_db(voice, out, h.delay);
    const double gain = gain_of(voice.shift(-h.delay), part(out, 0, kCount));
    std::printf("hop %d: noise -%.1f dB, speech times %.3f, SI-SDR %.1f -> %.1f dB\n", h.hop, fall,
                gain, before, after);
    EXPECT_GE(fall, kNoiseReductionDb);
    EXPECT_NEAR(gain, 1.0, 0.06);
    EXPECT_GE(after, before + kBenefitDb);
  }
}

// A talker who reaches microphone 1 two samples later and a point noise that reaches it four
// samples earlier, 65 and 149 degrees at 0.1 m. Neither is broadside: without its adapted weights
// the beamformer would gain nothing.
TEST(Stream, BeamformerRaisesTheRatioOfATalkerOverAPointNoise) {
  constexpr double kBenefitDb = 6.0;
  const wave voice = speech(kCount, 2500.0);
  const wave noise = white_noise(82, kCount, 500.0);
  const wave first = voice + noise.shift(-4);
  const pcm in = to_words({first, voice.shift(-2) + noise});
  const double before = sdr_db(voice, first);
  EXPECT_NEAR(before, 7.5, 2.5) << "the input is not what this test is about";
  // Where each mode hears the talker: the beamformer where its steering vector is real.
  const std::pair<int32_t, int32_t> modes[] = {
      {SE_BF_MODE_MEAN, 1}, {SE_BF_MODE_OMLSA, 1}, {SE_BF_MODE_MVDR, 2}};
  for (const hop_figures &h : kHops) {
    for (const auto &[mode, late] : modes) {
      const double after =
          settled_sdr_db(voice, run_stream({2, 320, h.hop, mode}, in), h.delay + late);
      std::printf("hop %d, mode %d: %.1f -> %.1f dB\n", h.hop, mode, before, after);
      if (mode == SE_BF_MODE_MVDR) {
        EXPECT_GE(after, before + kBenefitDb);
      }
    }
  }
}

TEST(Stream, SilenceStaysSilentAndCallLengthAndHighBitsDoNotMatter) {
  const std::vector<wave> both = microphones(21, 25600, 50.0);  // whole calls of either length
  for (const hop_figures &h : kHops) {
    for (int32_t mode = SE_BF_MODE_MEAN; mode <= SE_BF_MODE_MONO; ++mode) {
      SCOPED_TRACE(testing::Message() << "mode " << mode << ", hop " << h.hop);
      const pcm two = run_stream({2, 320, h.hop, mode}, to_words(both));
      const pcm one = run_stream({1, 320, h.hop, mode}, to_words({both[0]}));
      const stream_setup long_two = {2, 2560, 65536 + h.hop, mode - 65536};
      const stream_setup long_one = {1, 2560, h.hop, SE_BF_MODE_OMLSA};
      EXPECT_EQ(difference(run_stream(long_two, to_words(both)), two), "");
      EXPECT_EQ(difference(run_stream(long_one, to_words({both[0]})), one), "");
      for (const int16_t channels : {int16_t{1}, int16_t{2}}) {
        const pcm silence(static_cast<size_t>(channels * kSecond));
        const pcm out = run_stream({channels, 320, h.hop, mode}, silence);
        EXPECT_EQ(difference(out, pcm(kSecond)), "") << channels << " silent channels";
      }
    }
  }
}

// Speech, digital silence, and sound of a few quantisation steps. A first run sets the levels of
// the fault detector, so that the two compared runs start alike.
TEST(Stream, FlushingDenormalsChangesNothingAsLongAsTheModeStays) {
#ifndef __SSE2__
  GTEST_SKIP() << "knows only the control register of x86";
#else
  constexpr uint32_t kFlushAndTreatAsZero = 0x8040;
  std::vector<wave> both = microphones(31, 40 * kSecond, 15.0);
  for (wave &x : both) {
    x[std::slice(3 * kSecond, 15 * kSecond, 1)] = 0.0;
    x[std::slice(25 * kSecond, 10 * kSecond, 1)] *= wave(0.01, 10 * kSecond);
  }
  for (const hop_figures &h : kHops) {
    for (int32_t mode = SE_BF_MODE_MEAN; mode <= SE_BF_MODE_MVDR; ++mode) {
      for (const int16_t channels : {int16_t{1}, int16_t{2}}) {
        const stream_setup setup = {channels, 320, h.hop, mode, 0.05f, 30.0f};
        const pcm in = to_words(channels == 2 ? both : std::vector<wave>{both[0]});
        run_stream(setup, in);
        const pcm kept = run_stream(setup, in);
        _mm_setcsr(_mm_getcsr() | kFlushAndTreatAsZero);
        const pcm flushed = run_stream(setup, in);
        _mm_setcsr(_mm_getcsr() & ~kFlushAndTreatAsZero);
        EXPECT_EQ(difference(flushed, kept), "") << "mode " << mode << ", hop " << h.hop;
      }
    }
  }
#endif
}

}  // namespace
