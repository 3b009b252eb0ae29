// The processing call through the public header: delay, gain, modes and call lengths.
#include <gtest/gtest.h>

#include "stream_run.h"

namespace {

// Truncation to 16 bits leaves an error of 1/3 LSB^2: 65 dB below speech of an rms of 1000.
constexpr double kPassThroughSnrDb = 63.0;

// Suppression of steady noise by the square-root Wiener gain, and what it may do to speech.
constexpr double kNoiseReductionDb = 9.0;
constexpr double kSpeechLevelDb = 0.5;
constexpr double kSpeechBenefitDb = 4.0;

TEST(Stream, ImpulseComesOutAtTheRealDelayWithUnitGain) {
  constexpr size_t kPosition = 100;
  constexpr double kMean = 15000.0;
  for (const hop_figures &h : kHops) {
    wave louder(20 * 320, 0.0);
    louder[kPosition] = kMean * 4.0 / 3.0;
    const pcm in = to_words({louder, mix(louder, 0.5, louder, 0.0)});
    const pcm out = run_stream({2, 320, h.hop, SE_BF_MODE_MEAN}, in);
    const auto quieter = [](int16_t a, int16_t b) { return std::abs(a) < std::abs(b); };
    const auto peak = std::max_element(out.begin(), out.end(), quieter);
    const size_t delay = static_cast<size_t>(peak - out.begin()) - kPosition;
    std::printf("hop %d: delay %zu, peak %d of %.0f\n", h.hop, delay, *peak, kMean);
    EXPECT_EQ(delay, h.delay);
    // The transform removes the Nyquist component, 1/N of an impulse, which also leaves a ripple.
    const double ripple = kMean / h.fft_len;
    EXPECT_NEAR(*peak, kMean - ripple, 2.0);
    const auto beyond = [ripple](int16_t x) { return std::abs(x) > 3.0 * ripple; };
    EXPECT_EQ(std::count_if(out.begin(), out.end(), beyond), 1);
  }
}

TEST(Stream, MeanModeReproducesTheMeanOfTheChannels) {
  for (const wave &x : {tone(kSecond, 1000.0, 32767.0), talker(3, kSecond, 5000.0)}) {
    for (const hop_figures &h : kHops) {
      const pcm in = to_words({x, mix(x, 0.5, x, 0.0)});
      wave mean(h.delay, 0.0);
      for (size_t n = 0; n < kSecond; ++n) {
        mean.push_back(0.5 * (in[2 * n] + in[2 * n + 1]));
      }
      mean.resize(kSecond);
      const double snr = snr_db(mean, to_wave(run_stream({2, 320, h.hop, SE_BF_MODE_MEAN}, in)));
      std::printf("hop %d: pass-through SNR %.1f dB\n", h.hop, snr);
      EXPECT_GE(snr, kPassThroughSnrDb);
    }
  }
}

TEST(Stream, CopyAndUnknownModesPassChannelZeroExactly) {
  const pcm in = to_words({white_noise(5, 9600, 9000.0), white_noise(6, 9600, 9000.0)});
  const auto expect_delayed = [&in](const stream_setup &setup, int32_t delay) {
    pcm expected(static_cast<size_t>(delay), 0);
    for (size_t n = 0; n < in.size(); n += 2) {
      expected.push_back(in[n]);
    }
    expected.resize(in.size() / 2);
    EXPECT_EQ(run_stream(setup, in), expected) << "mode " << setup.mode << ", hop " << setup.hop;
  };
  for (const hop_figures &h : kHops) {
    expect_delayed({2, 320, h.hop, SE_BF_MODE_MONO}, 0);
    for (const int32_t unknown : {0, -1, 5999, 6004, 65536 + 6004}) {
      expect_delayed({2, 320, h.hop, unknown}, 320 - h.hop);
    }
  }
  // A copy needs no blocks: any hop and any call length will do.
  expect_delayed({2, 100, 7, SE_BF_MODE_MONO}, 0);
}

TEST(Stream, SuppressionRemovesSteadyNoiseAndKeepsSpeech) {
  constexpr size_t kCount = 8 * kSecond;
  constexpr size_t kSettled = 3 * kSecond;
  const wave noise = white_noise(11, kCount, 300.0);
  const wave speech = talker(12, kCount, 2500.0);
  const wave noisy = mix(speech, 1.0, noise, 1.0);
  const double before = project(speech, noisy, 0, kSettled).sdr_db;
  for (const hop_figures &h : kHops) {
    const stream_setup setup = {1, 320, h.hop, SE_BF_MODE_OMLSA};
    const wave quiet = to_wave(run_stream(setup, to_words({noise})));
    const wave clean = to_wave(run_stream(setup, to_words({noisy})));
    const double fall = level_db(noise, kSettled, kCount) - level_db(quiet, kSettled, kCount);
    const projection after = project(speech, clean, h.delay, kSettled);
    std::printf("hop %d: noise -%.1f dB, speech %+.2f dB, SI-SDR %.1f -> %.1f dB\n", h.hop, fall,
                after.gain_db, before, after.sdr_db);
    EXPECT_GE(fall, kNoiseReductionDb);
    EXPECT_NEAR(after.gain_db, 0.0, kSpeechLevelDb);
    EXPECT_GE(after.sdr_db, before + kSpeechBenefitDb);
  }
}

TEST(Stream, SilenceStaysSilentAndCallLengthDoesNotMatter) {
  constexpr size_t kCount = 25600;  // whole calls of either length
  const wave left = mix(talker(21, kCount, 2000.0), 1.0, white_noise(22, kCount, 50.0), 1.0);
  const wave right = mix(left, 0.7, white_noise(23, kCount, 50.0), 1.0);
  const pcm stereo = to_words({left, right});
  const pcm mono = to_words({left});
  for (const hop_figures &h : kHops) {
    for (const int32_t mode : kModes) {
      SCOPED_TRACE(testing::Message() << "mode " << mode << ", hop " << h.hop);
      EXPECT_EQ(run_stream({2, 320, h.hop, mode}, stereo),
                run_stream({2, 2560, h.hop, mode}, stereo));
      EXPECT_EQ(run_stream({1, 320, h.hop, mode}, mono),
                run_stream({1, 2560, h.hop, SE_BF_MODE_OMLSA}, mono));
      EXPECT_EQ(run_stream({1, 320, h.hop, mode}, pcm(kSecond)), pcm(kSecond));
      EXPECT_EQ(run_stream({2, 320, h.hop, mode}, pcm(2 * kSecond)), pcm(kSecond));
    }
  }
}

// A mono mode at initialisation, and a fault at any time, leave channel 0 as the only one analysed.
TEST(Stream, BeamformerLosesChannelOneAfterMonoInitialisationOrFault) {
  const wave left = white_noise(31, kSecond, 1000.0);
  const auto beamform = [&left](int32_t first_mode, double prefix_gain, uint32_t seed) {
    const stream_setup setup = {2, 320, 192, first_mode};
    pcm prefix = to_words({left, mix(left, prefix_gain, left, 0.0)});
    pcm in = to_words({left, mix(white_noise(seed, kSecond, 700.0), 1.0, left, 0.5)});
    se_bf_inst *inst = make_instance(setup);
    process(inst, setup, &prefix);
    se_bf_change_mode(inst, SE_BF_MODE_MVDR);
    pcm out = process(inst, setup, &in);
    se_bf_destroy(inst);
    return out;
  };
  EXPECT_NE(beamform(SE_BF_MODE_MVDR, 0.6, 32), beamform(SE_BF_MODE_MVDR, 0.6, 33));
  EXPECT_EQ(beamform(SE_BF_MODE_OMLSA, 0.6, 32), beamform(SE_BF_MODE_OMLSA, 0.6, 33));
  EXPECT_EQ(beamform(SE_BF_MODE_MEAN, 0.6, 32), beamform(SE_BF_MODE_MEAN, 0.6, 33));
  EXPECT_EQ(beamform(SE_BF_MODE_MVDR, 0.0, 32), beamform(SE_BF_MODE_MVDR, 0.0, 33));
}

// Two microphones at full scale come out 3 dB louder from the beamformer.
TEST(Stream, OverloadClips) {
  wave x = white_noise(41, kSecond, 20.0);
  const wave loud = tone(kSecond / 2, 300.0, 32767.0);
  x.insert(x.end(), loud.begin(), loud.end());
  const wave other = mix(x, 0.95, white_noise(42, x.size(), 15.0), 1.0);
  const pcm out = run_stream({2, 320, 192, SE_BF_MODE_MVDR}, to_words({x, other}));
  EXPECT_EQ(*std::max_element(out.begin(), out.end()), 32767);
  EXPECT_EQ(*std::min_element(out.begin(), out.end()), -32768);
}

}  // namespace
