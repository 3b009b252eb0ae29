// Instances seen from inside: pool use, steering, finite state, long runs.
#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "interface/se_bf_instance.h"
#include "spatial/array_util.h"
#include "stream_run.h"

namespace {

// Every vector that a two-channel instance carries from frame to frame. The pool hands out the
// three matrices of each bin one behind the other.
bool state_is_finite(const se_bf_inst *inst) {
  const mcra_state *mcra = inst->mcra;
  const mvdr_evd_state *mvdr = inst->mvdr;
  const int32_t bins = inst->num_bins;
  struct span {
    const float *x;
    int32_t count;
  };
  const span vectors[] = {{mcra->speech_prob, bins},
                          {mcra->lambdaD, bins},
                          {mcra->smoothed_pwr, bins},
                          {mcra->s_tmp, bins},
                          {mcra->s_min, bins},
                          {inst->omlsa->gain, bins},
                          {inst->omlsa->eta2item, bins},
                          {mvdr->speech_weight, bins},
                          {mvdr->noise_weight, bins},
                          {&mvdr->weights->re, 4 * bins},
                          {&mvdr->steering->re, 4 * bins},
                          {&mvdr->noise_cov_inv->data->re, 3 * 8 * bins},
                          {inst->stft->history, 4 * bins - 4},
                          {inst->stft->ola_tail, inst->stft->overlap}};
  return std::all_of(std::begin(vectors), std::end(vectors), [](const span &v) {
    return std::all_of(v.x, v.x + v.count, [](float x) { return std::isfinite(x); });
  });
}

TEST(Instance, EverySupportedConfigurationFitsThePool) {
  for (const hop_figures &h : kHops) {
    for (const int16_t channels : {int16_t{1}, int16_t{2}}) {
      const se_bf_create_param sizes = {channels, 320, h.hop};
      const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.05f, 0.0f};
      se_bf_inst *inst = se_bf_create(&sizes);
      EXPECT_EQ(se_bf_init(inst, &scene), h.reported);
      std::printf("hop %d, %d channels: %d of %d bytes\n", h.hop, channels, kStaticMemoryPosition,
                  kStaticMemorySize);
      EXPECT_LE(kStaticMemoryPosition, (h.fft_len == 512 ? 66820 : 35076) + (channels - 1) * 32632);
      EXPECT_EQ(inst->stream_state, SE_BF_STREAM_READY);
      EXPECT_EQ(inst->num_bins, h.fft_len / 2 + 1);
      se_bf_destroy(inst);
      EXPECT_EQ(kStaticMemoryPosition, 0);
    }
  }
}

// Each part in a pool that ends after every word of it: made whole or refused.
TEST(Instance, PartsAreRefusedWhereThePoolEnds) {
  using maker = const void *(*)();
  constexpr maker kMakers[] = {[]() -> const void * { return mcra_init(3, 0); },
                               []() -> const void * { return omlsa_init(3, 0, 0.0f); },
                               []() -> const void * { return spx_fft_init(32); },
                               []() -> const void * { return stft_buf_create(32, 16, nullptr, 1); },
                               []() -> const void * {
                                 const se_complex steering[6] = {};
                                 return mvdr_evd_init(2, steering, 3);
                               }};
  testing::internal::CaptureStderr();
  for (const maker make : kMakers) {
    tamrin_free(nullptr);
    ASSERT_NE(make(), nullptr);
    const int32_t needed = kStaticMemoryPosition;
    for (int32_t room = 0; room <= needed; room += 4) {
      tamrin_free(nullptr);
      tamrin_malloc(kStaticMemorySize - room);
      EXPECT_EQ(make() != nullptr, room == needed) << room;
    }
  }
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(mvdr_evd_init(2, nullptr, 3) == nullptr &&
              stft_buf_create(32, 0, nullptr, 1) == nullptr);
}

