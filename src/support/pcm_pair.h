// Reads and writes two-channel PCM one sample pair at a time, as a 32-bit word. Loops over such
// words need no deinterleaving step and take few instructions per vector.
#ifndef TM_SE_BF_SUPPORT_PCM_PAIR_H
#define TM_SE_BF_SUPPORT_PCM_PAIR_H

#include <cstdint>
#include <cstring>

// The samples of both channels at one instant, in the order in memory.
struct pcm_pair {
  int32_t first;
  int32_t second;
};

// Returns pair i of interleaved two-channel samples, sign-extended to 32 bits.
inline pcm_pair pcm_pair_at(const int16_t *interleaved, int32_t i) {
  constexpr int32_t kSampleBits = 16;
  constexpr bool kFirstIsLow = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  int32_t word;
  std::memcpy(&word, interleaved + 2 * i, sizeof word);
  const int32_t high = word >> kSampleBits;
  const int32_t low =
      static_cast<int32_t>(static_cast<uint32_t>(word) << kSampleBits) >> kSampleBits;
  return kFirstIsLow ? pcm_pair{low, high} : pcm_pair{high, low};
}

// Writes the low 16 bits of `sample` to both channels of pair i.
inline void pcm_pair_fill(int16_t *interleaved, int32_t i, int32_t sample) {
  constexpr uint32_t kBothHalves = 0x10001u;
  constexpr uint32_t kLowHalf = 0xFFFFu;
  const uint32_t word = (static_cast<uint32_t>(sample) & kLowHalf) * kBothHalves;
  std::memcpy(interleaved + 2 * i, &word, sizeof word);
}

#endif  // TM_SE_BF_SUPPORT_PCM_PAIR_H
