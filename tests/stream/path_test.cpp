// The way of samples through a stream at 16 kHz: bits, block lengths, alignment, formats.
#include <limits>

#include "stream_use.h"

namespace {

// Sound with a silence, a dead microphone and equal channels in it.
pcm make_trouble() {
  pcm x = mute(make_sound(4 * kSecond, 3), 1, 20000, 40000);
  std::fill(&x[2 * 10000], &x[2 * 13000], int16_t{0});
  for (size_t t = 50000; t < 55000; ++t) {
    x[2 * t] = x[2 * t + 1];
  }
  return x;
}

pcm first_channel(const pcm &x) {
  pcm y(x.size() / 2);
  for (size_t t = 0; t < y.size(); ++t) {
    y[t] = x[2 * t];
  }
  return y;
}

TEST(StreamPath, PlainStreamsGiveTheBitsOfTheCoreForAnyBlockLength) {
  const pcm both = make_trouble();
  for (const int32_t channels : {1, 2}) {
    const pcm in = channels == 2 ? both : first_channel(both);
    for (const hop_figures &h : kHops) {
      for (int32_t mode = SE_BF_MODE_MEAN; mode <= SE_BF_MODE_MONO; ++mode) {
        SCOPED_TRACE(testing::Message() << channels << " " << h.hop << " " << mode);
        const se_bf_stream_config config = make_config(channels, mode, h.hop, true);
        const pcm core = run_core(config, in);
        const int32_t delay = channels == 2 && mode == SE_BF_MODE_MONO ? 0 : h.delay;
        se_bf_stream *stream = open_stream(config);
        EXPECT_EQ(se_bf_stream_latency(stream), 320 + delay);
        se_bf_stream_close(stream);
        const pcm late = join({pcm(kBlock), cut(core, 0, core.size() - kBlock)});
        ASSERT_EQ(run_process(config, in, {100000}), late);
        ASSERT_EQ(run_process(config, in, {2000, true}), late);
        const pcm aligned = cut(core, static_cast<size_t>(delay), core.size());
        const pcm pushed = run_aligned(config, in, {333});
        ASSERT_EQ(pushed.size(), core.size());
        ASSERT_EQ(cut(pushed, 0, aligned.size()), aligned);
      }
    }
  }
}

TEST(StreamPath, AlignedOutputIsAsLongAsTheInputAndTheStreamStartsAnew) {
  for (const size_t frames : {0u, 1u, 319u, 320u, 511u, 512u, 513u, 7777u}) {
    for (const size_t piece : {1u, 7u, 100000u}) {
      const pcm in = make_sound(frames, 1);
      const se_bf_stream_config config = make_config(2, SE_BF_MODE_MVDR, 160, true);
      pcm padded = in;
      padded.resize((frames / kBlock + 2) * 2 * kBlock);
      const pcm expected = cut(run_core(config, padded), 256, 256 + frames);
      ASSERT_EQ(run_aligned(config, in, {piece}), expected) << frames << " " << piece;
    }
  }
  const pcm in = make_sound(5000, 1);
  const se_bf_stream_config config = make_config(2, SE_BF_MODE_MVDR, 320);
  const pcm expected = run_aligned(config, in);
  se_bf_stream *stream = open_stream(config);
  for (int32_t round = 0; round < 2; ++round) {
    pcm out(6000);
    size_t written = se_bf_stream_push_s16(stream, in.data(), 5000, out.data());
    written += se_bf_stream_finish_s16(stream, &out[written]);
    out.resize(written);
    ASSERT_EQ(out, expected) << "round " << round;
  }
  se_bf_stream_close(stream);
}

TEST(StreamPath, FloatsAndWordsAlternateWithTheSameSamples) {
  const pcm in = make_sound(2 * kSecond, 9);
  const se_bf_stream_config config = make_config(2, SE_BF_MODE_OMLSA, 192);
  const pcm expected = run_process(config, in);
  se_bf_stream *stream = open_stream(config);
  std::vector<float> x(2 * 500);
  pieces lengths = {500, true};
  for (size_t at = 0, n = 0; at < expected.size(); at += n) {
    n = lengths.next(expected.size() - at);
    std::transform(&in[2 * at], &in[2 * at] + 2 * n, x.begin(),
                   [](int16_t word) { return static_cast<float>(word) / 32768.0f; });
    se_bf_stream_process_f32(stream, x.data(), n, x.data());  // in place
    for (size_t i = 0; i < n; ++i) {
      ASSERT_EQ(x[i] * 32768.0f, static_cast<float>(expected[at + i])) << "sample " << at + i;
    }
    at += n;
    n = lengths.next(expected.size() - at);
    pcm words = cut(in, 2 * at, 2 * (at + n));
    se_bf_stream_process_s16(stream, words.data(), n, words.data());
    words.resize(n);
    ASSERT_EQ(words, cut(expected, at, at + n)) << "sample " << at;
  }
  se_bf_stream_close(stream);
}

TEST(StreamPath, WhatIsNoSampleBecomesSilenceAndIsCounted) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const struct {
    float in;
    int16_t word;
  } cases[] = {{0.25f, 8192},        {1.0f, 32767},          {1e30f, 32767},
               {-1.0f, -32768},      {-3e38f, -32768},       {kNan, 0},
               {-kInfinity, 0},      {kInfinity, 0},         {0.5f / 32768.0f, 0},
               {1.5f / 32768.0f, 2}, {-1.5f / 32768.0f, -2}, {1e-40f, 0}};
  heard_events events;
  const se_bf_stream_config config = make_config(1, SE_BF_MODE_MONO, 0, false, &events);
  for (const size_t piece : {1u, 333u}) {
    events.clear();
    se_bf_stream *stream = open_stream(config);
    const size_t latency = static_cast<size_t>(se_bf_stream_latency(stream));
    ASSERT_EQ(latency, 512u);
    std::vector<float> in(4 * kBlock, 0.5f);
    for (size_t i = 0; i < std::size(cases); ++i) {
      in[kBlock + 100 + i] = cases[i].in;
    }
    std::vector<float> out(in.size());
    for (size_t at = 0; at < in.size(); at += piece) {
      const size_t n = std::min(piece, in.size() - at);
      se_bf_stream_process_f32(stream, &in[at], n, &out[at]);
    }
    for (size_t i = 0; i < std::size(cases); ++i) {
      EXPECT_EQ(out[latency + kBlock + 100 + i] * 32768.0f, cases[i].word) << cases[i].in;
    }
    EXPECT_EQ(events, (heard_events{{SE_BF_STREAM_NOT_FINITE, 0, 320, 425, 0, 3}}));
    se_bf_stream_close(stream);
  }
}

