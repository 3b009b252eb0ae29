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

bool history_remember(history *h, const int16_t *block, bool has_sound, int64_t time) {
  h->silent_blocks = has_sound ? 0 : h->silent_blocks + 1;
  if (h->silent_blocks > h->flush_blocks) {
    h->silent_blocks = h->flush_blocks;  // must not overflow in a silence of years
    return false;
  }
  std::memcpy(h->blocks[h->next], block, static_cast<size_t>(h->width) * sizeof(int16_t));
  h->times[h->next] = time;
  h->next = (h->next + 1) % kHistoryBlocks;
  if (h->count < kHistoryBlocks) {
    ++h->count;
  }
  return true;
}

const int16_t *history_block(const history *h, int32_t age, int64_t *time) {
  const int32_t slot = (h->next - age + kHistoryBlocks) % kHistoryBlocks;
  *time = h->times[slot];
  return h->blocks[slot];
}
