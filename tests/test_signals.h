// Test signals with fixed seeds, and the measures that judge outputs.
#ifndef TM_SE_BF_TESTS_TEST_SIGNALS_H
#define TM_SE_BF_TESTS_TEST_SIGNALS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <valarray>
#include <vector>

using wave = std::valarray<double>;
using pcm = std::vector<int16_t>;

// First the signals and the hash for outputs that are compared between processors: in integer
// arithmetic only, so that nothing but the library can change an output.
constexpr int32_t kSecond = 16000;
constexpr int16_t kFull = 32767;

// Marsaglia's xorshift generator.
inline uint32_t next_random(uint32_t *state) {
  *state ^= *state << 13;
  *state ^= *state >> 17;
  *state ^= *state << 5;
  return *state;
}

// Uniform over -amplitude .. amplitude.
inline int32_t noise(uint32_t *state, int32_t amplitude) {
  const int32_t span = 2 * amplitude + 1;
  return static_cast<int32_t>(next_random(state) % static_cast<uint32_t>(span)) - amplitude;
}

// Talker: pulses at a gliding pitch through two resonators, in syllables of 180 ms with pauses.
struct talker {
  int32_t phase;
  int32_t first[2];
  int32_t second[2];
};

inline int32_t resonate(int32_t *past, int32_t in, int32_t two_cos_q14) {
  constexpr int32_t kRadiusSquaredQ14 = 15400;
  const int64_t feedback = int64_t{two_cos_q14} * past[0] - int64_t{kRadiusSquaredQ14} * past[1];
  const int32_t out = in + static_cast<int32_t>(feedback / 16384);
  past[1] = past[0];
  past[0] = out;
  return out;
}

inline int32_t talk(talker *voice, int32_t n) {
  constexpr int32_t kSyllable = 2880;
  const int32_t syllable = n / kSyllable;
  const bool speaking = syllable % 5 < 3 && n > kSecond / 2;
  const int32_t period = 90 + 25 * (syllable % 4) + (n / 400) % 9;
  voice->phase = (voice->phase + 1) % period;
  const int32_t pulse = speaking && voice->phase == 0 ? 2400 + 500 * (syllable % 3) : 0;
  const int32_t low = resonate(voice->first, pulse, 29000 - 900 * (syllable % 6));
  return resonate(voice->second, low, 17000 + 2100 * (syllable % 5)) / 2;
}

inline int16_t saturate(int32_t x) {
  return static_cast<int16_t>(x > kFull ? kFull : x < -kFull - 1 ? -kFull - 1 : x);
}

// The first word that is not the expected one, or nothing.
inline std::string difference(const pcm &x, const pcm &expected) {
  if (x.size() != expected.size()) {
    return std::to_string(x.size()) + " words, not " + std::to_string(expected.size());
  }
  const auto [word, wanted] = std::mismatch(x.begin(), x.end(), expected.begin());
  return word == x.end() ? ""
                         : "word " + std::to_string(word - x.begin()) + " is " +
                               std::to_string(*word) + ", not " + std::to_string(*wanted);
}

constexpr uint64_t kEmptyHash = 14695981039346656037u;

// FNV-1a (Fowler, Noll and Vo) over samples, low byte first.
inline uint64_t hash_words(uint64_t hash, const pcm &samples) {
  constexpr uint64_t kPrime = 1099511628211u;
  for (const int16_t sample : samples) {
    const uint16_t word = static_cast<uint16_t>(sample);
    hash = (hash ^ (word & 0xFFu)) * kPrime;
    hash = (hash ^ (word >> 8)) * kPrime;
  }
  return hash;
}

constexpr double kPi = 3.14159265358979323846;
constexpr double kSampleRateHz = kSecond;

// Widens a single-precision value of the library, to be judged in double precision.
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
  std::generate(begin(x), end(x), [&] { return rms * std::sqrt(3.0) * uniform(&seed); });
  return x;
}

// Voiced syllables of 180 ms in slots of 240 ms, each with a pitch and a spectrum of its own up to
// 2 kHz; two of every eight slots are pauses.
inline wave speech(size_t count, double level) {
  constexpr size_t kSlot = 3840;
  constexpr size_t kVoiced = 2880;
  uint32_t seed = 3;
  wave x(count);
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
  wave samples(to - from);
  std::copy(&x[from], &x[from] + samples.size(), begin(samples));
  return samples;
}

inline double level_db(const wave &x) {
  return 10.0 * std::log10((x * x).sum() / static_cast<double>(x.size()));
}

// Power of `expected` over that of the deviation of `x` from it.
inline double snr_db(const wave &expected, const wave &x) {
  return level_db(expected) - level_db(expected - x);
}

// Least-squares gain of the reference in x.
inline double gain_of(const wave &reference, const wave &x) {
  return (reference * x).sum() / (reference * reference).sum();
}

// Scale-invariant signal-to-distortion ratio (Le Roux, Wisdom, Erdogan and Hershey, "SDR -
// half-baked or well done?", 2019): lost speech counts as much as remaining noise.
inline double sdr_db(const wave &reference, const wave &x) {
  return snr_db(gain_of(reference, x) * reference, x);
}

#endif  // TM_SE_BF_TESTS_TEST_SIGNALS_H