// At another rate; in a build without rates, at 16 kHz.
TEST(StreamPath, OtherRatesKeepTheirTime) {
  constexpr int32_t kRate = TM_SE_BF_STREAM_OTHER_RATE;
  constexpr size_t kFrames = 4 * kRate;
  constexpr size_t kDies = 2 * kRate;
  constexpr double kLeastSnrDb = 40.0;
  pcm in(2 * kFrames);
  for (size_t n = 0; n < kFrames; ++n) {
    const double t = static_cast<double>(n) / kRate;  // chirp from 0.2 to 1.8 kHz
    const double phase = 2.0 * kPi * (200.0 * t + 200.0 * t * t);
    in[2 * n] = static_cast<int16_t>(std::lrint(9000.0 * std::sin(phase)));
    in[2 * n + 1] = static_cast<int16_t>(n < kDies ? in[2 * n] / 2 : 0);
  }
  heard_events events;
  se_bf_stream_config config = make_config(2, SE_BF_MODE_OMLSA, 0, false, &events);
  config.rate = kRate;
  EXPECT_EQ(run_aligned(config, in).size(), kFrames);
  ASSERT_EQ(events.size(), 2u) << testing::PrintToString(events);
  EXPECT_EQ(events[0].kind, SE_BF_STREAM_COPIES);
  EXPECT_LT(events[0].since, static_cast<int64_t>(kRate / 20));
  EXPECT_LT(events[0].time, static_cast<int64_t>(kRate / 3));
  EXPECT_EQ(events[1].kind, SE_BF_STREAM_DEAD);
  EXPECT_NEAR(static_cast<double>(events[1].since), kDies, kRate * 0.02);
  EXPECT_GT(events[1].time, static_cast<int64_t>(kDies + kRate / 2));
  EXPECT_LT(events[1].time, static_cast<int64_t>(kDies + kRate));

  config.mode = SE_BF_MODE_MONO;
  const pcm copy = run_aligned(config, in, {777, true});
  ASSERT_EQ(copy.size(), kFrames);
  const size_t edge = kRate / 20;
  const wave first = part(first_channel(in), edge, kFrames - edge);
  const double snr = snr_db(first, part(copy, edge, kFrames - edge) + 1e-9);
  std::printf("%d Hz: %.1f dB\n", kRate, snr);
  EXPECT_GT(snr, kLeastSnrDb);
}

