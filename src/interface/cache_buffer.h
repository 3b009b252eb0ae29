// Block buffer between the caller's 320-sample blocks and the analysis hop.
//
// Cuts interleaved 16-bit input into planar float frames of one hop (channel after channel), and
// carries the rest of a block over to the next one. Collects processed hops and emits mono 16-bit
// blocks. The output store starts with block_len - hop zeros, the buffer's own latency. Sample
// values are converted without scaling.
//
// The output is without gaps and repetitions only if every block yields at most two frames, and if
// the output store holds at least one block whenever a block is emitted. This is so for hops of
// 160, 192 and 320.
#ifndef TM_SE_BF_INTERFACE_CACHE_BUFFER_H
#define TM_SE_BF_INTERFACE_CACHE_BUFFER_H

#include <cstdint>

#include "support/tamrin_memory.h"

#pragma pack(push, 4)
struct catch_buf {
  int32_t fft_len;       // N, sizes the output store
  int32_t hop_len;       // L
  int32_t read_pos;      // samples per channel already taken from the current input block
  int32_t block_len;     // B
  int32_t num_ch_in;     // C
  int32_t out_channels;  // 1
  float *stage;          // [2BC] leftover input, interleaved
  float *out_store;      // [2N] processed samples waiting for output
  int32_t out_fill;      // floats held in out_store
  int32_t staged_count;  // floats held in stage, all channels
};
#pragma pack(pop)

// Makes a buffer from the pool. A hop longer than the block gives an unconfigured buffer (all
// zero). Returns null when the pool cannot hold the record. If it holds the record alone, `stage`
// or `out_store` is null: stream_check_config refuses such an instance.
catch_buf *se_catch_buf_init_in(core_state *core, int32_t fft_len, int32_t hop_len,
                                int32_t block_len, int32_t num_ch_in, int32_t out_channels);
inline catch_buf *se_catch_buf_init(int32_t fft_len, int32_t hop_len, int32_t block_len,
                                    int32_t num_ch_in, int32_t out_channels) {
  return se_catch_buf_init_in(&process_core, fft_len, hop_len, block_len, num_ch_in, out_channels);
}

// Number of samples in the output store. Right after creation this is the buffer's latency in
// samples. 0 for null.
int32_t se_catch_buf_get_offset(const catch_buf *cb);

// Whether the output store can take another hop. Supported hops never run out of room.
inline bool se_catch_buf_has_room(const catch_buf *cb) {
  return cb->out_fill + cb->out_channels * cb->hop_len <= 2 * cb->fft_len * cb->out_channels;
}

// Releases the buffer through the pool; null is accepted.
void se_catch_buff_uninit(catch_buf *cb);

// Forms the next frame from the carried remainder and `in`, the caller's current block of [B][C]
// samples. frame: [C][L], channel c starts at c * L. Returns the samples per channel that are left
// in the block: less than L when the next frame needs the next block.
int32_t se_form_input_block(catch_buf *cb, const int16_t *in, float *frame);

// Appends a processed hop of L floats to the output store, which must have room for it.
void se_buffer_output_block(catch_buf *cb, const float *hop);

// Emits one block of B samples, clipped to 16 bits and truncated toward zero.
void se_form_output_frame(catch_buf *cb, int16_t *out);

#endif  // TM_SE_BF_INTERFACE_CACHE_BUFFER_H
