// Changes of the setting while sound is running, and the return to the start.
#include "stream_use.h"

namespace {

constexpr int32_t kLatency = 320 + 192;  // at hop 320
constexpr size_t kHistory = 50;          // blocks
constexpr size_t kSlowest = 30;          // blocks from a change to the end of the fade

const pcm &sound() {
  static const pcm x = make_sound(6 * kSecond, 12);
  return x;
}

// The stream's output with a change before frame `at`.
pcm run_change(const se_bf_stream_config &from, const se_bf_stream_config &to, const pcm &in,
               size_t at) {
  const size_t channels = static_cast<size_t>(from.channels);
  se_bf_stream *stream = open_stream(from);
  const int32_t latency = se_bf_stream_latency(stream);
  const pcm before = process_words(stream, cut(in, 0, at * channels), channels, {100, true});
  EXPECT_EQ(se_bf_stream_change(stream, &to), 0);
  const size_t again = at + 5 * kBlock;
  const pcm between =
      process_words(stream, cut(in, at * channels, again * channels), channels, {7});
  EXPECT_EQ(se_bf_stream_change(stream, &to), 0) << "the same once more starts nothing anew";
  const pcm after = process_words(stream, cut(in, again * channels, in.size()), channels, {100});
  EXPECT_EQ(se_bf_stream_latency(stream), latency);
  se_bf_stream_close(stream);
  return join({before, between, after});
}

// What a setting gives that starts at frame `start` of the input, as the process functions return
// it.
pcm started_at(const se_bf_stream_config &config, const pcm &in, size_t start) {
  const size_t channels = static_cast<size_t>(config.channels);
  const pcm rest = cut(in, start * channels, in.size());
  return join({pcm(start), run_process(config, rest)});
}

// The first block in which the samples differ.
size_t first_difference(const pcm &a, const pcm &b) {
  const auto differs = std::mismatch(a.begin(), a.end(), b.begin()).first;
  return static_cast<size_t>(differs - a.begin()) / kBlock;
}

struct transition {
  const char *name;
  int32_t mode[2];
  float doa[2];
  bool plain[2];
  int32_t channels = 2;
};

// The output is that of the old setting up to some block, a mixture of both in that block, and that
// of the new setting, which has heard the second before, from then on: no gap, no step, no dip.
TEST(StreamChange, FadesWithinABlockToASettingThatHasHeardTheLastSecond) {
  const transition cases[] = {
      {"to beam", {SE_BF_MODE_OMLSA, SE_BF_MODE_MVDR}, {70, 70}, {false, false}},
      {"from beam", {SE_BF_MODE_MVDR, SE_BF_STREAM_AUTO}, {70, 70}, {false, false}},
      {"direction", {SE_BF_MODE_MVDR, SE_BF_MODE_MVDR}, {20, 150}, {true, true}},
      {"to mono", {SE_BF_MODE_MVDR, SE_BF_MODE_MONO}, {70, 70}, {false, false}},
      {"from mono", {SE_BF_MODE_MONO, SE_BF_MODE_MVDR}, {70, 70}, {false, false}},
      {"to mean, plain", {SE_BF_MODE_OMLSA, SE_BF_MODE_MEAN}, {70, 70}, {false, true}},
      {"one channel", {SE_BF_STREAM_AUTO, SE_BF_MODE_MONO}, {70, 70}, {false, false}, 1},
  };
  const pcm &in = sound();
  for (const transition &c : cases) {
    for (const size_t at : {size_t{3 * kSecond + 77}, size_t{10 * kBlock}}) {
      SCOPED_TRACE(testing::Message() << c.name << " at " << at);
      se_bf_stream_config config[2];
      for (size_t i = 0; i < 2; ++i) {
        config[i] = make_config(c.channels, c.mode[i], 320, c.plain[i]);
        config[i].doa = c.doa[i];
      }
      const pcm out = run_change(config[0], config[1], in, at);
      const pcm old = started_at(config[0], in, 0);
      // Heard from the 48th whole block before the change on: two blocks make the new core.
      const size_t block = at / kBlock;
      const size_t start = block + 2 < kHistory ? 0 : (block + 2 - kHistory) * kBlock;
      const bool copies = c.mode[1] == SE_BF_MODE_MONO;
      const pcm fresh = started_at(config[1], in, copies ? 0 : start);
      const size_t fade = first_difference(out, old) * kBlock;
      std::printf("%s: fade after %zu blocks\n", c.name, (fade - at) / kBlock);
      ASSERT_GE(fade, at);
      ASSERT_LE(fade, at + kSlowest * kBlock);
      for (size_t n = fade; n < fade + kBlock; ++n) {
        const double share = (static_cast<double>(n - fade) + 0.5) / kBlock;
        // Where one of them has headroom, all three are rounded twice or three times.
        ASSERT_NEAR(out[n], old[n] + share * (fresh[n] - old[n]), c.plain[0] ? 0.51 : 2.0)
            << "sample " << n - fade;
      }
      ASSERT_EQ(cut(out, fade + kBlock, out.size()), cut(fresh, fade + kBlock, fresh.size()));
    }
  }
}

TEST(StreamChange, ADirectionThatKeepsMovingIsFollowed) {
  const size_t first = 100;  // block in which it starts to move
  const size_t last = 170;
  se_bf_stream_config config = make_config(2, SE_BF_MODE_MVDR, 320);
  const auto angle = [=](size_t block) {
    return 20.0f + static_cast<float>(std::min(block, last)) - static_cast<float>(first);
  };
  config.doa = angle(first - 1);
  const pcm &in = sound();
  pcm old = run_process(config, in);
  se_bf_stream *stream = open_stream(config);
  pcm out;
  for (size_t block = 0; block * kBlock < old.size(); ++block) {
    if (block >= first && block <= last) {
      config.doa = angle(block);
      EXPECT_EQ(se_bf_stream_change(stream, &config), 0);
    }
    const pcm piece = cut(in, 2 * block * kBlock, 2 * (block + 1) * kBlock);
    out = join({out, process_words(stream, piece, 2, {kBlock})});
  }
  se_bf_stream_close(stream);
  // Each change starts with the newest direction, in the block after the end of the last change.
  for (size_t block = first; block <= last + kSlowest;) {
    config.doa = angle(block);
    const pcm fresh = started_at(config, in, (block + 2 - kHistory) * kBlock);
    const size_t fade = first_difference(out, old);
    ASSERT_GT(fade, block);
    ASSERT_LE(fade, block + kSlowest) << "from " << config.doa << " degrees on";
    EXPECT_EQ(cut(out, (fade + 1) * kBlock, (fade + 20) * kBlock),
              cut(fresh, (fade + 1) * kBlock, (fade + 20) * kBlock));
    old = join({cut(out, 0, (fade + 1) * kBlock), cut(fresh, (fade + 1) * kBlock, fresh.size())});
    block = fade;
  }
  EXPECT_EQ(out, old) << "it has come to rest";
}

TEST(StreamChange, APauseDoesNotHoldAChangeUpAndIsNotHeard) {
  const size_t speaks = 3 * kSecond;
  const pcm in = join({cut(sound(), 0, 2 * speaks), silence(3 * kSecond), sound()});
  const se_bf_stream_config from = make_config(2, SE_BF_MODE_OMLSA, 320);
  const se_bf_stream_config to = make_config(2, SE_BF_MODE_MVDR, 320);
  const pcm out = run_change(from, to, in, speaks + kSecond);
  // In the pause 3 blocks flush the signal path and count as sound; 47 more are remembered.
  const size_t start = speaks - (kHistory - 3) * kBlock;
  const pcm heard = join({cut(in, 2 * start, 2 * (speaks + 3 * kBlock)), sound()});
  const pcm fresh = run_process(to, heard);
  const size_t sounds = speaks + 3 * kSecond;
  const size_t same = sounds - start - (3 * kSecond - 3 * kBlock);
  EXPECT_EQ(cut(out, sounds + kBlock, out.size()), cut(fresh, same + kBlock, fresh.size()));
}

TEST(StreamChange, BeforeTheFirstBlockItIsAsIfOpenedThatWay) {
  const se_bf_stream_config from = make_config(2, SE_BF_MODE_OMLSA, 160);
  const se_bf_stream_config to = make_config(2, SE_BF_MODE_MVDR, 160);
  EXPECT_EQ(run_change(from, to, sound(), 300), run_process(to, sound()));
}

TEST(StreamChange, RefusalsAndWhatSoundsTheSameChangeNothing) {
  heard_events events;
  const se_bf_stream_config config = make_config(2, SE_BF_MODE_OMLSA, 0, false, &events);
  const pcm expected = run_process(config, sound());
  se_bf_stream *stream = open_stream(config);
  pcm out = process_words(stream, cut(sound(), 0, 2 * 30000), 2, {100});
  se_bf_stream_config other = make_config(2, SE_BF_MODE_MVDR, 160);
  EXPECT_EQ(se_bf_stream_change(stream, &other), SE_BF_STREAM_ERROR_FIXED);
  other = make_config(1, SE_BF_MODE_MVDR, 0);
  EXPECT_EQ(se_bf_stream_change(stream, &other), SE_BF_STREAM_ERROR_FIXED);
  other = make_config(2, SE_BF_MODE_MVDR, 0);
  other.rate = 48000;
  EXPECT_EQ(se_bf_stream_change(stream, &other), SE_BF_STREAM_ERROR_FIXED);
  other = make_config(2, 7, 0);
  EXPECT_EQ(se_bf_stream_change(stream, &other), SE_BF_STREAM_ERROR_CONFIG);
  EXPECT_EQ(se_bf_stream_change(stream, nullptr), SE_BF_STREAM_ERROR_NULL);
  EXPECT_EQ(se_bf_stream_change(nullptr, &config), SE_BF_STREAM_ERROR_NULL);
  other = make_config(2, SE_BF_MODE_MVDR, 320);
  EXPECT_EQ(se_bf_stream_change(stream, &other), 0) << "hop 0 is 320";
  out = join({out, process_words(stream, cut(sound(), 2 * 30000, 2 * 35000), 2, {100})});
  other = config;
  other.mic_distance = 0.2f;
  other.doa = 10;
  EXPECT_EQ(se_bf_stream_change(stream, &other), 0) << "back in time; the direction is not read";
  out = join({out, process_words(stream, cut(sound(), 2 * 35000, 2 * 60000), 2, {100})});
  EXPECT_EQ(se_bf_stream_change(stream, &config), 0);
  out = join({out, process_words(stream, cut(sound(), 2 * 60000, sound().size()), 2, {100})});
  EXPECT_EQ(out, expected);
  se_bf_stream_close(stream);

  for (const bool plain : {false, true}) {
    stream = open_stream(make_config(2, SE_BF_MODE_MONO, 0, plain));
    EXPECT_EQ(se_bf_stream_latency(stream), plain ? 320 : kLatency);
    EXPECT_EQ(se_bf_stream_change(stream, &config), plain ? SE_BF_STREAM_ERROR_LATENCY : 0);
    se_bf_stream_close(stream);
  }
}

TEST(StreamChange, WhatWasToldIsHealedUnderTheNewSetting) {
  heard_events before;
  heard_events after;
  const size_t heals = 3 * kSecond;
  pcm in = mute(sound(), 1, kSecond, heals);
  std::fill(&in[2 * (heals + 20 * kBlock)], &in[2 * (heals + 30 * kBlock)], int16_t{0});
  const se_bf_stream_config from = make_config(2, SE_BF_MODE_OMLSA, 320, false, &before);
  const se_bf_stream_config to = make_config(2, SE_BF_MODE_MVDR, 320, false, &after);
  run_change(from, to, in, heals + kSecond);
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(before[0].kind, SE_BF_STREAM_DEAD);
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(after[0].kind, SE_BF_STREAM_HEALED);
  EXPECT_EQ(after[0].since, static_cast<int64_t>(heals)) << "a pause is bridged, not left out";
  EXPECT_EQ(after[0].beamforming, 1);
}

// The recording of the self-test over and over.
pcm recorded(size_t frames) {
  const pcm once = read_words(TM_SE_BF_RECORDING);
  pcm x(2 * frames);
  for (size_t i = 0; i < x.size() && !once.empty(); ++i) {
    x[i] = once[i % once.size()];
  }
  return x;
}

// What a setting that has heard one second has not learnt yet.
constexpr double kMostDb = 3.0;

// By how many decibels a frame of 5 ms is louder than in each of the others, at most.
double excess_db(const pcm &out, const std::vector<pcm> &others, size_t from, size_t to) {
  constexpr size_t kFrame = 80;
  constexpr double kAudibleDb = 60.0;  // 15 dB below the talker
  double worst = -100.0;
  for (size_t n = from; n + kFrame <= to; n += kFrame) {
    double most = kAudibleDb;
    for (const pcm &other : others) {
      most = std::max(most, level_db(part(other, n, n + kFrame) + 1e-9));
    }
    worst = std::max(worst, level_db(part(out, n, n + kFrame) + 1e-9) - most);
  }
  return worst;
}

TEST(StreamChange, NothingIsLouderThanBeforeAndAfter) {
  const size_t step = 2 * kSecond;
  const int32_t modes[] = {SE_BF_MODE_OMLSA,     SE_BF_STREAM_REFINED, SE_BF_MODE_MVDR,
                           SE_BF_STREAM_REFINED, SE_BF_MODE_MEAN,      SE_BF_MODE_MVDR,
                           SE_BF_MODE_OMLSA,     SE_BF_MODE_MONO,      SE_BF_STREAM_REFINED};
  const pcm in = recorded(std::size(modes) * step);
  se_bf_stream *stream = open_stream(make_config(2, modes[0], 320));
  std::vector<pcm> steady;
  pcm out;
  for (size_t i = 0; i < std::size(modes); ++i) {
    const se_bf_stream_config config = make_config(2, modes[i], 320);
    EXPECT_EQ(se_bf_stream_change(stream, &config), 0);
    out = join({out, process_words(stream, cut(in, 2 * i * step, 2 * (i + 1) * step), 2, {1000})});
    steady.push_back(run_process(config, in));
  }
  se_bf_stream_close(stream);
  for (size_t i = 1; i < std::size(modes); ++i) {
    const double excess = excess_db(out, {steady[i - 1], steady[i]}, i * step, (i + 1) * step);
    std::printf("%d to %d: %.1f dB\n", modes[i - 1], modes[i], excess);
    EXPECT_LT(excess, kMostDb) << modes[i - 1] << " to " << modes[i];
  }
}

TEST(StreamChange, AMicrophoneThatFailsIsNoReasonToBecomeLouder) {
  const size_t frames = 12 * kSecond;
  const pcm sound = recorded(frames);
  const pcm faulty = mute(sound, 1, 4 * kSecond, 7 * kSecond);
  pcm good = sound;
  for (size_t t = 0; t < frames; ++t) {
    good[2 * t + 1] = good[2 * t];
  }
  for (const int32_t mode : {+SE_BF_MODE_OMLSA, +SE_BF_MODE_MVDR, +SE_BF_STREAM_REFINED}) {
    const se_bf_stream_config config = make_config(2, mode, 320);
    const pcm out = run_process(config, faulty);
    const double excess = excess_db(out, {run_process(config, sound), run_process(config, good)},
                                    3 * kSecond, frames);
    std::printf("fault in %d: %.1f dB\n", mode, excess);
    EXPECT_LT(excess, kMostDb) << mode;
  }
}

TEST(StreamChange, TheLimitOfTheAttenuationChangesAtOnce) {
  se_bf_stream_config from = make_config(2, SE_BF_STREAM_REFINED, 320);
  se_bf_stream_config to = from;
  to.max_attenuation_db = 9;
  const size_t at = 3 * kSecond;
  const pcm &in = sound();
  for (int32_t round = 0; round < 2; ++round) {
    const pcm out = run_change(from, to, in, at);
    const pcm old = run_process(from, in);
    const pcm fresh = run_process(to, in);
    EXPECT_EQ(cut(out, 0, at + kBlock), cut(old, 0, at + kBlock));
    EXPECT_NE(cut(out, at + kBlock, at + 2 * kBlock), cut(old, at + kBlock, at + 2 * kBlock));
    EXPECT_EQ(cut(out, at + 3 * kBlock, in.size()), cut(fresh, at + 3 * kBlock, in.size()));
    EXPECT_LT(excess_db(out, {old, fresh}, at, at + 3 * kBlock), 0.1);
    std::swap(from, to);
  }
}

// A talker whom microphone 1 hears three samples later.
TEST(StreamChange, WhatIsKnownOfTheTalkerIsCarriedOver) {
  constexpr double kDelayUs = 3e6 / kSampleRateHz;
  const wave dry = speech(8 * kSecond, 3000) + white_noise(11, 8 * kSecond, 60);
  const pcm in = to_words({dry + white_noise(5, dry.size(), 100),
                           0.15 * (dry.shift(-3) + white_noise(6, dry.size(), 100))});
  se_bf_stream_config found = make_config(2, SE_BF_STREAM_REFINED, 320);
  found.mic_distance = 0;
  se_bf_stream_config given = found;
  given.mic_distance = 0.3f;
  given.doa = static_cast<float>(180 / kPi * std::acos(kDelayUs * 343e-6 / 0.3));
  se_bf_stream_config spaced = given;
  spaced.doa = NAN;
  se_bf_stream *stream = open_stream(found);
  se_bf_stream_direction_info info = {};
  const size_t changes = 4 * kSecond;
  const size_t step = 40 * kBlock;
  pcm out = process_words(stream, cut(in, 0, 2 * changes), 2, {1000});
  for (const se_bf_stream_config &config : {spaced, given, spaced, found}) {
    EXPECT_EQ(se_bf_stream_change(stream, &config), 0);
    for (size_t end = out.size() + step; out.size() < end;) {
      const pcm block = cut(in, 2 * out.size(), 2 * (out.size() + kBlock));
      out = join({out, process_words(stream, block, 2, {kBlock})});
      EXPECT_EQ(se_bf_stream_direction(stream, &info), 0);
      ASSERT_NEAR(wide(info.delay_us), kDelayUs, 15) << out.size();
    }
    const wave expected = part(run_process(found, in), out.size() - step / 4, out.size());
    EXPECT_NEAR(level_db(part(out, out.size() - step / 4, out.size())), level_db(expected), 0.5)
        << "the levels";
  }
  se_bf_stream_reset(stream);
  EXPECT_EQ(se_bf_stream_direction(stream, &info), 0);
  EXPECT_EQ(info.delay_us, 0);
  se_bf_stream_close(stream);
}

TEST(StreamReset, GivesTheStreamAsJustOpenedWithItsLastSetting) {
  const pcm loud = mute(sound(), 1, 0, 40000);
  pcm quiet = mute(sound(), 1, 3 * kSecond, 5 * kSecond);
  std::transform(quiet.begin(), quiet.end(), quiet.begin(),
                 [](int16_t word) { return static_cast<int16_t>(word / 30); });
  for (const int32_t rate : {16000, TM_SE_BF_STREAM_OTHER_RATE}) {
    for (const int32_t mode : {SE_BF_MODE_MVDR, SE_BF_MODE_OMLSA, SE_BF_MODE_MONO}) {
      for (const size_t heard : {100u, 40000u}) {
        SCOPED_TRACE(testing::Message() << rate << " " << mode << " " << heard);
        heard_events events;
        se_bf_stream_config from = make_config(2, SE_BF_MODE_MVDR, 320, false, &events);
        from.rate = rate;
        se_bf_stream_config to = from;
        to.mode = mode;
        se_bf_stream *opened = open_stream(from);
        EXPECT_EQ(se_bf_stream_change(opened, &to), 0);
        const pcm expected = process_words(opened, quiet, 2, {1000});
        const heard_events expected_events = events;
        se_bf_stream *stream = open_stream(from);
        process_words(stream, cut(loud, 0, 2 * heard), 2, {1000});
        EXPECT_EQ(se_bf_stream_change(stream, &to), 0);
        process_words(stream, cut(loud, 2 * heard, 4 * heard), 2, {1000});
        se_bf_stream_reset(stream);
        events.clear();
        EXPECT_EQ(process_words(stream, quiet, 2, {1000}), expected);
        EXPECT_EQ(events, expected_events);
        se_bf_stream_close(opened);
        se_bf_stream_close(stream);
      }
    }
  }
}

}  // namespace