// Two tones that add up to more than full scale, one of them above the band of the core: nothing
// before the core's own 16 bits may clip them.
TEST(StreamPath, LouderThanFullScaleIsNotClippedBeforeTheCore) {
  constexpr int32_t kRate = TM_SE_BF_STREAM_OTHER_RATE;
  if (kRate < 2 * 12000) {
    GTEST_SKIP() << "needs a rate with a band above 12 kHz";
  }
  constexpr size_t kFrames = kRate / 2;
  constexpr double kLeastSnrDb = 60.0;
  std::vector<float> in(kFrames);
  for (size_t n = 0; n < kFrames; ++n) {
    const double turn = 2.0 * kPi * static_cast<double>(n) / kRate;
    in[n] = static_cast<float>(0.9 * std::sin(1000.0 * turn) + 0.9 * std::sin(11000.0 * turn));
  }
  se_bf_stream_config config = make_config(1, SE_BF_MODE_MONO, 0, false, nullptr);
  config.rate = kRate;
  se_bf_stream *stream = open_stream(config);
  const size_t latency = static_cast<size_t>(se_bf_stream_latency(stream));
  std::vector<float> out(kFrames);
  se_bf_stream_process_f32(stream, in.data(), kFrames, out.data());
  const size_t edge = kRate / 20;
  const double snr =
      snr_db(part(in, edge, kFrames - latency - edge), part(out, edge + latency, kFrames - edge));
  EXPECT_GT(snr, kLeastSnrDb);
  se_bf_stream_close(stream);
}

// Every processor and compiler gives these bits, and so does every later version.
TEST(StreamPath, OutputAtOtherRatesStaysTheSame) {
  if (TM_SE_BF_STREAM_OTHER_RATE == kSecond) {
    GTEST_SKIP() << "built without other rates";
  }
  const struct {
    int32_t rate;
    uint32_t hash;
  } kKnown[] = {{8000, 3679697791u}, {44100, 1310290312u}, {48000, 2976803547u}};
  for (const auto &known : kKnown) {
    uint32_t seed = 1;
    std::vector<float> in(2 * static_cast<size_t>(known.rate));
    for (float &x : in) {
      x = static_cast<float>(noise(&seed, 8192)) / 32768.0f;
    }
    se_bf_stream_config config = make_config(2, SE_BF_MODE_OMLSA, 0, true);
    config.rate = known.rate;
    se_bf_stream *stream = open_stream(config);
    std::vector<float> out(in.size() / 2);
    se_bf_stream_process_f32(stream, in.data(), out.size(), out.data());
    se_bf_stream_close(stream);
    uint32_t hash = 2166136261u;  // FNV-1a
    for (size_t i = 0; i < out.size() * sizeof(float); ++i) {
      hash = (hash ^ reinterpret_cast<const unsigned char *>(out.data())[i]) * 16777619u;
    }
    EXPECT_EQ(hash, known.hash) << known.rate << " Hz";
  }
}

}  // namespace
