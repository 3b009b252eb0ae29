// What the shield keeps from listeners: silence, a late microphone, faults, clipping. The core's
// own samples for the blocks that it should have processed are what is expected.
#include "stream_use.h"

namespace {

constexpr size_t kOtherRate = TM_SE_BF_STREAM_OTHER_RATE;

constexpr size_t kDelay = 192;         // of the signal at hop 320
constexpr int64_t kHeal = 100;         // blocks
constexpr size_t kHistory = 50;        // blocks
constexpr size_t kLongestWarmUp = 30;  // blocks

// Two channels with microphone `mic` at 1 / `divisor` of its level from frame `from` to frame `to`.
pcm weaken(pcm x, size_t mic, size_t from, size_t to, int32_t divisor) {
  for (size_t t = from; t < to; ++t) {
    x[2 * t + mic] = static_cast<int16_t>(x[2 * t + mic] / divisor);
  }
  return x;
}

// Channel 1 is `factor` times channel 0 for some seconds, or the other way round.
pcm copy_channel(pcm x, double factor, bool swapped, size_t from, size_t to) {
  for (size_t t = from; t < to; ++t) {
    x[2 * t + (swapped ? 0 : 1)] =
        static_cast<int16_t>(std::lrint(factor * x[2 * t + (swapped ? 1 : 0)]));
  }
  return x;
}

pcm run_beamformer(const pcm &in, heard_events *events, bool plain = false) {
  return run_aligned(make_config(2, SE_BF_MODE_MVDR, 320, plain, events), in, {333});
}

// The core on `in`, aligned, with the headroom of the shield.
pcm expect_beamformer(pcm in) {
  const size_t frames = in.size() / 2;
  in.resize((frames / kBlock + 2) * 2 * kBlock);
  const pcm core = run_core(make_config(2, SE_BF_MODE_MVDR, 320), lowered(in));
  return cut(core, kDelay, kDelay + frames);
}

TEST(StreamShield, SilenceIsBridgedAndKeepsTheBeamformer) {
  const size_t flush = 3;  // blocks that empty the signal path at hop 320: (512 + 192) / 320
  const size_t gap = 600;  // 12 s
  const pcm a = make_sound(50 * kBlock, 4);
  const pcm b = make_sound(50 * kBlock, 5);
  heard_events events;
  const pcm out =
      run_beamformer(join({silence(40 * kBlock), a, silence(gap * kBlock), b}), &events);
  const pcm direct = expect_beamformer(join({a, silence(flush * kBlock), b}));
  const size_t still = (50 + flush) * kBlock - kDelay;  // where the core's time stands still
  EXPECT_EQ(out, join({pcm(40 * kBlock), cut(direct, 0, still), pcm((gap - flush) * kBlock),
                       cut(direct, still, direct.size())}));
  EXPECT_EQ(events, heard_events());
}

TEST(StreamShield, AMicrophoneThatDiesIsDatedAndBeamformingResumes) {
  const size_t dies = 4 * kSecond;
  const size_t heals = 8 * kSecond;
  heard_events events;
  for (const size_t mic : {0u, 1u}) {
    events.clear();
    const pcm in = mute(make_sound(14 * kSecond, 6), mic, dies, heals);
    const pcm out = run_beamformer(in, &events);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, SE_BF_STREAM_DEAD);
    EXPECT_EQ(events[0].mic, static_cast<int32_t>(mic));
    EXPECT_EQ(events[0].since, static_cast<int64_t>(dies));
    EXPECT_LT(events[0].time, static_cast<int64_t>(dies + kSecond));
    const int64_t found = static_cast<int64_t>(heals) + (kHeal - 1) * 320;
    EXPECT_EQ(events[1], (heard_event{SE_BF_STREAM_HEALED, 0, found, heals, 1, 0}));

    // Two blocks make the core, meanwhile the history moves on by one; then it hears 50 blocks.
    const size_t warm = static_cast<size_t>(found) - (kHistory - 2) * kBlock;
    const pcm fresh = expect_beamformer(cut(in, 2 * warm, in.size()));
    const size_t after = static_cast<size_t>(found) + kLongestWarmUp * kBlock - kDelay;
    EXPECT_EQ(cut(out, after, out.size()), cut(fresh, after - warm, fresh.size()));

    // Until then noise is suppressed with the microphone that worked: no dropout on the way.
    for (size_t n = dies; n < after; n += 4800) {
      EXPECT_GT(level_db(part(out, n, n + 4800)), level_db(part(out, 0, dies)) - 12.0) << n;
    }
  }
}

