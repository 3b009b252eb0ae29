// The host layer: same samples for any block length, alignment, silence, and microphone faults.
#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "se_bf_host.h"
#include "stream_run.h"

static constexpr size_t BLOCK = 320;
static constexpr size_t SECOND = kSecond;

// A talker in noise of the same level, so that no block is silent.
static pcm make_sound(size_t frames, uint32_t seed) {
  return to_words(microphones(seed, frames, 3000.0));
}

static pcm join(const std::vector<pcm> &parts) {
  pcm whole;
  for (const pcm &next : parts) {
    whole.insert(whole.end(), next.begin(), next.end());
  }
  return whole;
}

static pcm cut(const pcm &x, size_t from, size_t to) {
  return pcm(x.data() + from, x.data() + to);
}

// Two channels with the second one silent from frame `from` to frame `to`.
static pcm mute_second(pcm x, size_t from, size_t to) {
  for (size_t t = from; t < to; ++t) {
    x[2 * t + 1] = 0;
  }
  return x;
}

// The bare library, called as its header says, with the delay of the signal cut off.
static pcm run_library(pcm in, int16_t channels, int mode, int hop) {
  const size_t width = static_cast<size_t>(channels);
  const size_t frames = in.size() / width;
  const size_t overlap = hop == 160 ? 256 : 192;
  const size_t delay = channels == 2 && mode == SE_BF_MODE_MONO ? 0 : overlap;
  in.resize((frames / BLOCK + 2) * BLOCK * width);
  return cut(run_stream({channels, BLOCK, hop, mode, 0.05f, 90.0f}, in), delay, delay + frames);
}

using event = std::array<int64_t, 4>;  // kind, microphone, since, beamforming

struct host_run {
  pcm out;
  std::vector<event> events;
  int64_t found_at;  // the last event, in samples
};

// Takes `in` through an aligned host, `piece` frames at a time.
static host_run run_host(const pcm &in, int channels, int mode, int hop, size_t piece,
                         bool plain = false) {
  host_run run = {};
  const size_t width = static_cast<size_t>(channels);
  const size_t frames = in.size() / width;
  const auto note = [](void *user, const host_event *e) {
    static_cast<host_run *>(user)->events.push_back({e->kind, e->mic, e->since, e->beamforming});
    static_cast<host_run *>(user)->found_at = e->time;
  };
  const host_config config = {channels, mode, hop, 0.05f, 90.0f, plain, note, &run};
  host *h = host_create(&config);
  EXPECT_EQ(host_create(&config), nullptr) << "two hosts would share one pool";
  run.out.resize(frames + HOST_FINISH_MAX + BLOCK);
  size_t written = 0;
  for (size_t at = 0; at < frames; at += piece) {
    written += host_push_s16(h, &in[at * width], std::min(piece, frames - at), &run.out[written]);
  }
  run.out.resize(written + host_finish_s16(h, &run.out[written]));
  host_destroy(h);
  return run;
}

static host_run beamform(const pcm &in, bool plain = false) {
  // The fault levels outlive instances and hosts. Silence lets them fade, as in a new process.
  run_host(pcm(2 * 20 * SECOND, 0), 2, SE_BF_MODE_OMLSA, 320, 1000, true);
  return run_host(in, 2, SE_BF_MODE_MVDR, 320, 333, plain);
}

