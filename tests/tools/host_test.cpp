// The host layer: same samples for any block length, alignment, silence, and microphone faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "se_bf_host.h"
#include "test_audio.h"

static constexpr int64_t BLOCK_SAMPLES = HOST_BLOCK;

struct host_run {
  pcm out;
  std::vector<host_event> events;
};

static host_config make_config(int channels, int mode, int hop, bool plain, host_run *run) {
  const auto note = [](void *user, const host_event *event) {
    static_cast<host_run *>(user)->events.push_back(*event);
  };
  return {channels, mode, hop, 0.05f, 90.0f, plain, note, run};
}

// Takes `in` through an aligned host, `piece` frames at a time.
static host_run run_host(const pcm &in, int channels, int mode, int hop, size_t piece = 1000,
                         bool plain = false) {
  host_run run;
  const size_t width = static_cast<size_t>(channels);
  const size_t frames = in.size() / width;
  const host_config config = make_config(channels, mode, hop, plain, &run);
  host *h = host_create(&config);
  run.out.resize(frames + HOST_FINISH_MAX + BLOCK);
  size_t written = 0;
  for (size_t at = 0; at < frames; at += piece) {
    const size_t count = std::min(piece, frames - at);
    written += host_push_s16(h, &in[at * width], count, &run.out[written]);
  }
  written += host_finish_s16(h, &run.out[written]);
  run.out.resize(written);
  host_destroy(h);
  return run;
}

// The fault levels outlive instances and hosts. Silence lets them fade, so that every test finds
// them as a new process does.
class Host : public testing::Test {
 protected:
  void SetUp() override {
    run_host(pcm(2 * 20 * SECOND, 0), 2, SE_BF_MODE_OMLSA, 320, 1000, true);
  }
};

TEST_F(Host, AnyBlockLengthGivesTheSamplesOfTheLibrary) {
  for (const int hop : {160, 192, 320}) {
    for (const int channels : {1, 2}) {
      for (const size_t frames : {0u, 1u, 319u, 321u, 7777u}) {
        const pcm in = make_noise(frames, static_cast<size_t>(channels), 1);
        const int mode = SE_BF_MODE_MVDR;
        const pcm expected = run_library(in, channels, mode, hop);
        for (const size_t piece : {1u, 7u, 320u, 1000u}) {
          const pcm got = run_host(in, channels, mode, hop, piece).out;
          ASSERT_EQ(got, expected) << hop << " " << channels << " " << frames << " " << piece;
        }
      }
    }
  }
}

TEST_F(Host, FloatsGiveTheSameSamples) {
  const pcm in = make_noise(5003, 2, 2);
  host_run unused;
  const host_config config = make_config(2, SE_BF_MODE_OMLSA, 320, false, &unused);
  std::vector<float> x;
  std::vector<float> y(5003 + HOST_FINISH_MAX + BLOCK);
  for (const int16_t v : in) {
    x.push_back(static_cast<float>(v) / 32768.0f);
  }
  host *h = host_create(&config);
  size_t written = host_push_f32(h, x.data(), 5003, y.data());
  written += host_finish_f32(h, &y[written]);
  host_destroy(h);
  const pcm expected = run_library(in, 2, SE_BF_MODE_OMLSA, 320);
  ASSERT_EQ(written, expected.size());
  for (size_t n = 0; n < written; ++n) {
    ASSERT_EQ(y[n] * 32768.0f, static_cast<float>(expected[n])) << n;
  }
  EXPECT_EQ(host_sample_from_float(2.0f), 32767);
  EXPECT_EQ(host_sample_from_float(-2.0f), -32768);
  EXPECT_EQ(host_sample_from_float(std::strtof("nan", nullptr)), 0);
}

TEST_F(Host, AnImpulseStaysInPlaceAndStreamsAtTheStatedLatency) {
  const size_t at = 7531;
  pcm in = make_noise(SECOND, 2, 3, 20);
  in[2 * at] = in[2 * at + 1] = 30000;
  for (const int mode : {SE_BF_MODE_MEAN, SE_BF_MODE_MONO}) {
    for (const int hop : {160, 192, 320}) {
      host_run run = run_host(in, 2, mode, hop);
      ASSERT_EQ(run.out.size(), SECOND);
      EXPECT_EQ(std::max_element(run.out.begin(), run.out.end()) - run.out.begin(), at) << hop;
      const host_config config = make_config(2, mode, hop, false, &run);
      host *h = host_create(&config);
      ASSERT_EQ(host_create(&config), nullptr) << "two hosts would share one pool";
      const size_t late = static_cast<size_t>(host_stream_latency(h));
      for (size_t n = 0; n < SECOND; n += 50) {
        host_stream_s16(h, &in[2 * n], 50, &run.out[n]);
      }
      host_destroy(h);
      EXPECT_EQ(std::max_element(run.out.begin(), run.out.end()) - run.out.begin(), at + late);
    }
  }
}

