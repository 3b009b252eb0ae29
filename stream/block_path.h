// The path of a stream at 16 kHz: cuts samples into blocks for the enhancer, and changes nothing
// but that it raises floats that are lowered.
#ifndef TM_SE_BF_STREAM_BLOCK_PATH_H
#define TM_SE_BF_STREAM_BLOCK_PATH_H

#include <cstdint>

#include "enhancer.h"

// While the input block fills up, the output of the block before is given back.
struct block_path {
  enhancer *sink;
  int32_t channels;
  int32_t fill;                                      // samples per channel in `block`
  int16_t block[kStreamMaxChannels * kStreamBlock];  // input that does not fill a block yet
  enhanced_block done;                               // output of the last block
};

// Starts afresh.
void block_path_init(block_path *path, enhancer *sink, int32_t channels);

// Samples per channel that the current block has room for: the most that the next call takes.
int32_t block_path_room(const block_path *path);

// Where the next samples are put, interleaved.
int16_t *block_path_input(block_path *path);

// Give the next `frames` samples of output.
void block_path_words(const block_path *path, int32_t frames, int16_t *out);
void block_path_floats(const block_path *path, int32_t frames, float *out);

// `frames` samples per channel have been put, and as many of output been taken.
void block_path_advance(block_path *path, int32_t frames);

#endif  // TM_SE_BF_STREAM_BLOCK_PATH_H
