// Test signals in integer arithmetic only, and the hash of an output: the same on every processor.
#ifndef TM_SE_BF_TESTS_STREAMS_INTEGER_SIGNALS_H
#define TM_SE_BF_TESTS_STREAMS_INTEGER_SIGNALS_H

#include <cstdint>
#include <vector>

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

constexpr uint64_t kEmptyHash = 14695981039346656037u;

// FNV-1a (Fowler, Noll and Vo) over samples, low byte first.
inline uint64_t hash_words(uint64_t hash, const std::vector<int16_t> &samples) {
  constexpr uint64_t kPrime = 1099511628211u;
  for (const int16_t sample : samples) {
    const uint16_t word = static_cast<uint16_t>(sample);
    hash = (hash ^ (word & 0xFFu)) * kPrime;
    hash = (hash ^ (word >> 8)) * kPrime;
  }
  return hash;
}

#endif  // TM_SE_BF_TESTS_STREAMS_INTEGER_SIGNALS_H
