// Streams at other rates than 16 kHz: alignment, bands, aliases, cuts, reset, memory.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "rate_converter.h"
#include "rate_filter.h"
#include "rate_path.h"

namespace {

constexpr int kDelay = 417;  // samples at 16 kHz; odd, so that it is no whole number at most rates
constexpr int kBlock = 320;
constexpr double kPi = 3.14159265358979323846;
constexpr int kRates[] = {8000,  11025, 12345, 15999, 16001,  22050,  24000, 32000,
                          44100, 48000, 88200, 96000, 176400, 191999, 192000};
constexpr int kOuterRates[] = {8000, 11025, 12345, 22050, 39999, 44100, 48000, 96000};

// A block function that gives `gain` times channel `source`, late by kDelay.
struct delay_line {
  int channels;
  int source;
  float gain;
  float kept[kDelay + kBlock];
};

void delay_block(void *user, const float *in, float *out) {
  delay_line *line = static_cast<delay_line *>(user);
  memmove(line->kept, line->kept + kBlock, kDelay * sizeof(float));
  for (int n = 0; n < kBlock; ++n) {
    line->kept[kDelay + n] = line->gain * in[n * line->channels + line->source];
  }
  memcpy(out, line->kept, kBlock * sizeof(float));
}

struct scene {
  delay_line line;
  rate_path *path;
};

void open_scene(scene *s, int rate, int channels, int full_band) {
  s->line = {channels, 0, 1.0f, {}};
  const rate_path_config config = {rate, channels, kDelay, full_band, delay_block, &s->line};
  const char *error = nullptr;
  s->path = rate_path_open(&config, &error);
  ASSERT_NE(s->path, nullptr) << rate << " Hz: " << error;
}

// What comes out for mono `in`, aligned.
std::vector<float> run_aligned(rate_path *path, const std::vector<float> &in) {
  const size_t latency = static_cast<size_t>(rate_path_latency(path));
  std::vector<float> padded(in);
  padded.resize(in.size() + latency);
  std::vector<float> out(padded.size());
  rate_path_process(path, padded.data(), padded.size(), out.data());
  out.erase(out.begin(), out.begin() + static_cast<long>(latency));
  return out;
}

std::vector<float> play(int rate, int full_band, const std::vector<float> &in) {
  scene s;
  open_scene(&s, rate, 1, full_band);
  std::vector<float> out = run_aligned(s.path, in);
  rate_path_close(s.path);
  return out;
}

// A sine from `from_hz` to `to_hz` that fades in and out.
std::vector<float> chirp(int rate, double seconds, double from_hz, double to_hz) {
  std::vector<float> x(static_cast<size_t>(rate * seconds));
  for (size_t n = 0; n < x.size(); ++n) {
    const double t = static_cast<double>(n) / rate;
    const double edge = std::min({1.0, 20.0 * t, 20.0 * (seconds - t)});
    const double cycles = from_hz * t + 0.5 * (to_hz - from_hz) * t * t / seconds;
    x[n] = static_cast<float>(0.5 * edge * std::sin(2.0 * kPi * cycles));
  }
  return x;
}

std::vector<float> noise(size_t count, float level) {
  std::mt19937 random(1);
  std::vector<float> x(count);
  for (float &sample : x) {
    sample = level * (static_cast<float>(random()) * 0x1p-31f - 1.0f);
  }
  return x;
}

double product(const float *a, const float *b, size_t count) {
  double sum = 0.0;
  for (size_t n = 0; n < count; ++n) {
    sum += static_cast<double>(a[n]) * static_cast<double>(b[n]);
  }
  return sum;
}

double db(double power_ratio) {
  return 10.0 * std::log10(power_ratio + 1e-30);
}

double error_db(const std::vector<float> &out, const std::vector<float> &expected) {
  std::vector<float> difference(out.size());
  for (size_t n = 0; n < out.size(); ++n) {
    difference[n] = out[n] - expected[n];
  }
  return db(product(difference.data(), difference.data(), out.size()) /
            product(expected.data(), expected.data(), out.size()));
}

// Power of the sine at `hz`, fitted to the middle of `x`, and of all the rest, in dB of a sine of
// amplitude 0.5.
struct tone_levels {
  double tone_db;
  double rest_db;
};

tone_levels measure_tone(const std::vector<float> &x, int rate, double hz) {
  const size_t skipped = x.size() / 4;
  const size_t count = x.size() / 2;
  double a[3] = {};  // sums of cos^2, sin^2, cos * sin
  double b[2] = {};
  const double step = 2.0 * kPi * hz / rate;
  for (size_t n = 0; n < count; ++n) {
    const double c = std::cos(step * static_cast<double>(n));
    const double s = std::sin(step * static_cast<double>(n));
    const double value = static_cast<double>(x[skipped + n]);
    a[0] += c * c;
    a[1] += s * s;
    a[2] += c * s;
    b[0] += c * value;
    b[1] += s * value;
  }
  const double determinant = a[0] * a[1] - a[2] * a[2];
  const double p = (b[0] * a[1] - b[1] * a[2]) / determinant;
  const double q = (b[1] * a[0] - b[0] * a[2]) / determinant;
  double rest = 0.0;
  for (size_t n = 0; n < count; ++n) {
    const double angle = step * static_cast<double>(n);
    const double value =
        static_cast<double>(x[skipped + n]) - p * std::cos(angle) - q * std::sin(angle);
    rest += value * value;
  }
  const double unit = 0.125;
  return {db(0.5 * (p * p + q * q) / unit), db(rest / static_cast<double>(count) / unit)};
}

tone_levels play_tone(int rate, double hz) {
  std::vector<float> x(static_cast<size_t>(rate) / 2);
  for (size_t n = 0; n < x.size(); ++n) {
    x[n] = static_cast<float>(0.5 * std::sin(2.0 * kPi * hz * static_cast<double>(n) / rate));
  }
  return measure_tone(play(rate, 0, x), rate, hz);
}

double held_hz(int rate) {
  return 0.5 * std::min(rate, 16000);
}

}  // namespace

