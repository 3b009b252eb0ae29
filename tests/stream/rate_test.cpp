// Streams at other rates than 16 kHz: alignment, bands, aliases, cuts, reset, memory.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <vector>

#include "rate_converter.h"
#include "rate_filter.h"
#include "rate_path.h"
#include "upper_band.h"

namespace {

using wave = std::vector<float>;

constexpr int kDelay = 417;  // samples at 16 kHz; odd, so that it is no whole number at most rates
constexpr int kOuterRates[] = {8000, 11025, 12345, 22050, 39999, 44100, 48000, 96000};

float to_words(float x) {
  return std::nearbyint(std::min(std::max(x * 32768.0f, -32768.0f), 32767.0f)) / 32768.0f;
}

// A path around a block function that is late by kDelay and gives `gain` times channel `source`.
// It stands for the core when `words` is set: its input and its output are 16-bit words then.
struct scene {
  int channels;
  rate_path *path;
  float gain = 1.0f;
  int source = 0;
  bool words = false;
  float next_gain = 1.0f;  // of every second block
  float kept[kDelay + kStreamBlock] = {};

  scene(int rate, int channel_count, int full_band) : channels(channel_count) {
    const rate_path_config config = {rate, channels, kDelay, full_band, block, this};
    path = rate_path_open(&config, nullptr);
    EXPECT_NE(path, nullptr) << rate << " Hz";
  }
  scene(const scene &) = delete;
  ~scene() {
    rate_path_close(path);
  }
  static void block(void *user, const float *in, float *out) {
    scene *s = static_cast<scene *>(user);
    memmove(s->kept, s->kept + kStreamBlock, kDelay * sizeof(float));
    for (int n = 0; n < kStreamBlock; ++n) {
      const float x = in[n * s->channels + s->source];
      s->kept[kDelay + n] = s->words ? to_words(s->gain * to_words(x)) : s->gain * x;
    }
    memcpy(out, s->kept, kStreamBlock * sizeof(float));
    std::swap(s->gain, s->next_gain);
  }
};

wave run(scene *s, const wave &in) {
  wave out(in.size() / static_cast<size_t>(s->channels));
  rate_path_process(s->path, in.data(), out.size(), out.data());
  return out;
}

// The output for `in`, as long and at the same place.
wave run_aligned(scene *s, wave in) {
  const size_t latency = static_cast<size_t>(rate_path_latency(s->path));
  in.resize(in.size() + latency * static_cast<size_t>(s->channels));
  const wave out = run(s, in);
  return {out.begin() + static_cast<long>(latency), out.end()};
}

// A sine from `from_hz` to `to_hz` that fades in and out.
wave chirp(int rate, double seconds, double from_hz, double to_hz) {
  wave x(static_cast<size_t>(rate * seconds));
  for (size_t n = 0; n < x.size(); ++n) {
    const double t = static_cast<double>(n) / rate;
    const double edge = std::min({1.0, 20.0 * t, 20.0 * (seconds - t)});
    const double cycles = from_hz * t + 0.5 * (to_hz - from_hz) * t * t / seconds;
    x[n] = static_cast<float>(0.5 * edge * std::sin(2.0 * kPi * cycles));
  }
  return x;
}

wave noise(size_t count, float level) {
  std::mt19937 random(1);
  wave x(count);
  for (float &sample : x) {
    sample = level * (static_cast<float>(random()) * 0x1p-31f - 1.0f);
  }
  return x;
}

wave sum(const wave &a, float gain, const wave &b) {
  wave x(a);
  for (size_t n = 0; n < x.size(); ++n) {
    x[n] += gain * b[n];
  }
  return x;
}

double db(double power_ratio) {
  return 10.0 * std::log10(power_ratio + 1e-30);
}

// Power of the samples `from` to `to`.
double power(const wave &x, int from, int to) {
  double total = 0.0;
  for (size_t n = static_cast<size_t>(from); n < static_cast<size_t>(to); ++n) {
    total += static_cast<double>(x[n]) * static_cast<double>(x[n]);
  }
  return total / (to - from);
}

double error_db(const wave &out, float gain, const wave &in, int from, int to) {
  return db(power(sum(out, -gain, in), from, to) / power(in, from, to));
}

// A tone of a whole number of Hz and what comes with it, from 0.2 to 1.2 s, in dB of the input.
struct tone_levels {
  double tone_db;
  double rest_db;
};

tone_levels play_tone(int rate, double hz) {
  scene s(rate, 1, 0);
  const wave x = run_aligned(&s, chirp(rate, 1.5, hz, hz));
  std::complex<double> fit = 0.0;
  for (int n = 0; n < rate; ++n) {
    const double value =
        static_cast<double>(x[static_cast<size_t>(rate) / 5 + static_cast<size_t>(n)]);
    fit += std::polar(value, -2.0 * kPi * std::fmod(hz * n, rate) / rate);
  }
  const double found = 2.0 * std::norm(fit) / rate / rate;
  const double rest = std::max(0.0, power(x, rate / 5, rate / 5 + rate) - found);
  return {db(8.0 * found), db(8.0 * rest)};
}

// What the band above 8 kHz reaches when the core makes `out` of `in`, at 16 kHz.
float reached_factor(const wave &in, const wave &out) {
  upper_band band;
  upper_band_open(&band, 1, 1);
  float factor = -1.0f;
  for (size_t n = 0; n + kUpperBandStep <= in.size(); n += kUpperBandStep) {
    const float *input = &in[n];
    upper_band_step(&band, &input, &out[n], &factor);
  }
  return factor;
}

wave words_of(const wave &in, float gain) {
  wave out(in);
  for (float &x : out) {
    x = to_words(gain * to_words(x));
  }
  return out;
}

}  // namespace

