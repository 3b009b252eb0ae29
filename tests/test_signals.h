// Test signals with fixed seeds, the same on every platform, and the measures that judge outputs.
#ifndef TM_SE_BF_TESTS_TEST_SIGNALS_H
#define TM_SE_BF_TESTS_TEST_SIGNALS_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

using wave = std::vector<double>;
using pcm = std::vector<int16_t>;

constexpr double kPi = 3.14159265358979323846;
constexpr double kSampleRateHz = 16000.0;
constexpr size_t kSecond = 16000;

// A single-precision figure of the library, for a judgement in double precision.
inline double wide(float x) {
  return static_cast<double>(x);
}

// Uniform in [-1, 1) from a non-zero state (Marsaglia, "Xorshift RNGs", 2003).
inline double uniform(uint32_t *state) {
  *state ^= *state << 13;
  *state ^= *state >> 17;
  *state ^= *state << 5;
  return static_cast<double>(*state) / 2147483648.0 - 1.0;
}

inline wave white_noise(uint32_t seed, size_t count, double rms) {
  wave x(count);
  std::generate(x.begin(), x.end(), [&] { return rms * std::sqrt(3.0) * uniform(&seed); });
  return x;
}

inline double turn_sin(double turns) {
  return std::sin(2.0 * kPi * turns);
}

inline wave tone(size_t count, double hz, double amplitude) {
  wave x(count);
  for (size_t n = 0; n < count; ++n) {
    x[n] = amplitude * turn_sin(hz * static_cast<double>(n) / kSampleRateHz);
  }
  return x;
}

// Speech-like: voiced syllables of 180 ms in slots of 240 ms, each with a pitch and a spectrum of
// its own up to 2 kHz; two of every eight slots are pauses.
inline wave talker(uint32_t seed, size_t count, double level) {
  constexpr size_t kSlot = 3840;
  constexpr size_t kVoiced = 2880;
  wave x(count, 0.0);
  for (size_t start = 0; start < count; start += kSlot) {
    const double pitch_hz = 130.0 + 30.0 * uniform(&seed);
    const size_t voiced = start / kSlot % 8 > 5 ? 0 : std::min(kVoiced, count - start);
    for (int harmonic = 1; harmonic <= 12; ++harmonic) {
      const double amplitude = level * (0.6 + 0.4 * uniform(&seed)) / std::sqrt(harmonic);
      for (size_t n = 0; n < voiced; ++n) {
        const double t = static_cast<double>(n);
        const double envelope = turn_sin(0.5 * t / static_cast<double>(kVoiced));
        x[start + n] += envelope * amplitude * turn_sin(harmonic * pitch_hz * t / kSampleRateHz);
      }
    }
  }
  return x;
}

inline wave mix(const wave &x, double gain_x, const wave &y, double gain_y) {
  wave sum(x.size());
  for (size_t n = 0; n < x.size(); ++n) {
    sum[n] = gain_x * x[n] + gain_y * y[n];
  }
  return sum;
}

// Channels as 16-bit words, interleaved; all of one length.
inline pcm to_words(const std::vector<wave> &channels) {
  pcm words;
  for (size_t n = 0; n < channels[0].size(); ++n) {
    for (const wave &x : channels) {
      words.push_back(static_cast<int16_t>(std::lrint(std::clamp(x[n], -32768.0, 32767.0))));
    }
  }
  return words;
}

inline wave to_wave(const pcm &words) {
  return wave(words.begin(), words.end());
}

inline double to_db(double power_ratio) {
  return 10.0 * std::log10(power_ratio);
}

// Mean square of x[from .. to-1], in dB.
inline double level_db(const wave &x, size_t from, size_t to) {
  double sum = 0.0;
  for (size_t n = from; n < to; ++n) {
    sum += x[n] * x[n];
  }
  return to_db(sum / static_cast<double>(to - from));
}

// Power of `expected` over that of the deviation of `x` from it.
inline double snr_db(const wave &expected, const wave &x) {
  return level_db(expected, 0, x.size()) - level_db(mix(expected, 1.0, x, -1.0), 0, x.size());
}

struct projection {
  double gain_db;  // least-squares gain of the reference in the output
  double sdr_db;   // scaled reference over the rest: the scale-invariant signal-to-distortion ratio
};

// Least-squares projection of `out` on `reference` delayed by `delay`, from sample `from` on.
inline projection project(const wave &reference, const wave &out, size_t delay, size_t from) {
  double cross = 0.0;
  double energy = 0.0;
  double total = 0.0;
  for (size_t n = from; n < out.size(); ++n) {
    cross += out[n] * reference[n - delay];
    energy += reference[n - delay] * reference[n - delay];
    total += out[n] * out[n];
  }
  const double explained = cross * cross / energy;
  return {to_db(explained / energy), to_db(explained / (total - explained))};
}

#endif  // TM_SE_BF_TESTS_TEST_SIGNALS_H