TEST(Instance, PartsTakeNothingForAnAnswer) {
  float x[] = {1.0f, 2.0f};
  mcra_uninit(nullptr);
  mcra_reset(nullptr);
  omlsa_uninit(nullptr);
  omlsa_reset(nullptr);
  mvdr_evd_uninit(nullptr);
  mvdr_evd_reset(nullptr);
  stft_buf_destroy(nullptr);
  stft_set_chnl(nullptr, 1);
  spx_fft_destroy(nullptr);
  uinitCircularMat(nullptr);
  for (circular_mat *mat : {static_cast<circular_mat *>(nullptr), initCircularMat(2)}) {
    const float *const vectors[] = {nullptr, mat == nullptr ? x : nullptr};
    for (const float *vector : vectors) {
      resetCircularMat(mat, vector);
      shiftToPutCircularMat(mat, vector);
    }
    getMinFrmCircleMat(mat, mat == nullptr ? x : nullptr);
  }
  b_spline(x, 1);
  get_ULA_geometry(0, 1.0f, x);
  EXPECT_TRUE(x[0] == 1.0f && x[1] == 2.0f);
  EXPECT_EQ(mcra_get_speech_prob(nullptr), nullptr);
  EXPECT_EQ(mcra_get_smoothed_pwr(nullptr), nullptr);
  EXPECT_EQ(mcra_get_lambdaD(nullptr), nullptr);

  // Records with and without vectors go back to the pool alike.
  const se_complex steering[6] = {};
  mvdr_evd_uninit(mvdr_evd_init(2, steering, 3));
  omlsa_uninit(omlsa_init(3, 0, 0.0f));
  mcra_state mcra = {};
  omlsa_state omlsa = {};
  mvdr_evd_state mvdr = {};
  stft_buf stft = {};
  circular_mat mat = {};
  mcra_uninit(&mcra);
  omlsa_reset(&omlsa);
  omlsa_uninit(&omlsa);
  mvdr_evd_uninit(&mvdr);
  stft_buf_destroy(&stft);
  uinitCircularMat(&mat);
  EXPECT_EQ(kStaticMemoryPosition, 0);
}

TEST(Instance, TwoShareThePoolUntilOneIsDestroyed) {
  se_bf_inst *first = make_instance({1, 320, 192, SE_BF_MODE_OMLSA});
  se_bf_inst *second = make_instance({1, 320, 192, SE_BF_MODE_OMLSA});
  EXPECT_TRUE(se_bf_instance_alive(first) && se_bf_instance_alive(second));
  se_bf_destroy(second);
  EXPECT_FALSE(se_bf_instance_alive(first) || se_bf_instance_alive(second));
}

TEST(Instance, SteeringFollowsASimulatedPlaneWave) {
  constexpr double kSoundMps = 343.0;
  constexpr double kSpacingM = 0.04;
  constexpr double kTolerance = 1e-5;
  for (const double doa : {0.0, 60.0, 90.0, 135.0, 180.0}) {
    se_bf_inst *inst = make_instance({2, 320, 192, SE_BF_MODE_MVDR});
    const se_bf_init_param scene = {SE_BF_MODE_MVDR, static_cast<float>(kSpacingM),
                                    static_cast<float>(doa)};
    se_bf_init(inst, &scene);
    for (int32_t entry = 0; entry < 2 * inst->num_bins; ++entry) {
      // A talker at 0 degrees lies beyond microphone 0, which hears him before the centre does.
      const double later_m = (entry % 2 - 0.5) * kSpacingM * std::cos(doa * kPi / 180.0);
      const int32_t bin = entry / 2;
      const double hertz = bin * kSampleRateHz / 256.0;
      const double phase = -2.0 * kPi * hertz * later_m / kSoundMps;
      const se_complex d = inst->steering[entry];
      ASSERT_NEAR(wide(d.re), std::sqrt(0.5) * std::cos(phase), kTolerance) << doa << ' ' << entry;
      ASSERT_NEAR(wide(d.im), std::sqrt(0.5) * std::sin(phase), kTolerance) << doa << ' ' << entry;
    }
    se_bf_destroy(inst);
  }
}

