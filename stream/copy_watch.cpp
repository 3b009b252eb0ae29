// Energies of a block, and what they say together with those before.
#include "copy_watch.h"

#include "bin_vector.h"
#include "support/pcm_pair.h"
#include "support/se_vector.h"

namespace {

// Differences taken of a block: 2 of its 20 ms tell as much as all of them.
constexpr int32_t kWatchedSamples = 32;
static_assert(kWatchedSamples % kSumLanes == 0, "whole rows");

// Blocks in a section: 0.2 s.
constexpr int32_t kSectionBlocks = 10;

// Share of the energy, -30 dB, up to which the rest of one channel after the other is taken away
// counts as none: microphones 1 cm apart in a room, the talker in front, leave -25 dB over a
// second. Twice that ends the state. -40 dB is less than they leave in any block: what was before
// then counts no more.
constexpr float kLeastResidual = 0.001f;
constexpr float kRelease = 2.0f;
constexpr float kExactResidual = 0.0001f;

// Ratio of energies, 40 dB, from which on the weaker one is a dead microphone and no copy.
constexpr float kDeadRatio = 10000.0f;

// Blocks with sound, 0.2 s, after which it is no accident.
constexpr int32_t kProvenBlocks = 10;

SE_BF_VECTOR_CLONES void take_differences(const int16_t *__restrict block, float *__restrict first,
                                          float *__restrict second) {
  for (int32_t n = 0; n < kWatchedSamples; ++n) {
    const pcm_pair now = pcm_pair_at(block, n);
    const pcm_pair next = pcm_pair_at(block, n + 1);
    first[n] = static_cast<float>(next.first - now.first);
    second[n] = static_cast<float>(next.second - now.second);
  }
}

SE_BF_VECTOR_CLONES void sum_products(const float *first, const float *second,
                                      copy_energies *sums) {
  sum_row rows[3] = {};
  for (int32_t n = 0; n < kWatchedSamples; n += kSumLanes) {
    sum_row a;
    sum_row b;
    load_row(&a, first + n);
    load_row(&b, second + n);
    rows[0] += a * a;
    rows[1] += b * b;
    rows[2] += a * b;
  }
  *sums = {add_row(&rows[0]), add_row(&rows[1]), add_row(&rows[2])};
}

copy_energies add(const copy_energies *a, const copy_energies *b) {
  return {a->first + b->first, a->second + b->second, a->both + b->both};
}

// The energy of one channel that the other does not explain is (1 - r^2) of its own, with the
// correlation r: whether that is below a limit.
bool explained(const copy_energies *sum, float limit) {
  const float most = sum->first * sum->second;
  const bool comparable =
      sum->first < kDeadRatio * sum->second && sum->second < kDeadRatio * sum->first;
  return comparable && most - sum->both * sum->both < limit * most;
}

// Adds the block, and returns the sums over the last second.
copy_energies add_block(copy_watch *watch, const copy_energies *block) {
  if (watch->section_blocks == kSectionBlocks) {
    watch->section_blocks = 0;
    watch->older = {0.0f, 0.0f, 0.0f};
    for (int32_t i = 0; i < kCopySections; ++i) {
      watch->sections[i] = i + 1 < kCopySections ? watch->sections[i + 1] : watch->current;
      watch->older = add(&watch->older, &watch->sections[i]);
    }
    watch->current = {0.0f, 0.0f, 0.0f};
  }
  watch->section_blocks += 1;
  watch->current = add(&watch->current, block);
  return add(&watch->older, &watch->current);
}

}  // namespace

copy_verdict copy_watch_block(copy_watch *watch, const int16_t *block, bool identical) {
  float first[kWatchedSamples];
  float second[kWatchedSamples];
  take_differences(block, first, second);
  copy_energies now;
  sum_products(first, second, &now);
  if (!watch->proportional && explained(&now, kExactResidual)) {
    *watch = {};
  }
  const copy_energies sums = add_block(watch, &now);
  watch->proportional =
      explained(&sums, watch->proportional ? kRelease * kLeastResidual : kLeastResidual);
  const bool has_sound = now.first > 0.0f || now.second > 0.0f;
  if (!watch->proportional) {
    watch->alike_blocks = 0;
  } else if (has_sound && watch->alike_blocks < kProvenBlocks) {
    watch->alike_blocks += 1;
  }
  // Channels that are the same are another fault, but do not end this one.
  watch->proven = watch->alike_blocks == kProvenBlocks && (watch->proven || !identical);
  const int32_t louder = sums.second > sums.first ? 1 : 0;
  return {watch->proportional ? louder : kBothChannels, watch->proven,
          !has_sound || explained(&now, kRelease * kLeastResidual)};
}