// Nine seconds are longer than the period of every rate's turns: an output that ran dry, or a
// latency that is wrong by a fraction of a sample, would show in the difference.
TEST(Rates, ChirpComesBackAtItsPlace) {
  for (const int rate : kRates) {
    const std::vector<float> x = chirp(rate, 9.0, 60.0, 0.93 * held_hz(rate));
    const std::vector<float> y = play(rate, 0, x);
    const double difference = error_db(y, x);
    EXPECT_LT(difference, -80.0) << rate << " Hz: the chirp differs by " << difference << " dB";
    // The strongest correlation is at lag 0.
    const size_t count = x.size() - 200;
    const double at_zero = product(&x[100], &y[100], count);
    for (const int lag : {-100, -10, -1, 1, 10, 100}) {
      const double shifted = product(&x[100], &y[static_cast<size_t>(100 + lag)], count);
      EXPECT_GT(at_zero, shifted) << rate << " Hz, lag " << lag;
    }
  }
}

// A block of 20 ms, two filters of about 7 ms, and the block function's 417 samples at 16 kHz.
TEST(Rates, LatencyIsAsDocumented) {
  const int expected[][2] = {{8000, 592},   {11025, 735},    {22050, 1329},  {24000, 1440},
                             {32000, 1921}, {44100, 2719},   {48000, 2929},  {88200, 5463},
                             {96000, 5883}, {176400, 10959}, {192000, 11799}};
  for (const auto &row : expected) {
    scene s;
    open_scene(&s, row[0], 1, 0);
    EXPECT_EQ(rate_path_latency(s.path), row[1]) << row[0] << " Hz";
    rate_path_close(s.path);
  }
}

TEST(Rates, TonesPassAndAliasesDoNot) {
  double worst_gain = 0.0;
  double worst_alias = -200.0;
  for (const int rate : kOuterRates) {
    const double top = held_hz(rate);
    for (const double part : {0.0131, 0.25, 0.613, 0.9, 0.9375}) {
      const tone_levels level = play_tone(rate, part * top);
      EXPECT_NEAR(level.tone_db, 0.0, 0.5) << rate << " Hz, tone at " << part * top << " Hz";
      EXPECT_LT(level.rest_db, -110.0) << rate << " Hz, beside " << part * top << " Hz";
      worst_gain = std::max(worst_gain, std::fabs(level.tone_db));
      worst_alias = std::max(worst_alias, level.rest_db);
    }
    for (const double hz :
         {8000.0, 8130.0, 9000.0, 0.21 * rate, 0.3313 * rate, 0.41 * rate, 0.49 * rate}) {
      if (hz < 8000.0 || hz > 0.495 * rate) {
        continue;
      }
      const tone_levels level = play_tone(rate, hz);
      const double power = std::max(level.tone_db, level.rest_db);
      EXPECT_LT(power, -110.0) << rate << " Hz, remains of a tone at " << hz << " Hz";
      worst_alias = std::max(worst_alias, power);
    }
  }
  printf("pass band within %.4f dB, aliases and images below %.1f dB\n", worst_gain, worst_alias);
}