// Speech probabilities that have decayed into denormals in mode OMLSA, seen by the beamformer.
TEST(Instance, NoOrderOfModesLeavesAnythingNotFinite) {
  constexpr size_t kSegment = 36480;    // six syllables and most of the two pauses
  constexpr size_t kSwitch = 32000;     // in the pauses, later from pair to pair
  constexpr double kLargestGain = 2.0;  // of the beamformer: 3 dB and its ripple
  const wave speech = talker(91, kSegment, 600.0);
  int32_t loudest = 0;
  int32_t peak = 0;
  uint32_t seed = 92;
  const auto magnitude = [](int32_t most, int16_t x) {
    return std::max<int32_t>(most, std::abs(x));
  };
  se_bf_inst *inst = make_instance({2, 320, 192, SE_BF_MODE_MVDR});
  for (int32_t pair = 0; pair < 25; ++pair) {
    const int32_t from = 6000 + pair % 5;  // with an unknown one
    const int32_t to = 6000 + pair / 5;
    pcm in = to_words({mix(speech, 1.0, white_noise(++seed, kSegment, 15.0), 1.0),
                       mix(speech, 0.8, white_noise(++seed, kSegment, 15.0), 1.0)});
    peak = std::accumulate(in.begin(), in.end(), peak, magnitude);
    for (size_t n = 0; n < kSegment; n += 320) {
      pcm out(320);
      se_bf_change_mode(inst, n < kSwitch + static_cast<size_t>(pair) * 160 ? from : to);
      se_bf_do(inst, out.data(), in.data() + 2 * n);
      ASSERT_TRUE(state_is_finite(inst)) << "mode " << from << " to " << to << ", sample " << n;
      loudest = std::accumulate(out.begin(), out.end(), loudest, magnitude);
    }
  }
  std::printf("loudest output %d for a peak of %d\n", loudest, peak);
  EXPECT_LE(loudest, kLargestGain * peak);
  se_bf_destroy(inst);
}

TEST(Instance, HoursOfAudioChangeNeitherPoolNorLevel) {
  constexpr size_t kLoop = 5 * 30720;  // periods of the talker
  constexpr size_t kLoops = TM_SE_BF_ENDURANCE_SECONDS * kSecond / kLoop;
  constexpr double kDriftDb = 0.5;
  const stream_setup setup = {2, 320, 192, SE_BF_MODE_MVDR};
  const wave speech = talker(101, kLoop, 2000.0);
  pcm in = to_words({mix(speech, 1.0, white_noise(102, kLoop, 300.0), 1.0),
                     mix(speech, 0.9, white_noise(103, kLoop, 300.0), 1.0)});
  se_bf_inst *inst = make_instance(setup);
  const int32_t used = kStaticMemoryPosition;
  double early_db = 0.0;
  double late_db = 0.0;
  for (size_t i = 0; i < kLoops; ++i) {
    late_db = level_db(to_wave(process(inst, setup, &in)), 0, kLoop);
    early_db = i == 2 ? late_db : early_db;
    ASSERT_TRUE(state_is_finite(inst)) << "loop " << i;
  }
  std::printf("%zu s: output %.2f dB, at first %.2f dB\n", kLoops * kLoop / kSecond, late_db,
              early_db);
  EXPECT_NEAR(late_db, early_db, kDriftDb);
  EXPECT_EQ(kStaticMemoryPosition, used);

  // Half a day of frames: the sums shrink to 1/24 and the count goes on from there.
  mvdr_evd_state *mvdr = inst->mvdr;
  EXPECT_EQ(mvdr->rescale_limit, 12 * 3600 * 100);
  const double before = wide(mvdr->noise_weight[50]);
  mvdr->rescale_count = mvdr->rescale_limit - 1;
  in.resize(640);
  process(inst, setup, &in);
  EXPECT_NEAR(mvdr->rescale_count, 180001, 1);
  EXPECT_NEAR(wide(mvdr->noise_weight[50]), before / 24.0, 2.0);
  se_bf_destroy(inst);
}

// Hop 159 repeats a sample every 79 blocks until its output store is full; nothing lies beyond it.
TEST(Instance, LossyHopStopsBeforeItOverruns) {
  constexpr int32_t kLastBlock = 2686;
  constexpr int32_t kGuardBytes = 4096;
  const stream_setup setup = {1, 320, 159, SE_BF_MODE_OMLSA};
  pcm in = to_words({white_noise(111, 320, 2000.0)});
  se_bf_inst *inst = make_instance(setup);
  const uint8_t *guard = static_cast<uint8_t *>(tamrin_malloc(kGuardBytes));
  int32_t last_loud = 0;
  testing::internal::CaptureStderr();
  for (int32_t block = 1; block <= kLastBlock + 100; ++block) {
    last_loud = process(inst, setup, &in) == pcm(320) ? last_loud : block;
  }
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
  std::printf("last block with sound: %d\n", last_loud);
  EXPECT_EQ(last_loud, kLastBlock);
  EXPECT_EQ(std::count(guard, guard + kGuardBytes, 0), kGuardBytes);
  se_bf_destroy(inst);
}

}  // namespace