TEST_F(Host, SilenceIsBridgedAndKeepsTheBeamformer) {
  const size_t flush = 3;  // blocks that empty the signal path at hop 320: (512 + 192) / 320
  const size_t gap = 600;  // 12 s
  const pcm a = make_noise(50 * BLOCK, 2, 4);
  const pcm b = make_noise(50 * BLOCK, 2, 5);
  const pcm lead(2 * 40 * BLOCK, 0);
  const pcm shortened = join(join(a, pcm(2 * flush * BLOCK, 0)), b);
  const pcm in = join(lead, join(join(a, pcm(2 * gap * BLOCK, 0)), b));
  const pcm direct = run_library(shortened, 2, SE_BF_MODE_MVDR, 320);
  const size_t cut = (50 + flush) * BLOCK - 192;  // where library time stands still in the output
  pcm expected = join(pcm(40 * BLOCK, 0), part(direct, 0, cut));
  expected = join(expected, pcm((gap - flush) * BLOCK, 0));
  expected = join(expected, part(direct, cut, direct.size()));
  const host_run run = run_host(in, 2, SE_BF_MODE_MVDR, 320);
  EXPECT_EQ(run.out, expected);
  EXPECT_TRUE(run.events.empty());
}

TEST_F(Host, AMicrophoneThatDiesIsDatedAndBeamformingResumes) {
  const size_t dies = 4 * SECOND;
  const size_t heals = 8 * SECOND;
  pcm in = make_noise(14 * SECOND, 2, 6);
  for (size_t t = dies; t < heals; ++t) {
    in[2 * t + 1] = 0;
  }
  const host_run run = run_host(in, 2, SE_BF_MODE_MVDR, 320, 333);
  ASSERT_EQ(run.events.size(), 2u);
  EXPECT_EQ(run.events[0].kind, HOST_EVENT_DEAD);
  EXPECT_EQ(run.events[0].mic, 1);
  EXPECT_EQ(run.events[0].since, static_cast<int64_t>(dies));
  EXPECT_NEAR(static_cast<double>(run.events[0].time - run.events[0].since), 44.0 * 320, 320.0);
  EXPECT_EQ(run.events[1].kind, HOST_EVENT_HEALED);
  EXPECT_TRUE(run.events[1].beamforming);
  const int64_t wait = (HOST_HEAL_BLOCKS - 1) * BLOCK_SAMPLES;
  EXPECT_EQ(run.events[1].time, static_cast<int64_t>(heals) + wait);
  // After the block that fades over, the samples are those of an instance that has heard the last
  // second.
  const size_t found = static_cast<size_t>(run.events[1].time);
  const size_t warm = found - (HOST_HISTORY_BLOCKS - 1) * BLOCK;
  const pcm fresh = run_library(part(in, 2 * warm, in.size()), 2, SE_BF_MODE_MVDR, 320);
  const size_t after = found + BLOCK - 192;
  EXPECT_EQ(part(run.out, after, run.out.size()), part(fresh, after - warm, fresh.size()));
}

TEST_F(Host, StartsWithBothMicrophones) {
  const size_t late = 3 * BLOCK;
  pcm in = make_noise(SECOND, 2, 8);
  for (size_t t = 0; t < late; ++t) {
    in[2 * t + 1] = 0;
  }
  const host_run both = run_host(in, 2, SE_BF_MODE_MVDR, 320);
  EXPECT_TRUE(both.events.empty());
  EXPECT_EQ(both.out, join(pcm(late, 0),
                           run_library(part(in, 2 * late, in.size()), 2, SE_BF_MODE_MVDR, 320)));
}

TEST_F(Host, DoesNotWaitForADeadMicrophone) {
  pcm in = make_noise(SECOND, 2, 8);
  for (size_t t = 0; t < SECOND; ++t) {
    in[2 * t + 1] = 0;
  }
  const host_run one = run_host(in, 2, SE_BF_MODE_MVDR, 320);
  const size_t start = HOST_START_WAIT_BLOCKS * BLOCK;
  ASSERT_EQ(one.events.size(), 1u);
  EXPECT_EQ(one.events[0].kind, HOST_EVENT_DEAD);
  EXPECT_EQ(one.events[0].since, 0);
  EXPECT_EQ(one.events[0].time, static_cast<int64_t>(start));
  EXPECT_NE(part(one.out, start, start + BLOCK), pcm(BLOCK, 0));
}

TEST_F(Host, WithoutShieldingSilenceAndFaultsEndBeamforming) {
  const pcm sound = make_noise(4 * SECOND, 2, 7);
  const pcm in = join(pcm(2 * 20 * SECOND, 0), sound);
  const host_run plain = run_host(in, 2, SE_BF_MODE_MVDR, 320, 1000, true);
  ASSERT_EQ(plain.events.size(), 2u);
  EXPECT_EQ(plain.events[0].kind, HOST_EVENT_SILENT);
  EXPECT_EQ(plain.events[1].kind, HOST_EVENT_HEALED);
  EXPECT_FALSE(plain.events[1].beamforming);
  EXPECT_EQ(plain.out, run_library(in, 2, SE_BF_MODE_MVDR, 320));
  const host_run shielded = run_host(in, 2, SE_BF_MODE_MVDR, 320);
  EXPECT_TRUE(shielded.events.empty());
  EXPECT_EQ(part(shielded.out, 20 * SECOND, shielded.out.size()),
            run_library(sound, 2, SE_BF_MODE_MVDR, 320));
}