// Nine seconds are longer than the period of every rate's turns: an output that ran dry, or a
// latency that is wrong by a fraction of a sample, would show in the difference. The latency is a
// block of 20 ms, two filters of about 7 ms, and the block function's 417 samples at 16 kHz.
TEST(Rates, ChirpComesBackAfterTheDocumentedLatency) {
  const int latencies[][2] = {{8000, 544},     {11025, 684},    {12345, 749},   {15999, 912},
                              {16001, 913},    {22050, 1263},   {24000, 1372},  {32000, 1825},
                              {44100, 2587},   {48000, 2793},   {88200, 5199},  {96000, 5611},
                              {176400, 10431}, {191999, 11255}, {192000, 11255}};
  for (const auto &row : latencies) {
    const int rate = row[0];
    const wave x = chirp(rate, 9.0, 60.0, 0.91 * std::min(0.5 * rate, 8000.0));
    scene s(rate, 1, 0);
    EXPECT_EQ(rate_path_latency(s.path), row[1]) << rate << " Hz";
    EXPECT_LT(error_db(run_aligned(&s, x), 1.0f, x, 0, 9 * rate), -80.0) << rate << " Hz";
  }
}

// The last two of the parts are 7.2 and 7.5 kHz at rates above 16 kHz.
TEST(Rates, TonesPassAndAliasesDoNot) {
  double worst_gain = 0.0;
  double worst_alias = -200.0;
  for (const int rate : kOuterRates) {
    for (const double part : {0.0131, 0.25, 0.613, 0.9, 0.9375}) {
      const double hz = std::floor(part * std::min(0.5 * rate, 8000.0));
      const tone_levels level = play_tone(rate, hz);
      EXPECT_NEAR(level.tone_db, 0.0, 0.5) << rate << " Hz, tone at " << hz << " Hz";
      EXPECT_LT(level.rest_db, -110.0) << rate << " Hz, beside " << hz << " Hz";
      worst_gain = std::max(worst_gain, std::fabs(level.tone_db));
      worst_alias = std::max(worst_alias, level.rest_db);
    }
    for (const double hz : {8e3, 8130.0, 9e3, std::round(0.21 * rate), std::round(0.3313 * rate),
                            std::round(0.41 * rate), std::round(0.49 * rate)}) {
      const bool gone = hz >= 8000.0 && hz < 0.495 * rate;
      const tone_levels level = gone ? play_tone(rate, hz) : tone_levels{-200.0, -200.0};
      const double remains = std::max(level.tone_db, level.rest_db);
      EXPECT_LT(remains, -110.0) << rate << " Hz, remains of a tone at " << hz << " Hz";
      worst_alias = std::max(worst_alias, remains);
    }
  }
  printf("pass band within %.4f dB, aliases and images below %.1f dB\n", worst_gain, worst_alias);
}

// Where the core changes nothing, neither does the path: up to the top of the band, and for hiss
// above 8 kHz over what is near the 16-bit steps.
TEST(Rates, BothBandsTogetherAreTheInput) {
  for (const int rate : {22050, 44100, 48000, 192000}) {
    const wave faint = noise(2 * static_cast<size_t>(rate), 3.0f / 32768.0f);
    for (const wave &x : {chirp(rate, 2.0, 60.0, 0.45 * rate), noise(faint.size(), 0.3f),
                          sum(faint, 1.0f, chirp(rate, 2.0, 1e4, 1e4))}) {
      scene s(rate, 1, 1);
      s.words = true;
      EXPECT_LT(error_db(run_aligned(&s, x), 1.0f, x, rate / 20, 2 * rate), -80.0) << rate << " Hz";
    }
  }
}