// Where the enhancement changes nothing, neither does the path: up to the top of the band.
TEST(Rates, BothBandsTogetherAreTheInput) {
  for (const int rate : {22050, 44100, 48000, 192000}) {
    const std::vector<float> x = chirp(rate, 2.0, 60.0, 0.45 * rate);
    const double sweep = error_db(play(rate, 1, x), x);
    EXPECT_LT(sweep, -80.0) << rate << " Hz: the sweep differs by " << sweep << " dB";
    std::vector<float> hiss = noise(static_cast<size_t>(rate), 0.3f);
    std::vector<float> out = play(rate, 1, hiss);
    // The gain is known 10 ms after the start.
    const long start = rate / 20;
    hiss.erase(hiss.begin(), hiss.begin() + start);
    out.erase(out.begin(), out.begin() + start);
    const double steady = error_db(out, hiss);
    EXPECT_LT(steady, -80.0) << rate << " Hz: noise differs by " << steady << " dB";
  }
}

// Noise, of which the enhancement leaves 0.8 times the amplitude: so does the band above 8 kHz,
// whichever microphone lives.
TEST(Rates, UpperBandFollowsTheEnhancement) {
  constexpr float kKept = 0.8f;
  const int rate = 48000;
  const std::vector<float> x = noise(48000, 0.3f);
  std::vector<float> lower = play(rate, 0, x);
  for (const int dead : {0, 1, 2}) {
    scene s;
    open_scene(&s, rate, 2, 1);
    s.line.gain = kKept;
    s.line.source = dead == 0 ? 1 : 0;
    const size_t latency = static_cast<size_t>(rate_path_latency(s.path));
    std::vector<float> in(2 * (x.size() + latency));
    for (size_t n = 0; n < x.size(); ++n) {
      in[2 * n] = dead == 0 ? 0.0f : x[n];
      in[2 * n + 1] = dead == 1 ? 0.0f : x[n];
    }
    std::vector<float> out(x.size() + latency);
    rate_path_process(s.path, in.data(), x.size() + latency, out.data());
    std::vector<float> later(out.begin() + static_cast<long>(latency) + 24000, out.end() - 2400);
    std::vector<float> expected(x.begin() + 24000, x.end() - 2400);
    for (float &sample : expected) {
      sample *= kKept;
    }
    const double difference = error_db(later, expected);
    EXPECT_LT(difference, -60.0) << "dead microphone " << dead << ": " << difference << " dB";

    // Without the upper band only the lower one remains.
    rate_path_set_full_band(s.path, 0);
    rate_path_process(s.path, in.data(), x.size() + latency, out.data());
    later.assign(out.begin() + static_cast<long>(latency) + 24000, out.end() - 2400);
    expected.assign(lower.begin() + 24000, lower.end() - 2400);
    for (float &sample : expected) {
      sample *= kKept;
    }
    const double lower_power = product(later.data(), later.data(), later.size());
    const double expected_power = product(expected.data(), expected.data(), expected.size());
    EXPECT_NEAR(db(lower_power / expected_power), 0.0, 0.1) << "dead microphone " << dead;
    rate_path_close(s.path);
  }
}

TEST(Rates, CutsDoNotMatter) {
  for (const int rate : kOuterRates) {
    const std::vector<float> in = noise(static_cast<size_t>(rate) * 4 + 40000, 0.5f);
    const size_t frames = in.size() / 2;
    std::vector<float> expected(frames);
    scene s;
    open_scene(&s, rate, 2, 1);
    rate_path_process(s.path, in.data(), frames, expected.data());
    rate_path_close(s.path);
    for (const size_t cut : {1ul, 7ul, 480ul, 20000ul, 0ul}) {
      open_scene(&s, rate, 2, 1);
      std::mt19937 random(2);
      std::vector<float> out(frames);
      for (size_t n = 0; n < frames;) {
        const size_t count = std::min(frames - n, cut > 0 ? cut : 1 + random() % 3000);
        rate_path_process(s.path, &in[2 * n], count, &out[n]);
        n += count;
      }
      rate_path_close(s.path);
      EXPECT_EQ(memcmp(out.data(), expected.data(), frames * sizeof(float)), 0)
          << rate << " Hz, blocks of " << cut << " (0: random) differ from one call";
    }
  }
}

