// Sums over a block.
#include "block_facts.h"

#include "stream_format.h"
#include "support/pcm_pair.h"
#include "support/se_vector.h"

namespace {

constexpr copy_verdict kNoCopies = {kBothChannels, false, false};

int32_t magnitude(int32_t sample) {
  return sample < 0 ? -sample : sample;
}

// Sums of 320 samples stay below 2^24, where single precision holds every integer: these are the
// sums of the core.
SE_BF_VECTOR_CLONES block_facts measure_one(const int16_t *block) {
  int32_t sum = 0;
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    sum += magnitude(block[n]);
  }
  return {{static_cast<float>(sum), 0.0f}, false, kNoCopies};
}

SE_BF_VECTOR_CLONES block_facts measure_two(const int16_t *block) {
  int32_t first = 0;
  int32_t second = 0;
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    const pcm_pair pair = pcm_pair_at(block, n);
    first += magnitude(pair.first);
    second += magnitude(pair.second);
  }
  return {{static_cast<float>(first), static_cast<float>(second)}, false, kNoCopies};
}

bool same_samples(const int16_t *block) {
  int32_t differences = 0;
  for (int32_t n = 0; n < kStreamBlock; ++n) {
    const pcm_pair pair = pcm_pair_at(block, n);
    differences |= pair.first ^ pair.second;
  }
  return differences == 0;
}

}  // namespace

block_facts block_measure(const int16_t *block, int32_t channels, copy_watch *watch) {
  if (channels == 1) {
    return measure_one(block);
  }
  block_facts facts = measure_two(block);
  facts.identical = facts.sum[0] == facts.sum[1] && same_samples(block);
  facts.copies = copy_watch_block(watch, block, facts.identical);
  return facts;
}

bool block_has_sound(const block_facts *facts) {
  return facts->sum[0] > 0.0f || facts->sum[1] > 0.0f;
}
