// The refined path against a model in double precision, and what it does about direction and
// faults.
#include "refined_model.h"
#include "stream_use.h"

namespace {

constexpr size_t kCount = 12 * kSecond;
constexpr double kSpacing = 0.08;  // m

// By how many samples sound from `doa` reaches microphone 1 later.
double delay_of(double doa) {
  return kSpacing * std::cos(doa * kPi / 180) / 343 * kSampleRateHz;
}

// x late by any number of samples.
wave late(const wave &x, double delay) {
  constexpr int kReach = 24;
  const int whole = static_cast<int>(std::lround(delay));
  wave y(x.size());
  for (int i = -kReach; i <= kReach; ++i) {
    const double at = whole - delay - i;
    const double sinc = std::abs(at) < 1e-9 ? 1 : std::sin(kPi * at) / (kPi * at);
    y += sinc * std::pow(std::cos(at * kPi / (2 * kReach + 2)), 2) * x.shift(i - whole);
  }
  return y;
}

// What reaches both microphones from one direction, with the delay shared between them.
std::vector<wave> plane_wave(const wave &x, double doa) {
  return {late(x, -0.5 * delay_of(doa)), late(x, 0.5 * delay_of(doa))};
}

struct scene {
  std::vector<wave> x;  // both microphones
  wave clean;           // the talker half-way between them
};

// A talker at 60 degrees, a noise source at 150, and noise of each microphone; microphone 1 is
// 2.5 dB less sensitive.
const scene &recording() {
  static const scene made = [] {
    scene s;
    s.clean = speech(kCount, 3000);
    s.clean += 0.02 * 3000 * white_noise(11, kCount, 1.0);  // breath: all frequencies have a phase
    const std::vector<wave> talker = plane_wave(s.clean, 60);
    const std::vector<wave> fan = plane_wave(white_noise(5, kCount, 600), 150);
    s.x = {talker[0] + fan[0] + white_noise(6, kCount, 200),
           0.75 * (talker[1] + fan[1] + white_noise(7, kCount, 200))};
    return s;
  }();
  return made;
}

se_bf_stream_config refined(int32_t channels, bool steered, float limit_db = 0) {
  se_bf_stream_config config = make_config(channels, SE_BF_STREAM_REFINED, 320);
  config.mic_distance = steered ? static_cast<float>(kSpacing) : 0;
  config.doa = 60;
  config.max_attenuation_db = limit_db;
  return config;
}

wave heard(const se_bf_stream_config &config, const std::vector<wave> &x) {
  const pcm out = run_aligned(config, to_words(x));
  return part(out, 0, out.size());
}

// As 16 bits hold it.
std::vector<wave> rounded(std::vector<wave> x) {
  const pcm words = to_words(x);
  for (size_t i = 0; i < words.size(); ++i) {
    x[i % x.size()][i / x.size()] = words[i];
  }
  return x;
}

TEST(StreamRefined, AgreesWithTheModelInDoublePrecision) {
  struct {
    const char *name;
    int32_t channels;
    bool steered;
    float limit_db;
  } const cases[] = {{"one channel", 1, false, 0},
                     {"direction given", 2, true, 0},
                     {"limit 12 dB", 2, true, 12},
                     {"direction found", 2, false, 0}};
  constexpr double kLeastAgreementDb = 60;
  for (const auto &c : cases) {
    std::vector<wave> x = rounded(recording().x);
    x.resize(static_cast<size_t>(c.channels), wave());
    const wave y = heard(refined(c.channels, c.steered, c.limit_db), x);
    const double floor = c.limit_db > 0 ? std::pow(10, -wide(c.limit_db) / 20) : 0;
    const double delay = c.steered ? delay_of(60) : refined_model::kSearched;
    const wave expected = refined_model::run(x, delay, floor);
    const double agreement =
        snr_db(expected[std::slice(0, kCount - 512, 1)], y[std::slice(0, kCount - 512, 1)]);
    std::printf("%s: %.1f dB\n", c.name, agreement);
    EXPECT_GT(agreement, kLeastAgreementDb) << c.name;
  }
}

TEST(StreamRefined, SteersAndFindsTheTalker) {
  const std::vector<wave> x = recording().x;
  double best = -100;
  int32_t best_doa = -1;
  for (int32_t doa = 0; doa <= 180; doa += 30) {
    se_bf_stream_config config = refined(2, true);
    config.doa = static_cast<float>(doa);
    const double sdr = sdr_db(recording().clean, heard(config, x));
    best_doa = sdr > best ? doa : best_doa;
    best = std::max(best, sdr);
  }
  EXPECT_EQ(best_doa, 60);

  se_bf_stream_config config = refined(2, true);
  config.doa = NAN;
  se_bf_stream *stream = open_stream(config);
  se_bf_stream_direction_info info;
  EXPECT_EQ(se_bf_stream_direction(stream, &info), 0);
  EXPECT_EQ(info.confidence, 0);
  process_words(stream, to_words(x), 2, {1000});
  EXPECT_EQ(se_bf_stream_direction(stream, &info), 0);
  EXPECT_NEAR(wide(info.delay_us), delay_of(60) / kSampleRateHz * 1e6, 4);
  EXPECT_NEAR(wide(info.degrees), 60, 2);
  EXPECT_GT(info.confidence, 0.5);
  EXPECT_EQ(info.alone, -1);
  const double found = sdr_db(recording().clean, heard(config, x));
  std::printf("SI-SDR: steered %.2f dB, found %.2f dB\n", best, found);
  EXPECT_GT(found, best - 1);
  EXPECT_EQ(se_bf_stream_direction(stream, nullptr), SE_BF_STREAM_ERROR_NULL);
  EXPECT_EQ(se_bf_stream_direction(nullptr, &info), SE_BF_STREAM_ERROR_NULL);
  se_bf_stream_close(stream);
  stream = open_stream(refined(2, false));
  EXPECT_EQ(se_bf_stream_direction(stream, &info), 0);
  EXPECT_EQ(info.delay_us, 0);
  EXPECT_TRUE(std::isnan(info.degrees));
  se_bf_stream_close(stream);
  stream = open_stream(refined(1, false));
  EXPECT_EQ(se_bf_stream_direction(stream, &info), SE_BF_STREAM_ERROR_MODE);
  se_bf_stream_close(stream);
}

// With a fault the result is not worse than that of the good microphone alone.
TEST(StreamRefined, TwoChannelsWithAFaultAreNotWorseThanOne) {
  struct {
    const char *name;
    double share;  // of microphone 0 in the other channel
    double hiss;   // in the other channel
    bool swapped;  // the other channel is channel 0
    int32_t alone;
  } const cases[] = {
      {"dead", 0, 0, false, 0},
      {"dead first", 0, 0, true, 1},
      {"only hiss", 0, 2, false, 0},
      {"inverted", -1, 0, false, 0},
      {"inverted, weak", -0.5, 0, true, 1},
      {"copy", 1, 0, false, 0},
      {"weak copy", 0.2, 0, true, 1},
      {"weak inverted copy", -0.4, 0.5, false, 0},
  };
  const wave good = 0.3 * recording().x[0];
  const double alone = sdr_db(recording().clean, heard(refined(1, false), {good}));
  for (const auto &c : cases) {
    for (const size_t since : {size_t{0}, kCount / 2}) {
      se_bf_stream_config config = refined(2, since == 0);
      config.mic_distance *= 6;  // a delay that would show as a comb filter in one channel
      SCOPED_TRACE(testing::Message() << c.name << " since " << since);
      wave bad = c.share * good + white_noise(8, kCount, c.hiss);
      bad[std::slice(0, since, 1)] = wave(0.3 * recording().x[1][std::slice(0, since, 1)]);
      const pcm in = to_words({c.swapped ? bad : good, c.swapped ? good : bad});
      se_bf_stream *stream = open_stream(config);
      const pcm out = process_words(stream, in, 2, {1000});
      se_bf_stream_direction_info info;
      EXPECT_EQ(se_bf_stream_direction(stream, &info), 0);
      EXPECT_EQ(info.alone, c.alone);
      const wave y = part(join({cut(out, 512, kCount), pcm(512)}), 0, kCount);
      EXPECT_GT(sdr_db(recording().clean, y), alone - 0.1);
      se_bf_stream_close(stream);
    }
  }
}

}  // namespace