TEST(Host, AnyBlockLengthGivesTheSamplesOfTheLibraryAligned) {
  for (const int hop : {160, 192, 320}) {
    for (const int mode : {SE_BF_MODE_MVDR, SE_BF_MODE_MEAN, SE_BF_MODE_MONO}) {
      const int16_t channels = hop == 192 ? 1 : 2;
      for (const auto &[frames, piece] : std::vector<std::pair<size_t, size_t>>{
               {0, 1}, {1, 7}, {319, 1000}, {321, 320}, {7777, 1}, {7777, 7}, {7777, 1000}}) {
        pcm in = make_sound(frames, 1);
        in.resize(frames * static_cast<size_t>(channels));
        ASSERT_EQ(run_host(in, channels, mode, hop, piece).out,
                  run_library(in, channels, mode, hop))
            << hop << " " << mode << " " << frames << " " << piece;
      }
    }
  }
  EXPECT_EQ(host_sample_from_float(-2.0f), INT16_MIN);
  EXPECT_EQ(host_sample_from_float(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(Host, SilenceIsBridgedAndKeepsTheBeamformer) {
  const size_t flush = 3;  // blocks that empty the signal path at hop 320: (512 + 192) / 320
  const size_t gap = 600;  // 12 s
  const pcm a = make_sound(50 * BLOCK, 4);
  const pcm b = make_sound(50 * BLOCK, 5);
  const host_run run = beamform(join({pcm(2 * 40 * BLOCK, 0), a, pcm(2 * gap * BLOCK, 0), b}));
  const pcm direct = run_library(join({a, pcm(2 * flush * BLOCK, 0), b}), 2, SE_BF_MODE_MVDR, 320);
  const size_t still = (50 + flush) * BLOCK - 192;  // where library time stands still in the output
  EXPECT_EQ(run.out, join({pcm(40 * BLOCK, 0), cut(direct, 0, still), pcm((gap - flush) * BLOCK, 0),
                           cut(direct, still, direct.size())}));
  EXPECT_TRUE(run.events.empty());
}

TEST(Host, AMicrophoneThatDiesIsDatedAndBeamformingResumes) {
  const int64_t dies = 4 * SECOND;
  const int64_t heals = 8 * SECOND;
  const pcm in = mute_second(make_sound(14 * SECOND, 6), dies, heals);
  const host_run run = beamform(in);
  EXPECT_EQ(run.events, (std::vector<event>{{HOST_EVENT_DEAD, 1, dies, false},
                                            {HOST_EVENT_HEALED, 0, heals, true}}));
  const size_t found = static_cast<size_t>(run.found_at);
  EXPECT_EQ(found, heals + (HOST_HEAL_BLOCKS - 1) * BLOCK);
  // After the block that fades over: the samples of an instance that has heard the last second.
  const size_t warm = found - (HOST_HISTORY_BLOCKS - 1) * BLOCK;
  const pcm fresh = run_library(cut(in, 2 * warm, in.size()), 2, SE_BF_MODE_MVDR, 320);
  const size_t after = found + BLOCK - 192;
  EXPECT_EQ(cut(run.out, after, run.out.size()), cut(fresh, after - warm, fresh.size()));
}

TEST(Host, StartsWithBothMicrophonesButDoesNotWaitForADeadOne) {
  const pcm sound = make_sound(SECOND, 8);
  const size_t late = 3 * BLOCK;
  const size_t longest = HOST_START_WAIT_BLOCKS * BLOCK;
  const host_run both = beamform(mute_second(sound, 0, late));
  const pcm rest = cut(sound, 2 * late, sound.size());
  EXPECT_EQ(both.out, join({pcm(late, 0), run_library(rest, 2, SE_BF_MODE_MVDR, 320)}));
  EXPECT_TRUE(both.events.empty());
  const host_run one = beamform(mute_second(sound, 0, SECOND));
  EXPECT_EQ(one.events, (std::vector<event>{{HOST_EVENT_DEAD, 1, 0, false}}));
  EXPECT_EQ(one.found_at, static_cast<int64_t>(longest));
  EXPECT_NE(cut(one.out, longest, longest + BLOCK), pcm(BLOCK, 0));
}

TEST(Host, WithoutShieldingSilenceAndFaultsEndBeamforming) {
  const pcm in = join({pcm(2 * 20 * SECOND, 0), make_sound(4 * SECOND, 7)});
  const host_run plain = beamform(in, true);
  EXPECT_EQ(plain.events, (std::vector<event>{{HOST_EVENT_SILENT, 0, 0, false},
                                              {HOST_EVENT_HEALED, 0, 20 * SECOND, false}}));
  EXPECT_EQ(plain.out, run_library(in, 2, SE_BF_MODE_MVDR, 320));
}
