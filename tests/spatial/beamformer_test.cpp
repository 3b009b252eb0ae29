// What two microphones buy: a talker and a steady point noise in the free field, through every
// mode.
//
// Signal-to-noise ratio here is the power of the output's least-squares projection on the delayed
// clean talker over the power of the rest (SI-SDR; Le Roux, Wisdom, Erdogan and Hershey, "SDR -
// half-baked or well done?", 2019), so lost speech counts as much as remaining noise.
#include <gtest/gtest.h>

#include "stream_run.h"

namespace {

constexpr double kSoundMps = 343.0;
constexpr double kSpacingM = 0.1;
constexpr size_t kCount = 16 * kSecond;
constexpr size_t kAdapted = 8 * kSecond;
constexpr double kBenefitDb = 6.0;

// x delayed by a fraction of a sample or more: a sinc of 65 taps under a Hann window.
wave delayed(const wave &x, double samples) {
  constexpr int kReach = 32;
  wave y(x.size(), 0.0);
  for (int tap = -kReach; tap <= kReach; ++tap) {
    const double t = tap - samples;
    const double sinc = std::abs(t) < 1e-9 ? 1.0 : std::sin(kPi * t) / (kPi * t);
    const double weight = sinc * (0.5 + 0.5 * std::cos(kPi * t / (kReach + 1)));
    const size_t first = static_cast<size_t>(std::max(tap, 0));
    const size_t last = static_cast<size_t>(static_cast<int>(x.size()) + std::min(tap, 0));
    for (size_t n = first; n < last; ++n) {
      y[n] += weight * x[static_cast<size_t>(static_cast<int>(n) - tap)];
    }
  }
  return y;
}

// A plane wave at the microphone `side` (-1: microphone 0, +1: microphone 1) of the pair.
wave at_microphone(const wave &source, double doa_degrees, double side) {
  const double later_s = side * 0.5 * kSpacingM * std::cos(doa_degrees * kPi / 180.0) / kSoundMps;
  return delayed(source, later_s * kSampleRateHz);
}

// Neither source is broadside: without its adapted weights the beamformer would gain nothing here.
TEST(Beamformer, RaisesTheRatioOfATalkerOverAPointNoise) {
  constexpr double kTalkerDegrees = 50.0;
  constexpr double kNoiseDegrees = 150.0;
  const wave speech = talker(81, kCount, 2500.0);
  const wave noise = white_noise(82, kCount, 500.0);
  std::vector<wave> clean;
  std::vector<wave> microphones;
  for (size_t m = 0; m < 2; ++m) {
    const double side = m == 0 ? -1.0 : 1.0;
    const uint32_t seed = 83 + static_cast<uint32_t>(m);
    clean.push_back(at_microphone(speech, kTalkerDegrees, side));
    const wave both = mix(clean[m], 1.0, at_microphone(noise, kNoiseDegrees, side), 1.0);
    microphones.push_back(mix(both, 1.0, white_noise(seed, kCount, 10.0), 1.0));
  }
  const pcm in = to_words(microphones);
  const double before = project(clean[0], microphones[0], 0, kAdapted).sdr_db;
  EXPECT_GE(before, 5.0);
  EXPECT_LE(before, 10.0);

  // Each mode hears the talker somewhere else; the beamformer where its steering vector is real.
  const std::pair<int32_t, const wave *> modes[] = {{SE_BF_MODE_MONO, &clean[0]},
                                                    {SE_BF_MODE_MEAN, &speech},
                                                    {SE_BF_MODE_OMLSA, &speech},
                                                    {SE_BF_MODE_MVDR, &clean[1]}};
  for (const hop_figures &h : kHops) {
    for (const auto &[mode, reference] : modes) {
      const wave out = to_wave(run_stream({2, 320, h.hop, mode}, in));
      const size_t delay = mode == SE_BF_MODE_MONO ? 0 : h.delay;
      const double after = project(*reference, out, delay, kAdapted).sdr_db;
      std::printf("hop %d, mode %d: %.1f -> %.1f dB\n", h.hop, mode, before, after);
      EXPECT_TRUE(mode != SE_BF_MODE_MVDR || after >= before + kBenefitDb);
    }
  }
}

}  // namespace
