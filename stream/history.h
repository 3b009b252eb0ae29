// The last second of sound, with which a new setting is warmed up.
#ifndef TM_SE_BF_STREAM_HISTORY_H
#define TM_SE_BF_STREAM_HISTORY_H

#include <cstdint>

#include "block_facts.h"
#include "stream_format.h"

// 1 s: noise tracking needs 15 frames, the beamformer's weights 10.
constexpr int32_t kHistoryBlocks = 50;

struct history {
  int32_t width;                  // samples of a block, all channels
  int32_t flush_blocks;           // blocks of digital silence in a row that are worth remembering
  int32_t silent_blocks;          // of these, remembered so far
  int32_t next;                   // slot that is written next
  int32_t count;                  // slots filled
  int64_t times[kHistoryBlocks];  // first sample of the block
  block_facts facts[kHistoryBlocks];
  int16_t blocks[kHistoryBlocks][kStreamMaxChannels * kStreamBlock];
};

// signal_path: samples until the last trace of a sound has come out. Longer silence is forgotten,
// so that a change in a pause starts from what was before it.
void history_init(history *h, int32_t channels, int32_t signal_path);

// Remembers the block unless it is silent and the silence has lasted; returns whether it did.
bool history_remember(history *h, const int16_t *block, const block_facts *facts, int64_t time);

// Slot of the block that was remembered as the `age`-th from the last, 1 .. count.
int32_t history_slot(const history *h, int32_t age);

#endif  // TM_SE_BF_STREAM_HISTORY_H
