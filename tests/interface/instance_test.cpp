// Instances seen from inside: pool use, steering, finite state, long runs.
#include <gtest/gtest.h>

#include <complex>
#include <ctime>

#include "finite_state.h"
#include "interface/se_bf_instance.h"
#include "spatial/array_util.h"
#include "stream_run.h"

namespace {

// Runs a stream in blocks of 320 and looks at the state after each. Returns the loudest output.
int32_t run_watched(se_bf_inst *inst, const pcm &in) {
  int32_t loudest = 0;
  for (auto block = in.begin(); block != in.end(); block += 640) {
    pcm words(block, block + 640);
    const pcm out = process(inst, kBeamformer, &words);
    loudest = std::max<int32_t>(loudest, *std::max_element(out.begin(), out.end()));
    EXPECT_EQ(not_finite(inst), "") << "sample " << (block - in.begin()) / 2;
  }
  return loudest;
}

TEST(Instance, EverySupportedConfigurationFitsThePoolAndSteersToThePlaneWave) {
  constexpr double kSpacing = 0.04;  // in metres; sound takes 1/343 s for one
  tamrin_free(nullptr);
  for (const hop_figures &h : kHops) {
    for (const double doa : {0.0, 60.0, 90.0, 180.0}) {
      se_bf_inst *inst =
          make_instance({2, 320, h.hop, SE_BF_MODE_MVDR, 0.04f, static_cast<float>(doa)});
      EXPECT_LE(kStaticMemoryPosition, (h.fft_len == 512 ? 66820 : 35076) + 32632);
      for (int32_t entry = 0; entry < 2 * inst->num_bins; ++entry) {
        // A talker at 0 degrees is on the side of microphone 0, so the sound reaches it before the
        // centre.
        const double later_s = (entry % 2 - 0.5) * kSpacing * std::cos(doa * kPi / 180.0) / 343.0;
        const double hertz = entry / 2 * kSampleRateHz / h.fft_len;
        const auto expected = std::polar(std::sqrt(0.5), -2.0 * kPi * hertz * later_s);
        const se_complex d = inst->steering[entry];
        ASSERT_LE(std::hypot(wide(d.re) - expected.real(), wide(d.im) - expected.imag()), 1e-5);
      }
      se_bf_destroy(inst);
      EXPECT_EQ(kStaticMemoryPosition, 0);
    }
  }
}

// Makes a part in pools of every size up to the one that it needs: it must be complete, or null.
// The release must accept a complete record, null, and a record without vectors.
template <typename record, typename maker>
void judge_part(maker make, std::initializer_list<void (*)(record *)> releases) {
  tamrin_free(nullptr);
  make();
  const int32_t needed = kStaticMemoryPosition;
  record empty = {};
  for (int32_t room = 0; room <= needed; room += 4) {
    tamrin_free(nullptr);
    tamrin_malloc(kStaticMemorySize - room);
    record *whole = make();
    EXPECT_EQ(whole != nullptr, room == needed) << room;
    for (record *r : {whole, &empty}) {
      for (const auto release : releases) {
        release(r);
      }
    }
    EXPECT_EQ(kStaticMemoryPosition, 0);
  }
}

TEST(Instance, PartsAreRefusedWhereThePoolEndsAndTakeNothingForAnAnswer) {
  const se_complex steering[6] = {};
  testing::internal::CaptureStderr();
  judge_part<mcra_state>([] { return mcra_init(3, 0); }, {mcra_reset, mcra_uninit});
  judge_part<omlsa_state>([] { return omlsa_init(3, 0, 0.0f); }, {omlsa_reset, omlsa_uninit});
  judge_part<mvdr_evd_state>([&] { return mvdr_evd_init(2, steering, 3); },
                             {mvdr_evd_reset, mvdr_evd_uninit});
  judge_part<stft_buf>([] { return stft_buf_create(32, 16, nullptr, 1); }, {stft_buf_destroy});
  judge_part<fft_setup>([] { return spx_fft_init(32); }, {spx_fft_destroy});
  judge_part<circular_mat>([] { return initCircularMat(3); }, {uinitCircularMat});
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(mvdr_evd_init(2, nullptr, 3), nullptr);
  EXPECT_EQ(stft_buf_create(32, 0, nullptr, 1), nullptr);
  stft_set_chnl(nullptr, 1);
  for (const auto get : {mcra_get_speech_prob, mcra_get_smoothed_pwr, mcra_get_lambdaD}) {
    EXPECT_EQ(get(nullptr), nullptr);
  }
  float x[] = {1.0f, 2.0f};
  circular_mat mat = {};
  getMinFrmCircleMat(nullptr, x);
  getMinFrmCircleMat(&mat, nullptr);
  b_spline(x, 1);
  get_ULA_geometry(0, 1.0f, x);
  EXPECT_EQ(x[0], 1.0f);
  EXPECT_EQ(x[1], 2.0f);
  for (const auto use : {resetCircularMat, shiftToPutCircularMat}) {
    use(nullptr, x);
    use(&mat, nullptr);
  }
}

// A handle is stale once the pool was emptied, even if a new instance uses the same memory.
TEST(Instance, StaleHandlesReachNothingAndOneChannelStaysInItsMode) {
  const se_bf_init_param scene = {SE_BF_MODE_MEAN, 0.05f, 30.0f};
  pcm in(640, 7700);
  pcm out(320);
  tamrin_free(nullptr);
  se_bf_inst *older = make_instance(kBeamformer);
  se_bf_inst *gone = make_instance(kBeamformer);
  se_bf_destroy(older);
  const auto expect_untouched = [&] {
    const std::vector<uint8_t> before(kStaticMemory, kStaticMemory + kStaticMemorySize);
    testing::internal::CaptureStderr();
    se_bf_change_mode(gone, SE_BF_MODE_MEAN);
    EXPECT_EQ(se_bf_init(gone, &scene), 0);
    EXPECT_EQ(se_bf_do(gone, out.data(), in.data()), 0);
    testing::internal::GetCapturedStderr();
    const auto change = std::mismatch(before.begin(), before.end(), kStaticMemory).first;
    EXPECT_EQ(change - before.begin(), kStaticMemorySize) << "first byte of the pool to change";
  };
  expect_untouched();
  se_bf_inst *mono = make_instance({1, 320, 192, SE_BF_MODE_MVDR});
  ASSERT_EQ(mono, older) << "the pool starts anew";
  ASSERT_EQ(mono->older, nullptr) << "linked to an instance that has gone with the pool";
  expect_untouched();
  EXPECT_EQ(mono->mode, SE_BF_MODE_OMLSA);
  se_bf_change_mode(mono, SE_BF_MODE_MONO);
  EXPECT_EQ(mono->mode, SE_BF_MODE_OMLSA);
}

TEST(Pool, HandsOutGranulesUntilItIsFull) {
  const auto take = [](int32_t size) { return static_cast<uint8_t *>(tamrin_malloc(size)); };
  uint8_t *start = take(5);
  EXPECT_EQ(take(2), start + 8);
  EXPECT_EQ(take(102400 - 12), start + 12);
  EXPECT_EQ(take(4), nullptr);
  std::fill(start, start + 102400, uint8_t{0xA5});
  tamrin_free(nullptr);
  for (const int32_t refused : {-4, INT32_MIN, 102401, INT32_MAX}) {
    EXPECT_EQ(take(refused), nullptr) << refused;
    EXPECT_EQ(kStaticMemoryPosition, 0) << refused;
  }
  EXPECT_EQ(take(102400), start);
  EXPECT_EQ(std::count(start, start + 102400, 0), 102400) << "recycled memory is cleared";
  EXPECT_EQ(tamrin_realloc(start, 16, 8), start);
  tamrin_free(start);
  EXPECT_EQ(tamrin_realloc(take(8), 8, 16), start + 8);
  EXPECT_EXIT(tamrin_fatal("stop"), testing::ExitedWithCode(1), "");
}

TEST(Instance, NoSignalLeavesAnythingNotFinite) {
  constexpr size_t kCount = 2 * kSecond;
  const wave dc(kFull, kCount);
  const wave silence(120 * kSecond);
  const wave voice = speech(kCount, 3000.0);
  wave alternating = dc;
  alternating[std::slice(0, kCount / 2, 2)] = wave(-kFull - 1, kCount / 2);
  const std::vector<wave> signals[] = {
      {alternating, 0.1 * dc - 0.9 * alternating},
      {dc, -0.5 * dc},
      {white_noise(1, kCount, 0.5), white_noise(2, kCount, 0.5)},
      {voice, 0.5 * voice},
      {voice, -0.9999 * voice},
      {white_noise(3, kCount, 3000.0), white_noise(4, kCount, 3000.0)},
      {silence, silence}};
  for (const hop_figures &h : kHops) {
    se_bf_inst *inst = make_instance({2, 320, h.hop, SE_BF_MODE_MVDR});
    for (const std::vector<wave> &signal : signals) {
      run_watched(inst, to_words(microphones(91, kCount, 15.0)));
      run_watched(inst, to_words(signal));
    }
    se_bf_destroy(inst);
  }
}

// Every ordered pair of modes, including an unknown one. Speech probabilities decay into denormals
// in mode OMLSA; the mode changes in the talker's pauses, later from pair to pair.
TEST(Instance, NoOrderOfModesLeavesAnythingNotFinite) {
  constexpr int32_t kLargestGain = 2;  // of the beamformer: 3 dB and its ripple
  const pcm in = to_words(microphones(91, 36480, 15.0));
  se_bf_inst *inst = make_instance(kBeamformer);
  int32_t loudest = 0;
  for (int32_t pair = 0; pair < 25; ++pair) {
    SCOPED_TRACE(pair);
    const auto middle = in.begin() + 640 * (100 + pair / 2);
    se_bf_change_mode(inst, 6000 + pair % 5);
    loudest = std::max(loudest, run_watched(inst, pcm(in.begin(), middle)));
    se_bf_change_mode(inst, 6000 + pair / 5);
    loudest = std::max(loudest, run_watched(inst, pcm(middle, in.end())));
  }
  EXPECT_LE(loudest, kLargestGain * *std::max_element(in.begin(), in.end()));
  se_bf_destroy(inst);
}

// Also prints the hash of all output. The sound, made in integer arithmetic, is a talker in noise
// who pauses for a third of the time and reaches microphone 1 later. Speed is judged only if a span
// is an hour: over shorter spans the measured time scatters too much.
TEST(Instance, HoursOfAudioChangeNeitherPoolNorLevelNorSpeed) {
  constexpr int32_t kSpans = 24;
  constexpr int32_t kCalls = TM_SE_BF_ENDURANCE_SECONDS / kSpans * (kSecond / kBlockLen);
  constexpr int32_t kDelay = 3;
  constexpr bool kSpeedCounts = kSpans * 3600 <= TM_SE_BF_ENDURANCE_SECONDS;
  constexpr stream_setup kSetups[] = {{1, kBlockLen, 192, SE_BF_MODE_OMLSA, 0.05f, 60.0f},
                                      {2, kBlockLen, 192, SE_BF_MODE_MVDR, 0.05f, 60.0f}};
  for (const stream_setup &setup : kSetups) {
    se_bf_inst *inst = make_instance(setup);
    const int32_t used = kStaticMemoryPosition;
    talker voices[2] = {};
    uint32_t seed = 1;
    uint64_t hash = kEmptyHash;
    double energies[kSpans] = {};
    double busy_s[kSpans] = {};
    for (int32_t call = 0; call < kSpans * kCalls; ++call) {
      const bool talking = call % kCalls * 60 / kCalls % 6 < 4;
      pcm in;
      for (int32_t n = call * kBlockLen; n < (call + 1) * kBlockLen; ++n) {
        for (int32_t m = 0; m < setup.channels; ++m) {
          const int32_t voice = talking ? talk(&voices[m], n - m * kDelay) : 0;
          in.push_back(saturate(voice + noise(&seed, 300)));
        }
      }
      const clock_t start = std::clock();
      const pcm out = process(inst, setup, &in);
      busy_s[call / kCalls] += static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
      energies[call / kCalls] += std::pow(part(out, 0, kBlockLen), 2.0).sum();
      hash = hash_words(hash, out);
      ASSERT_EQ(not_finite(inst), "") << "call " << call;
    }
    EXPECT_EQ(kStaticMemoryPosition, used);
    const double louder = energies[kSpans - 1] / energies[0];
    const double slower = busy_s[kSpans - 1] / busy_s[0];
    std::printf("pool at %d, last span over first: mean square %.3f, processor time %.3f\n", used,
                louder, slower);
    std::printf("hash mode-%d %016llx\n", setup.mode, static_cast<unsigned long long>(hash));
    EXPECT_GT(louder, 0.25);
    EXPECT_LT(louder, 4.0);
    if (kSpeedCounts) {
      EXPECT_LT(slower, 1.5);
    }
    se_bf_destroy(inst);
  }
}

}  // namespace