// The core as a beamformer, and for noise suppression from frame `left` on.
pcm expect_left_beamformer(const pcm &in, size_t left) {
  forget_levels();
  const stream_setup setup = {2, 320, 320, SE_BF_MODE_MVDR, 0.05f, 70.0f};
  se_bf_inst *inst = make_instance(setup);
  pcm first = lowered(cut(in, 0, 2 * left));
  pcm second = lowered(cut(in, 2 * left, in.size()));
  const pcm beam = process(inst, setup, &first);
  se_bf_change_mode(inst, SE_BF_MODE_OMLSA);
  const pcm single = process(inst, setup, &second);
  se_bf_destroy(inst);
  const pcm out = join({beam, single});
  return cut(out, kDelay, out.size());
}

TEST(StreamShield, AFaultWhileHealingPutsTheBeamformerOffAgain) {
  heard_events events;
  const size_t heals = 8 * kSecond;
  const size_t weakens = heals + 70 * kBlock;  // too late to be noticed before all seems well
  const size_t again = weakens + 3 * kSecond;
  pcm in = mute(make_sound(20 * kSecond, 6), 1, 4 * kSecond, heals);
  in = weaken(in, 1, weakens, again, 300);
  const pcm out = run_beamformer(in, &events);
  ASSERT_EQ(events.size(), 4u) << testing::PrintToString(events);
  EXPECT_EQ(events[1].since, static_cast<int64_t>(heals));
  EXPECT_EQ(events[2].kind, SE_BF_STREAM_DEAD);
  EXPECT_EQ(events[2].since, static_cast<int64_t>(weakens));
  EXPECT_LT(events[2].time, events[1].time + 28 * 320) << "after the new beamformer took over";
  EXPECT_EQ(events[3].kind, SE_BF_STREAM_HEALED);
  EXPECT_EQ(events[3].beamforming, 1);
  const size_t single = static_cast<size_t>(events[3].time);
  const pcm left_out = copy_channel(in, 1, false, 4 * kSecond, in.size() / 2);
  const pcm expected = expect_left_beamformer(left_out, static_cast<size_t>(events[0].time));
  EXPECT_EQ(cut(out, 0, single), cut(expected, 0, single));
}

// Each block of a channel backwards in the other: the levels are equal, the samples are not.
TEST(StreamShield, LevelsThatMeetCostNothing) {
  const size_t meet = 10 * kBlock;
  pcm in = weaken(weaken(make_sound(4 * kSecond, 6), 0, 0, meet, 500), 1, 0, meet, 500);
  for (size_t t = 0; t < meet; ++t) {
    in[2 * t + 1] = in[2 * (t / kBlock * kBlock + kBlock - 1 - t % kBlock)];
  }
  // The seven functions keep levels from stream to stream, so that theirs do not meet here.
  run_core(make_config(2, SE_BF_MODE_OMLSA, 320), make_sound(kSecond, 5));
  const pcm core = run_stream({2, 320, 320, SE_BF_MODE_MVDR, 0.05f, 70.0f}, lowered(in));
  heard_events events;
  const pcm out = run_beamformer(in, &events);
  EXPECT_EQ(cut(out, 0, core.size() - kDelay), cut(core, kDelay, core.size()));
  EXPECT_EQ(events, heard_events());
  run_process(make_config(2, SE_BF_MODE_OMLSA, 320, true, &events), in);
  EXPECT_EQ(events, heard_events()) << "noise suppression is what a fault would lead to";
  for (size_t t = meet; t < 2 * meet; ++t) {
    in[2 * t + 1] = in[2 * t];
  }
  run_beamformer(cut(in, 0, 4 * meet), &events, true);
  const int64_t identical = meet;
  EXPECT_EQ(events, (heard_events{{SE_BF_STREAM_EQUAL_LEVELS, 0, 0, 0, 0, 0},
                                  {SE_BF_STREAM_IDENTICAL, 0, identical, identical, 0, 0}}))
      << "a plain beamformer is lost";
}

TEST(StreamShield, AMeanIsThatOfTheMicrophonesThatWork) {
  constexpr double kLeastSnrDb = 25.0;  // sound at 8 kHz is lost
  pcm in = mute(make_sound(9 * kSecond, 6), 1, 4 * kSecond, 6 * kSecond);
  wave expected(in.size() / 2);
  for (size_t t = 0; t < expected.size(); ++t) {
    in[2 * t + 1] = t < 2 * kSecond ? in[2 * t] : in[2 * t + 1];
    const bool dead = t >= 4 * kSecond && t < 6 * kSecond;
    expected[t] = dead ? in[2 * t] : 0.5 * (in[2 * t] + in[2 * t + 1]);
  }
  heard_events events;
  const pcm out = run_aligned(make_config(2, SE_BF_MODE_MEAN, 320, false, &events), in);
  const int32_t kinds[] = {SE_BF_STREAM_IDENTICAL, SE_BF_STREAM_HEALED, SE_BF_STREAM_DEAD,
                           SE_BF_STREAM_HEALED};
  ASSERT_EQ(events.size(), std::size(kinds)) << testing::PrintToString(events);
  for (size_t i = 0; i < std::size(kinds); ++i) {
    EXPECT_EQ(events[i].kind, kinds[i]) << i;
  }
  for (size_t second = 0; second < 9; ++second) {
    const size_t from = second * kSecond + kBlock;
    const size_t to = (second + 1) * kSecond;
    const wave heard = part(out, from, to);
    const wave wanted = expected[std::slice(from, to - from, 1)];
    EXPECT_GT(snr_db(wanted, heard), kLeastSnrDb) << "second " << second;
  }
}