// After a reset the bits are those of a fresh path. Values that are no numbers do not stay even
// without one: a second later the level is what it was, from the microphone that is the louder one.
TEST(Rates, ResetIsAFreshStart) {
  const float poisons[] = {0.0f, 1.0f, std::numeric_limits<float>::infinity(),
                           std::numeric_limits<float>::quiet_NaN()};
  for (const int rate : kOuterRates) {
    const size_t frames = static_cast<size_t>(rate);
    std::vector<float> in = noise(2 * frames, 0.5f);
    for (size_t n = 1; n < in.size(); n += 2) {
      in[n] *= 0.3f;
    }
    std::vector<float> expected(frames);
    std::vector<float> out(frames);
    scene s;
    open_scene(&s, rate, 2, 1);
    rate_path_process(s.path, in.data(), frames, expected.data());
    const double level = product(&expected[frames / 2], &expected[frames / 2], frames / 2);
    for (const float poison : poisons) {
      const float frame[2] = {poison, poison};
      for (int n = 0; n < 12347; ++n) {
        rate_path_process(s.path, frame, 1, out.data());
      }
      rate_path_process(s.path, in.data(), frames, out.data());
      rate_path_process(s.path, in.data(), frames, out.data());
      const double later = product(&out[frames / 2], &out[frames / 2], frames / 2);
      EXPECT_NEAR(db(later / level), 0.0, 1.0) << rate << " Hz, after " << poison;
      rate_path_reset(s.path);
      memset(s.line.kept, 0, sizeof(s.line.kept));
      rate_path_process(s.path, in.data(), frames, out.data());
      EXPECT_EQ(memcmp(out.data(), expected.data(), frames * sizeof(float)), 0)
          << rate << " Hz, after " << poison;
    }
    rate_path_close(s.path);
  }
}

// No filter looks beyond its history: around it lies what would show. Without half-band stages
// nothing else is beside the histories.
TEST(Rates, FiltersStayInTheirHistories) {
  constexpr size_t kGuard = 1000;
  for (const int rate : {8000, 11025, 12345, 12347, 15999, 16001, 22050, 24000, 32000, 39999}) {
    for (const int delay : {0, 1, kDelay}) {
      rate_plan plan;
      rate_plan_make(&plan, rate, delay);
      ASSERT_EQ(plan.halvings, 0);
      rate_filters filters;
      rate_down down;
      rate_up up;
      rate_memory memory = {};
      std::vector<float> floats;
      for (int pass = 0; pass < 2; ++pass) {
        floats.assign(memory.used + kRateFilterAlignment, std::nanf(""));
        void *aligned = floats.data();
        size_t room = floats.size() * sizeof(float);
        std::align(kRateFilterAlignment, memory.used * sizeof(float), aligned, room);
        memory = {pass == 0 ? nullptr : static_cast<float *>(aligned), 0};
        rate_filters_take(&filters, &plan, &memory);
        rate_memory_take(&memory, kGuard);
        rate_down_take(&down, &plan, &memory);
        rate_memory_take(&memory, kGuard);
        rate_up_take(&up, &plan, &memory);
        rate_memory_take(&memory, kGuard);
      }
      rate_filters_fill(&filters, &plan);
      std::fill_n(down.middle, plan.down_history, 0.0f);
      std::fill_n(up.core, plan.up_history, 0.0f);
      rate_down_reset(&down, &plan);
      rate_up_reset(&up, &plan);
      const std::vector<float> in(static_cast<size_t>(plan.first_chunk + plan.later_chunk), 1.0f);
      std::vector<float> block(kRateBlock);
      std::vector<float> out(in.size());
      for (int turn = 0; turn < 120; ++turn) {
        rate_down_run(&down, &plan, &filters, in.data(), block.data());
        const int32_t chunk = rate_down_chunk(&down, &plan);
        ASSERT_LE(chunk, plan.later_chunk) << rate << " Hz, turn " << turn;
        rate_up_run(&up, &plan, &filters, block.data(), chunk, out.data());
        for (const float sample : block) {
          ASSERT_TRUE(std::isfinite(sample)) << rate << " Hz down, turn " << turn;
        }
        for (int32_t n = 0; n < chunk; ++n) {
          ASSERT_TRUE(std::isfinite(out[static_cast<size_t>(n)]))
              << rate << " Hz up, delay " << delay << ", turn " << turn << ", sample " << n;
        }
      }
    }
  }
}

TEST(Rates, BadConfigurationsAreRefused) {
  const rate_path_config good = {48000, 2, 0, 1, delay_block, nullptr};
  std::vector<rate_path_config> bad(9, good);
  bad[0].rate = 7999;
  bad[1].rate = 192001;
  bad[2].rate = 16000;
  bad[3].rate = -48000;
  bad[4].channels = 0;
  bad[5].channels = 3;
  bad[6].delay_16k = -1;
  bad[7].delay_16k = 16001;
  bad[8].block = nullptr;
  for (size_t n = 0; n < bad.size(); ++n) {
    const char *error = nullptr;
    EXPECT_EQ(rate_path_open(&bad[n], &error), nullptr) << "configuration " << n;
    EXPECT_NE(error, nullptr) << "configuration " << n;
    EXPECT_EQ(rate_path_open(&bad[n], nullptr), nullptr) << "configuration " << n;
  }
}
