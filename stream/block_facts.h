// What the parts of a stream ask about a block of input, found once.
#ifndef TM_SE_BF_STREAM_BLOCK_FACTS_H
#define TM_SE_BF_STREAM_BLOCK_FACTS_H

#include <cstdint>

#include "copy_watch.h"

struct block_facts {
  float sum[2];         // sum of absolute values per channel; 0 for a channel that is not there
  bool identical;       // two channels carry the same samples
  copy_verdict copies;  // whether two channels carry the same sound
};

// Measures a block of kStreamBlock samples per channel, interleaved. watch: what has been heard
// before of two channels; not read with one.
block_facts block_measure(const int16_t *block, int32_t channels, copy_watch *watch);

// Whether any channel of the block carries sound.
bool block_has_sound(const block_facts *facts);

#endif  // TM_SE_BF_STREAM_BLOCK_FACTS_H
