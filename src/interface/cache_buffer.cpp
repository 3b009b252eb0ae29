// Forms frames, collects hops and emits blocks.
#include "interface/cache_buffer.h"

#include <cstring>

#include "support/has_neon.h"
#include "support/pcm_neon.h"
#include "support/pcm_pair.h"
#include "support/pool_vector.h"
#include "support/se_vector.h"

namespace {

SE_BF_VECTOR_CLONES void to_floats(const int16_t *__restrict in, float *__restrict samples,
                                   int32_t count) {
  const int32_t done = has_neon() ? pcm_neon.to_floats(in, samples, count) : 0;
  for (int32_t i = done; i < count; ++i) {
    samples[i] = static_cast<float>(in[i]);
  }
}

SE_BF_VECTOR_CLONES void to_two_channels(const int16_t *__restrict in, float *__restrict first,
                                         float *__restrict second, int32_t count) {
  const int32_t done = has_neon() ? pcm_neon.to_two_channels(in, first, second, count) : 0;
  for (int32_t i = done; i < count; ++i) {
    const pcm_pair pair = pcm_pair_at(in, i);
    first[i] = static_cast<float>(pair.first);
    second[i] = static_cast<float>(pair.second);
  }
}

SE_BF_VECTOR_CLONES void split_channels(const float *__restrict interleaved,
                                        float *__restrict first, float *__restrict second,
                                        int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    first[i] = interleaved[2 * i];
    second[i] = interleaved[2 * i + 1];
  }
}

struct pcm_range {
  float lowest;
  float highest;
};

// Clips to 16 bits, then truncates toward zero. No path produces a not-a-number; it would become
// the highest sample, or 0 with NEON. The range is an argument because compilers turn each
// comparison with a constant into four instructions instead of one.
SE_BF_VECTOR_CLONES void to_pcm(const float *__restrict x, int16_t *__restrict out, int32_t count,
                                pcm_range range) {
  const int32_t done = has_neon() ? pcm_neon.to_pcm(x, out, count) : 0;
  for (int32_t i = done; i < count; ++i) {
    const float below = x[i] < range.highest ? x[i] : range.highest;
    const float clipped = below > range.lowest ? below : range.lowest;
    out[i] = static_cast<int16_t>(static_cast<int32_t>(clipped));
  }
}

}  // namespace

SE_BF_RARELY_RUN catch_buf *se_catch_buf_init_in(core_state *core, int32_t fft_len, int32_t hop_len,
                                                 int32_t block_len, int32_t num_ch_in,
                                                 int32_t out_channels) {
  catch_buf *cb = static_cast<catch_buf *>(tamrin_malloc_in(core, sizeof(catch_buf)));
  if (cb == nullptr || hop_len > block_len) {
    return cb;
  }
  cb->fft_len = fft_len;
  cb->hop_len = hop_len;
  cb->block_len = block_len;
  cb->num_ch_in = num_ch_in;
  cb->out_channels = out_channels;
  cb->out_fill = block_len - hop_len;
  cb->stage = pool_floats(core, 2 * block_len * num_ch_in);
  cb->out_store = pool_floats(core, 2 * fft_len * out_channels);
  return cb;
}

SE_BF_RARELY_RUN int32_t se_catch_buf_get_offset(const catch_buf *cb) {
  return cb == nullptr ? 0 : cb->out_fill;
}

SE_BF_RARELY_RUN void se_catch_buff_uninit(catch_buf *cb) {
  if (cb == nullptr) {
    return;
  }
  pool_release(cb->stage);
  pool_release(cb->out_store);
  tamrin_free(cb);
}

int32_t se_form_input_block(catch_buf *cb, const int16_t *in, float *frame) {
  const int32_t channels = cb->num_ch_in;
  const int32_t hop = cb->hop_len;
  const int32_t carried = cb->staged_count / channels;
  const int32_t need = hop - carried;
  const int16_t *source = in + cb->read_pos * channels;
  if (channels == 1) {
    copy_floats(frame, cb->stage, carried);
    to_floats(source, frame + carried, need);
  } else {
    split_channels(cb->stage, frame, frame + hop, carried);
    to_two_channels(source, frame + carried, frame + hop + carried, need);
  }

  const int32_t remaining = cb->block_len - cb->read_pos - need;
  if (remaining >= hop) {
    // Assigned, not added: correct because a block yields at most two frames.
    cb->read_pos = need;
    cb->staged_count = 0;
    return remaining;
  }

  cb->staged_count = remaining * channels;
  to_floats(source + need * channels, cb->stage, cb->staged_count);
  cb->read_pos = 0;
  return remaining;
}

void se_buffer_output_block(catch_buf *cb, const float *hop) {
  const int32_t count = cb->out_channels * cb->hop_len;
  copy_floats(cb->out_store + cb->out_fill, hop, count);
  cb->out_fill += count;
}

void se_form_output_frame(catch_buf *cb, int16_t *out) {
  to_pcm(cb->out_store, out, cb->block_len, {INT16_MIN, INT16_MAX});

  cb->out_fill -= cb->out_channels * cb->block_len;
  if (cb->out_fill > 0) {
    std::memmove(cb->out_store, cb->out_store + cb->block_len,
                 static_cast<size_t>(cb->out_fill) * sizeof(float));
  }
}