// The enhancement leaves 0.8 times the amplitude: so does the band above 8 kHz, whichever
// microphone lives, and without that band only the lower one remains.
TEST(Rates, UpperBandFollowsTheEnhancement) {
  constexpr float kKept = 0.8f;
  const int rate = 48000;
  const wave x = noise(2 * static_cast<size_t>(rate), 0.3f);
  scene lower(rate, 1, 0);
  const wave expected = run_aligned(&lower, x);
  for (const int dead : {0, 1, 2}) {
    wave in(2 * x.size());
    for (size_t n = 0; n < in.size(); ++n) {
      in[n] = static_cast<int>(n % 2) == dead ? 0.0f : x[n / 2];
    }
    scene s(rate, 2, 1);
    s.gain = kKept;
    s.next_gain = kKept;
    s.source = dead == 0 ? 1 : 0;
    EXPECT_LT(error_db(run_aligned(&s, in), kKept, x, rate, 2 * rate - 4800), -60.0)
        << "dead microphone " << dead;
    rate_path_reset(s.path);
    rate_path_set_full_band(s.path, 0);
    EXPECT_LT(error_db(run_aligned(&s, in), kKept, expected, rate, 2 * rate - 4800), -60.0)
        << "only the lower band, dead microphone " << dead;
  }
  // A gain that wavers leaves no trace below 8 kHz.
  scene full(rate, 1, 1);
  scene half(rate, 1, 0);
  full.next_gain = 0.3f;
  half.next_gain = 0.3f;
  const wave low = chirp(rate, 2.0, 60.0, 7000.0);
  EXPECT_LT(error_db(run_aligned(&full, low), 1.0f, run_aligned(&half, low), 0, 2 * rate), -60.0);
}

// What 4 to 7.5 kHz tells: only that band counts, steps of 16 bits do not pass for suppression,
// loud floats fall as those of the core do, and nothing but silence of the core's own switches off.
TEST(Rates, UpperBandJudgesByWhatTheCoreHears) {
  const wave hiss = noise(3200, 1.0f);
  const wave weak = chirp(16000, 0.2, 5500.0, 5500.0);
  for (const double hz : {1000.0, 3500.0, 7950.0}) {
    const wave loud = sum(weak, 8.0f, chirp(16000, 0.2, hz, hz));
    EXPECT_NEAR(reached_factor(loud, weak), 1.0f, 0.05f) << hz << " Hz is taken out";
  }
  const wave none(hiss.size());
  for (const float steps : {0.3f, 0.6f, 1.0f, 3.0f, 10.0f, 100.0f}) {
    const wave faint = sum(none, steps / 32768.0f, hiss);
    EXPECT_FLOAT_EQ(reached_factor(faint, words_of(faint, 1.0f)), 1.0f) << steps << " steps";
    const float least = steps < 2.0f ? 0.7f : steps < 5.0f ? 0.4f : 0.1f;
    EXPECT_GE(reached_factor(faint, words_of(faint, 0.1f)), least) << steps << " steps";
  }
  const wave far(sum(none, 0.3f, hiss));
  EXPECT_NEAR(reached_factor(far, words_of(far, 0.3f)), 0.3f, 0.003f);
  EXPECT_NEAR(reached_factor(far, words_of(far, 0.01f)), 0.1f, 1e-6f);
  EXPECT_EQ(reached_factor(far, none), 0.0f);
  wave cut(far);
  std::fill(cut.end() - kUpperBandStep, cut.end(), 0.0f);
  EXPECT_NEAR(reached_factor(far, cut), 0.855f, 0.03f) << "20 ms of 30, and the filter";
  const wave loud = sum(none, 20.0f, hiss);
  EXPECT_NEAR(reached_factor(loud, words_of(loud, 1.0f)), 0.085f, 0.02f);
}

