// Test signals with fixed seeds, the same on every platform, and the measures that judge outputs.
#ifndef TM_SE_BF_TESTS_TEST_SIGNALS_H
#define TM_SE_BF_TESTS_TEST_SIGNALS_H

#include <algorithm>
#include <cmath>
#include <numeric>

#include "streams/integer_signals.h"

using wave = std::vector<double>;
using pcm = std::vector<int16_t>;

constexpr double kPi = 3.14159265358979323846;
constexpr double kSampleRateHz = kSecond;

// A single-precision figure of the library, for a judgement in double precision.
inline double wide(float x) {
  return static_cast<double>(x);
}

// Uniform in [-1, 1].
inline double uniform(uint32_t *seed) {
  constexpr int32_t kSteps = 1 << 29;
  return noise(seed, kSteps) / static_cast<double>(kSteps);
}

inline wave white_noise(uint32_t seed, size_t count, double rms) {
  wave x(count);
  std::generate(x.begin(), x.end(), [&] { return rms * std::sqrt(3.0) * uniform(&seed); });
  return x;
}

inline wave mix(const wave &x, double gain_x, const wave &y, double gain_y) {
  wave sum(x.size());
  for (size_t n = 0; n < x.size(); ++n) {
    sum[n] = gain_x * x[n] + gain_y * y[n];
  }
  return sum;
}

// x, `late` samples later.
inline wave delayed(wave x, size_t late) {
  const size_t length = x.size();
  x.insert(x.begin(), late, 0.0);
  x.resize(length);
  return x;
}

// Voiced syllables of 180 ms in slots of 240 ms, each with a pitch and a spectrum of its own up to
// 2 kHz; two of every eight slots are pauses.
inline wave speech(size_t count, double level) {
  constexpr size_t kSlot = 3840;
  constexpr size_t kVoiced = 2880;
  uint32_t seed = 3;
  wave x(count, 0.0);
  for (size_t start = 0; start < count; start += kSlot) {
    const double pitch = 2.0 * kPi / kSampleRateHz * (130.0 + 30.0 * uniform(&seed));
    const size_t voiced = start / kSlot % 8 > 5 ? 0 : std::min(kVoiced, count - start);
    for (int32_t harmonic = 1; harmonic <= 12; ++harmonic) {
      const double amplitude = level * (0.6 + 0.4 * uniform(&seed)) / std::sqrt(harmonic);
      for (size_t n = 0; n < voiced; ++n) {
        const double t = static_cast<double>(n);
        x[start + n] += amplitude * std::sin(kPi * t / kVoiced) * std::sin(harmonic * pitch * t);
      }
    }
  }
  return x;
}

// Channels as 16-bit words, interleaved; all of one length.
inline pcm to_words(const std::vector<wave> &channels) {
  pcm words;
  for (size_t n = 0; n < channels[0].size(); ++n) {
    for (const wave &x : channels) {
      words.push_back(saturate(static_cast<int32_t>(std::lrint(x[n]))));
    }
  }
  return words;
}

// Samples from .. to-1.
template <typename words>
wave part(const words &x, size_t from, size_t to) {
  return wave(x.data() + from, x.data() + to);
}

inline double dot(const wave &x, const wave &y) {
  return std::inner_product(x.begin(), x.end(), y.begin(), 0.0);
}

inline double level_db(const wave &x) {
  return 10.0 * std::log10(dot(x, x) / static_cast<double>(x.size()));
}

// Power of `expected` over that of the deviation of `x` from it.
inline double snr_db(const wave &expected, const wave &x) {
  return level_db(expected) - level_db(mix(expected, 1.0, x, -1.0));
}

// Least-squares gain of the reference in x.
inline double gain_of(const wave &reference, const wave &x) {
  return dot(reference, x) / dot(reference, reference);
}

// Scale-invariant signal-to-distortion ratio (Le Roux, Wisdom, Erdogan and Hershey, "SDR -
// half-baked or well done?", 2019): lost speech counts as much as remaining noise.
inline double sdr_db(const wave &reference, const wave &x) {
  return snr_db(mix(reference, gain_of(reference, x), reference, 0.0), x);
}

#endif  // TM_SE_BF_TESTS_TEST_SIGNALS_H