TEST(StreamShield, CopiesCountAsOneMicrophone) {
  for (const int32_t mode :
       {+SE_BF_MODE_MEAN, +SE_BF_MODE_OMLSA, +SE_BF_MODE_MVDR, +SE_BF_STREAM_REFINED}) {
    for (const double factor : {-1.0, 0.3}) {
      for (const bool swapped : {false, true}) {
        SCOPED_TRACE(testing::Message() << mode << " " << factor << " " << swapped);
        const size_t from = swapped ? 4 * kSecond : 0;
        const size_t to = from + 4 * kSecond;
        heard_events events;
        const pcm in = copy_channel(make_sound(12 * kSecond, 6), factor, swapped, from, to);
        const pcm out = run_aligned(make_config(2, mode, 320, false, &events), in);
        ASSERT_EQ(events.size(), 2u) << testing::PrintToString(events);
        const int32_t louder = swapped && factor == 0.3 ? 1 : 0;
        const int64_t since = static_cast<int64_t>(from);
        EXPECT_EQ(events[0],
                  (heard_event{SE_BF_STREAM_COPIES, louder, since + 9 * 320, since, 0, 0}));
        EXPECT_EQ(events[1].kind, SE_BF_STREAM_HEALED);
        EXPECT_NEAR(static_cast<double>(events[1].since), static_cast<double>(to), 640);
        EXPECT_EQ(events[1].beamforming, mode == SE_BF_MODE_MVDR ? 1 : 0);

        pcm good(in.size() / 2);
        for (size_t t = 0; t < good.size(); ++t) {
          good[t] = in[2 * t + static_cast<size_t>(louder)];
        }
        const int32_t single = mode == SE_BF_MODE_MVDR ? SE_BF_MODE_OMLSA : mode;
        const bool copied = mode == SE_BF_MODE_MEAN;
        const pcm alone = copied ? good : run_aligned(make_config(1, single, 320), good);
        const size_t settled = copied ? from + 2 * kBlock : to - 2 * kSecond;
        const double level = mode == SE_BF_MODE_MVDR ? std::sqrt(0.5) : 1.0;
        const wave expected = level * part(alone, settled, to - kSecond);
        const double snr = snr_db(expected, part(out, settled, to - kSecond));
        // Silence has 0 dB. Where both microphones were heard before, the noise was weaker.
        EXPECT_GT(snr, from == 0 || copied ? 15.0 : 4.0);
      }
    }
  }
}

// The mean of copies is the louder one, also above 8 kHz.
TEST(StreamShield, InvertedCopiesDoNotCancelAtOtherRates) {
  const wave noise = white_noise(3, 4 * kOtherRate, 2000.0);
  pcm in(2 * noise.size());
  for (size_t t = 0; t < noise.size(); ++t) {
    in[2 * t] = static_cast<int16_t>(noise[t]);
    in[2 * t + 1] = static_cast<int16_t>(-noise[t]);
  }
  se_bf_stream_config config = make_config(2, SE_BF_MODE_MEAN, 320);
  config.rate = static_cast<int32_t>(kOtherRate);
  const pcm out = run_aligned(config, in);
  const wave wanted = noise[std::slice(kOtherRate, 2 * kOtherRate, 1)];
  EXPECT_GT(snr_db(wanted, part(out, kOtherRate, 3 * kOtherRate)), 20.0);
}

TEST(StreamShield, EqualSamplesAreNoCopies) {
  heard_events events;
  const pcm in = copy_channel(make_sound(8 * kSecond, 6), 1, false, 4 * kSecond, 8 * kSecond);
  run_beamformer(in, &events);
  ASSERT_EQ(events.size(), 1u) << testing::PrintToString(events);
  EXPECT_EQ(events[0].kind, SE_BF_STREAM_IDENTICAL);
  EXPECT_EQ(events[0].since, 4 * kSecond);
}

