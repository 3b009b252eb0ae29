// The steps of a frame besides the transform: block buffer, power, gains, beamformer, and the
// levels of the microphones, each against a plain computation.
#include <gtest/gtest.h>

#include <complex>

#include "interface/cache_buffer.h"
#include "interface/channel_fault.h"
#include "interface/multi_common.h"
#include "stream_run.h"

namespace {

using complex = std::complex<double>;

constexpr double kTolerance = 1e-6;

std::vector<float> random_floats(uint32_t seed, size_t count) {
  std::vector<float> x(count);
  std::generate(x.begin(), x.end(), [&] { return static_cast<float>(uniform(&seed)); });
  return x;
}

complex entry(const std::vector<float> &x, size_t index) {
  return {wide(x[2 * index]), wide(x[2 * index + 1])};
}

TEST(BlockBuffer, CutsBlocksIntoHopsWithoutLossAndDelaysByThreeHundredTwentyLessAHop) {
  constexpr size_t kBlocks = 12;
  for (const hop_figures &h : kHops) {
    for (const size_t channels : {size_t{1}, size_t{2}}) {
      const size_t hop = static_cast<size_t>(h.hop);
      std::vector<wave> signals = {white_noise(301, kBlocks * 320, 9000.0),
                                   white_noise(302, kBlocks * 320, 9000.0)};
      signals.resize(channels);
      const pcm in = to_words(signals);
      pcm out(kBlocks * 320);
      std::vector<float> frame(channels * hop);
      catch_buf *cb = se_catch_buf_init(h.fft_len, h.hop, 320, static_cast<int32_t>(channels), 1);
      EXPECT_EQ(se_catch_buf_get_offset(cb), 320 - h.hop);
      size_t taken = 0;
      for (size_t block = 0; block < kBlocks; ++block) {
        SCOPED_TRACE(testing::Message()
                     << channels << " channels, hop " << hop << ", block " << block);
        size_t left = 0;
        do {
          const int16_t *words = &in[block * 320 * channels];
          left = static_cast<size_t>(se_form_input_block(cb, words, frame.data()));
          for (size_t i = 0; i < channels * hop; ++i) {
            const int16_t sample = in[(taken + i % hop) * channels + i / hop];
            ASSERT_EQ(frame[i], static_cast<float>(sample)) << "entry " << i;
          }
          taken += hop;
          ASSERT_EQ(left, (block + 1) * 320 - taken);
          ASSERT_TRUE(se_catch_buf_has_room(cb));
          se_buffer_output_block(cb, frame.data());
        } while (left >= hop);
        ASSERT_EQ(cb->staged_count, static_cast<int32_t>(left * channels));
        for (size_t i = 0; i < left * channels; ++i) {
          ASSERT_EQ(cb->stage[i], static_cast<float>(in[taken * channels + i])) << "carried " << i;
        }
        ASSERT_EQ(cb->out_fill, static_cast<int32_t>(320 - hop + taken - block * 320));
        se_form_output_frame(cb, &out[block * 320]);
      }
      EXPECT_EQ(difference(out, to_words({signals[0].shift(h.hop - 320)})), "");
    }
  }
}

TEST(BlockBuffer, ClipsTruncatesAndTellsWhenItIsFull) {
  constexpr std::pair<float, int16_t> kCases[] = {
      {40000.0f, 32767}, {-40000.0f, -32768}, {32767.9f, 32767},   {-32768.9f, -32768},
      {32766.9f, 32766}, {1.9f, 1},           {-1.9f, -1},         {0.9f, 0},
      {-0.9f, 0},        {HUGE_VALF, 32767},  {-HUGE_VALF, -32768}};
  for (const hop_figures &h : kHops) {
    std::vector<float> hop(static_cast<size_t>(h.hop));
    pcm out(320, 7);
    std::transform(std::begin(kCases), std::end(kCases), hop.begin(),
                   [](const auto &c) { return c.first; });
    catch_buf *cb = se_catch_buf_init(h.fft_len, h.hop, 320, 1, 1);
    int32_t hops = 0;
    for (; hops < 100 && se_catch_buf_has_room(cb); ++hops) {
      se_buffer_output_block(cb, hop.data());
    }
    EXPECT_EQ(hops, (2 * h.fft_len - (320 - h.hop)) / h.hop) << "hops of " << h.hop;
    se_form_output_frame(cb, out.data());
    for (size_t i = 0; i < std::size(kCases); ++i) {
      EXPECT_EQ(out[i + static_cast<size_t>(320 - h.hop)], kCases[i].second) << kCases[i].first;
    }
  }
  EXPECT_EQ(se_catch_buf_get_offset(se_catch_buf_init(512, 330, 320, 1, 1)), 0);
  EXPECT_EQ(se_catch_buf_get_offset(nullptr), 0);
}

// DC and Nyquist are the real and the imaginary part of each channel's entry 0.
TEST(PackedSpectrum, MeanPowerAndRealGainMatchStdComplex) {
  for (const size_t bins : {size_t{2}, size_t{3}, size_t{5}, size_t{13}, size_t{129}}) {
    const size_t stride = bins - 1;
    const std::vector<float> x = random_floats(311, 4 * stride);
    const std::vector<float> gain = random_floats(312, bins);
    std::vector<float> scaled = x;
    mul_amp_real_gain(scaled.data(), gain.data(), 0, static_cast<int32_t>(2 * stride));
    EXPECT_EQ(scaled, x) << "of no spectrum";
    mul_amp_real_gain(scaled.data(), gain.data(), 2, static_cast<int32_t>(2 * stride));
    std::vector<double> sum(bins);
    for (size_t c = 0; c < 2; ++c) {
      std::vector<float> power(bins);
      const int32_t channels = static_cast<int32_t>(c + 1);
      mean_bin_power(x.data(), channels, static_cast<int32_t>(bins), power.data());
      for (size_t k = 0; k < bins; ++k) {
        SCOPED_TRACE(testing::Message() << "bin " << k << " of " << bins << ", channel " << c);
        const complex e = entry(x, c * stride + k % stride);
        const complex y = entry(scaled, c * stride + k % stride);
        const complex value = k == 0 ? e.real() : k == stride ? e.imag() : e;
        const complex result = k == 0 ? y.real() : k == stride ? y.imag() : y;
        sum[k] += std::norm(value);
        EXPECT_NEAR(wide(power[k]), sum[k] / channels, kTolerance);
        EXPECT_NEAR(std::abs(result - wide(gain[k]) * value), 0.0, kTolerance) << result;
      }
    }
  }
  float one[] = {3.0f, 0.0f};
  const float half = 0.5f;
  mul_amp_real_gain(one, &half, 1, 1);
  EXPECT_EQ(one[0], 1.5f) << "a single bin";
}

TEST(PackedSpectrum, BeamformerSumsWithConjugateWeightsDropsDcAndKeepsNyquist) {
  for (const int32_t length : {2, 4, 8, 24, 256}) {
    for (const size_t channels : {size_t{1}, size_t{2}}) {
      const size_t stride = static_cast<size_t>(length) / 2;
      const std::vector<float> x = random_floats(321, 2 * channels * stride);
      const std::vector<float> w = random_floats(322, 2 * channels * (stride + 1));
      std::vector<float> y = x;
      mul_bf_gain(reinterpret_cast<se_complex *>(y.data()),
                  reinterpret_cast<const se_complex *>(w.data()), static_cast<int32_t>(channels),
                  static_cast<int16_t>(length));
      SCOPED_TRACE(testing::Message() << channels << " channels of " << length);
      EXPECT_EQ(y[0], 0.0f) << "DC";
      EXPECT_EQ(y[1], x[1]) << "Nyquist";
      for (size_t k = 1; k < stride; ++k) {
        complex expected;
        for (size_t c = 0; c < channels; ++c) {
          expected += std::conj(entry(w, k * channels + c)) * entry(x, c * stride + k);
        }
        EXPECT_NEAR(std::abs(entry(y, k) - expected), 0.0, kTolerance)
            << "bin " << k << " is " << entry(y, k) << ", not " << expected;
      }
    }
  }
}

TEST(PackedSpectrum, GainAboveNoiseGivesKnownValues) {
  float power[] = {4.0f, 4.0f, 3.0f, 0.0f, 0.0f};
  const float noise[] = {1.0f, 4.0f, 3.5f, 0.0f, -1.0f};
  const float gain[] = {0.75f, 0.0f, 0.0f, 0.0f, 0.0f};
  power_above_noise(power, noise, 5);
  for (size_t k = 0; k < 5; ++k) {
    EXPECT_EQ(power[k], gain[k]) << k;
  }
}

// Sums of absolute values in single precision, in the order of the samples.
float plain_sum(const wave &x) {
  float sum = 0.0f;
  for (const double sample : x) {
    sum += static_cast<float>(std::abs(sample));
  }
  return sum;
}

// Lets the levels of earlier calls fade to nothing.
void forget_levels() {
  int16_t none[2] = {};
  for (int32_t call = 0; call < 2000; ++call) {
    is_one_channel_brocken(0, none, 0);
  }
}

// Above 2^24, additions in single precision are rounded. One channel is noise, whose plain sum is
// rounded in this way. The other has the same sum, built from samples that need no rounding. If the
// library adds in the order of the samples, the levels are equal: a fault without a copy.
TEST(Levels, AreSumsInSinglePrecisionInTheOrderOfTheSamples) {
  for (const size_t count :
       {size_t{300}, size_t{1600}, size_t{2560}, size_t{20480}, size_t{200000}}) {
    for (uint32_t seed = 331; seed < 336; ++seed) {
      uint32_t state = seed;
      wave rough(count);
      std::generate(begin(rough), end(rough), [&] { return noise(&state, kFull); });
      const int64_t sum = static_cast<int64_t>(plain_sum(rough));
      wave smooth(count);
      smooth[0] = static_cast<double>(sum % 32768);
      smooth[std::slice(1, static_cast<size_t>(sum / 32768), 1)] = -32768.0;
      ASSERT_EQ(plain_sum(smooth), plain_sum(rough));
      for (const bool second : {false, true}) {
        const pcm in = second ? to_words({smooth, rough}) : to_words({rough, smooth});
        pcm words = in;
        forget_levels();
        EXPECT_EQ(is_one_channel_brocken(0, words.data(), static_cast<int32_t>(count)), 1)
            << "sum " << sum << " of " << count << " samples in channel " << second;
        EXPECT_EQ(difference(words, in), "");
      }
    }
  }
}

TEST(Levels, FortyDecibelsApartAndSilenceCountAsAFault) {
  constexpr int32_t kPairs = 320;
  const struct {
    double level[2];
    int32_t fault;
    size_t good;  // channel that is copied over the other; 2: none
  } cases[] = {{{9900, 100}, 0, 2}, {{100, 9900}, 0, 2}, {{10100, 100}, 1, 0}, {{100, 10100}, 1, 1},
               {{5000, 0}, 1, 0},   {{0, 1}, 1, 1},      {{700, 700}, 1, 2},   {{0, 0}, 1, 2}};
  for (const auto &c : cases) {
    const std::vector<wave> x = {wave(c.level[0], kPairs), wave(-c.level[1], kPairs)};
    pcm words = to_words(x);
    const pcm expected = c.good < 2 ? to_words({x[c.good], x[c.good]}) : words;
    forget_levels();
    EXPECT_EQ(is_one_channel_brocken(0, words.data(), kPairs), c.fault)
        << c.level[0] << " and " << c.level[1];
    EXPECT_EQ(difference(words, expected), "") << c.level[0] << " and " << c.level[1];
    // Levels decay by a tenth per call and count as silence below 1e-10. 3200 times 0.9^296 is
    // below.
    for (int32_t call = 1; c.fault == 0 && call < 300; ++call) {
      EXPECT_EQ(is_one_channel_brocken(0, words.data(), 0), call < 296 ? 0 : 1) << call;
    }
  }
}

}  // namespace
