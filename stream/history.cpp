// A ring of blocks.
#include "history.h"

#include <cstring>

void history_init(history *h, int32_t channels, int32_t signal_path) {
  h->width = channels * kStreamBlock;
  h->flush_blocks = (signal_path + kStreamBlock - 1) / kStreamBlock;
  h->silent_blocks = 0;
  h->next = 0;
  h->count = 0;
}

bool history_remember(history *h, const int16_t *block, const block_facts *facts, int64_t time) {
  h->silent_blocks = block_has_sound(facts) ? 0 : h->silent_blocks + 1;
  if (h->silent_blocks > h->flush_blocks) {
    h->silent_blocks = h->flush_blocks;  // must not overflow in a silence of years
    return false;
  }
  std::memcpy(h->blocks[h->next], block, static_cast<size_t>(h->width) * sizeof(int16_t));
  h->times[h->next] = time;
  h->facts[h->next] = *facts;
  h->next = (h->next + 1) % kHistoryBlocks;
  if (h->count < kHistoryBlocks) {
    ++h->count;
  }
  return true;
}

int32_t history_slot(const history *h, int32_t age) {
  return (h->next - age + kHistoryBlocks) % kHistoryBlocks;
}