// Louder than full scale, the output is what it is at half the level, as far as its format goes.
TEST(StreamShield, TheBeamformerDoesNotClip) {
  constexpr double kLeastSnrDb = 50.0;
  std::vector<wave> x = microphones(6, 6 * kSecond, 300.0);
  for (wave &channel : x) {
    channel *= 5;
  }
  const pcm in = to_words(x);
  std::vector<float> loud(in.size());
  std::transform(in.begin(), in.end(), loud.begin(), [](int16_t word) { return word / 32768.0f; });
  std::vector<float> half = loud;
  std::transform(loud.begin(), loud.end(), half.begin(), [](float sample) { return sample / 2; });
  const se_bf_stream_config config = make_config(2, SE_BF_MODE_MVDR, 320);
  const size_t frames = in.size() / 2;
  for (std::vector<float> *samples : {&loud, &half}) {
    se_bf_stream *stream = open_stream(config);
    se_bf_stream_process_f32(stream, samples->data(), frames, samples->data());
    se_bf_stream_close(stream);
  }
  const wave expected = 65536.0 * part(half, 0, frames);
  std::printf("peak in %.0f, out %.0f, %.1f dB\n", std::abs(x[0]).max(), std::abs(expected).max(),
              snr_db(expected, 32768.0 * part(loud, 0, frames)));
  EXPECT_GT(std::abs(expected).max(), 33000.0) << "loud enough to tell";
  EXPECT_GT(snr_db(expected, 32768.0 * part(loud, 0, frames)), kLeastSnrDb);
  const wave words = std::sqrt(0.5) * expected;
  EXPECT_GT(snr_db(words, part(run_process(config, in), 0, frames)), kLeastSnrDb);
}

TEST(StreamShield, AMicrophoneIsDeadFromFortyDecibelsOn) {
  heard_events events;
  const pcm in = make_sound(6 * kSecond, 6);
  run_beamformer(weaken(in, 0, kSecond, 6 * kSecond, 80), &events);
  EXPECT_EQ(events, heard_events());
  run_beamformer(weaken(in, 0, kSecond, 6 * kSecond, 130), &events);
  run_beamformer(copy_channel(in, 0.005, false, kSecond, 6 * kSecond), &events);
  ASSERT_EQ(events.size(), 2u) << testing::PrintToString(events);
  EXPECT_EQ(events[1].kind, SE_BF_STREAM_DEAD) << "crosstalk";
}

TEST(StreamShield, StartsWithBothMicrophonesButDoesNotWaitForADeadOne) {
  const pcm sound = make_sound(kSecond, 8);
  const size_t late = 3 * kBlock;
  const size_t longest = 10 * kBlock;
  heard_events events;
  const pcm expected = join({pcm(late), expect_beamformer(cut(sound, 2 * late, sound.size()))});
  EXPECT_EQ(run_beamformer(mute(sound, 1, 0, late), &events), expected);
  EXPECT_EQ(run_beamformer(weaken(sound, 1, 0, late, 300), &events), expected);
  EXPECT_EQ(events, heard_events());
  const pcm one = run_beamformer(mute(sound, 1, 0, kSecond), &events);
  EXPECT_EQ(events, (heard_events{{SE_BF_STREAM_DEAD, 1, longest, 0, 0, 0}}));
  EXPECT_EQ(cut(one, 0, longest - kDelay), pcm(longest - kDelay));
  EXPECT_NE(cut(one, longest, longest + kBlock), pcm(kBlock));
}

TEST(StreamShield, PlainStreamsLeaveSilenceAndFaultsToTheCore) {
  const pcm in = join({silence(20 * kSecond), make_sound(4 * kSecond, 7)});
  heard_events events;
  const pcm out = run_beamformer(in, &events, true);
  const int64_t found = 20 * kSecond + (kHeal - 1) * 320;
  EXPECT_EQ(events, (heard_events{{SE_BF_STREAM_SILENT, 0, 0, 0, 0, 0},
                                  {SE_BF_STREAM_HEALED, 0, found, 20 * kSecond, 0, 0}}));
  const pcm core = run_core(make_config(2, SE_BF_MODE_MVDR, 320), in);
  EXPECT_EQ(cut(out, 0, core.size() - kDelay), cut(core, kDelay, core.size()));
}

TEST(StreamShield, MonoCopies) {
  const pcm in = make_sound(kSecond, 2);
  pcm mono(in.size() / 2);
  for (size_t t = 0; t < mono.size(); ++t) {
    mono[t] = in[2 * t];
  }
  EXPECT_EQ(run_aligned(make_config(2, SE_BF_MODE_MONO, 192), in), mono);
  EXPECT_EQ(run_aligned(make_config(1, SE_BF_MODE_MONO, 192), mono), mono);
  EXPECT_NE(run_aligned(make_config(1, SE_BF_MODE_MONO, 192, true), mono), mono);
}

}  // namespace