TEST(Rates, CutsDoNotMatter) {
  for (const int rate : kOuterRates) {
    const wave in = noise(static_cast<size_t>(rate) * 4 + 40000, 0.5f);
    scene whole(rate, 2, 1);
    const wave expected = run(&whole, in);
    for (const size_t cut : {1ul, 7ul, 480ul, 20000ul, 0ul}) {
      scene s(rate, 2, 1);
      std::mt19937 random(2);
      wave out(expected.size());
      for (size_t n = 0, count = 0; n < out.size(); n += count) {
        count = std::min(out.size() - n, cut > 0 ? cut : 1 + random() % 3000);
        rate_path_process(s.path, &in[2 * n], count, &out[n]);
      }
      EXPECT_TRUE(out == expected) << rate << " Hz, blocks of " << cut << " (0: random)";
    }
  }
}

// After a reset the bits are those of a fresh path. Values that are no numbers do not stay even
// without one: a second later the level is what it was, from the microphone that is the louder one.
TEST(Rates, ResetIsAFreshStart) {
  for (const int rate : kOuterRates) {
    wave in = noise(2 * static_cast<size_t>(rate), 0.5f);
    for (size_t n = 1; n < in.size(); n += 2) {
      in[n] *= 0.3f;
    }
    scene s(rate, 2, 1);
    const wave expected = run(&s, in);
    for (const float poison : {0.0f, 1.0f, std::numeric_limits<float>::infinity(),
                               std::numeric_limits<float>::quiet_NaN()}) {
      run(&s, wave(2 * 12347, poison));
      run(&s, in);
      const wave later = run(&s, in);
      EXPECT_NEAR(db(power(later, rate / 2, rate) / power(expected, rate / 2, rate)), 0.0, 1.0)
          << rate << " Hz, after " << poison;
      rate_path_reset(s.path);
      memset(s.kept, 0, sizeof(s.kept));
      EXPECT_TRUE(run(&s, in) == expected) << rate << " Hz, reset after " << poison;
    }
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
      wave floats;
      for (int pass = 0; pass < 2; ++pass) {
        floats.assign(memory.used, std::nanf(""));
        memory = {pass == 0 ? nullptr : floats.data(), 0};
        rate_filters_take(&filters, &plan, &memory);
        rate_memory_take(&memory, kGuard);
        rate_down_take(&down, &plan, &memory);
        rate_memory_take(&memory, kGuard);
        rate_up_take(&up, &plan, &memory);
        rate_memory_take(&memory, kGuard);
      }
      rate_filters_fill(&filters, &plan);
      std::fill_n(down.middle.forth, 2 * plan.down_history, 0.0f);
      std::fill_n(up.core.forth, 2 * plan.up_history, 0.0f);
      rate_down_reset(&down, &plan);
      rate_up_reset(&up, &plan);
      const wave in(static_cast<size_t>(plan.first_chunk + plan.later_chunk), 1.0f);
      wave block(kStreamBlock);
      wave out(in.size());
      const auto finite = [](float x) { return std::isfinite(x); };
      for (int turn = 0; turn < 120; ++turn) {
        rate_down_run(&down, &plan, &filters, in.data(), block.data());
        const int32_t chunk = rate_down_chunk(&down, &plan);
        ASSERT_LE(chunk, plan.later_chunk) << rate << " Hz, turn " << turn;
        rate_up_run(&up, &plan, &filters, block.data(), chunk, out.data());
        ASSERT_TRUE(std::all_of(block.begin(), block.end(), finite))
            << rate << " Hz down, turn " << turn;
        ASSERT_TRUE(std::all_of(out.begin(), out.begin() + chunk, finite))
            << rate << " Hz up, delay " << delay << ", turn " << turn;
      }
    }
  }
}

TEST(Rates, BadConfigurationsAreRefused) {
  const auto none = [](void *, const float *, float *) {};
  for (const rate_path_config &bad : {rate_path_config{7999, 2, 0, 1, none, nullptr},
                                      {192001, 2, 0, 1, none, nullptr},
                                      {16000, 2, 0, 1, none, nullptr},
                                      {-48000, 2, 0, 1, none, nullptr},
                                      {48000, 0, 0, 1, none, nullptr},
                                      {48000, 3, 0, 1, none, nullptr},
                                      {48000, 2, -1, 1, none, nullptr},
                                      {48000, 2, 16001, 1, none, nullptr},
                                      {48000, 2, 0, 1, nullptr, nullptr}}) {
    const char *error = nullptr;
    EXPECT_EQ(rate_path_open(&bad, &error), nullptr) << bad.rate << " Hz, " << bad.channels;
    EXPECT_NE(error, nullptr) << bad.rate << " Hz, " << bad.channels;
    EXPECT_EQ(rate_path_open(&bad, nullptr), nullptr);
  }
}
