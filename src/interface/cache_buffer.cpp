// Frame forming, hop collecting and block output.
#include "interface/cache_buffer.h"

#include <cstring>

#include "support/pcm_pair.h"
#include "support/se_vector.h"

namespace {

size_t float_bytes(int32_t count) {
  return static_cast<size_t>(count) * sizeof(float);
}

float *pool_floats(int32_t count) {
  return static_cast<float *>(tamrin_malloc(count * static_cast<int32_t>(sizeof(float))));
}

SE_BF_VECTOR_CLONES void take_one(const int16_t *__restrict in, float *__restrict samples,
                                  int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    samples[i] = static_cast<float>(in[i]);
  }
}

SE_BF_VECTOR_CLONES void take_two(const int16_t *__restrict in, float *__restrict first,
                                  float *__restrict second, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const pcm_pair pair = pcm_pair_at(in, i);
    first[i] = static_cast<float>(pair.first);
    second[i] = static_cast<float>(pair.second);
  }
}

// Sums of two samples are exact, in integers as in single precision.
SE_BF_VECTOR_CLONES void take_mean(const int16_t *__restrict in, float *__restrict mean,
                                   int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const pcm_pair pair = pcm_pair_at(in, i);
    mean[i] = static_cast<float>(pair.first + pair.second) * 0.5f;
  }
}

// mean may be first.
SE_BF_VECTOR_CLONES void mean_of(const float *first, const float *second, float *mean,
                                 int32_t count) {
  SE_BF_INDEPENDENT_ROUNDS
  for (int32_t i = 0; i < count; ++i) {
    mean[i] = (first[i] + second[i]) * 0.5f;
  }
}

// `count` samples of every channel, channel c at samples + c * stride.
void take_channels(const int16_t *in, int32_t channels, float *samples, int32_t stride,
                   int32_t count) {
  if (channels == 1) {
    take_one(in, samples, count);
  } else {
    take_two(in, samples, samples + stride, count);
  }
}

struct pcm_range {
  float lowest;
  float highest;
};

// Clipped to 16 bits, then truncated toward zero. No path produces a not-a-number; it would become
// silence. The range is an argument because compilers spend four instructions instead of one on
// comparisons with constants.
SE_BF_VECTOR_CLONES void to_pcm(const float *__restrict x, int16_t *__restrict out, int32_t count,
                                pcm_range range) {
  for (int32_t i = 0; i < count; ++i) {
    const float number = x[i] == x[i] ? x[i] : 0.0f;
    const float below = number < range.highest ? number : range.highest;
    const float clipped = below > range.lowest ? below : range.lowest;
    out[i] = static_cast<int16_t>(static_cast<int32_t>(clipped));
  }
}

}  // namespace

SE_BF_RARELY_RUN catch_buf *se_catch_buf_init(int32_t fft_len, int32_t hop_len, int32_t block_len,
                                              int32_t num_ch_in, int32_t out_channels) {
  catch_buf *cb = static_cast<catch_buf *>(tamrin_malloc(sizeof(catch_buf)));
  if (cb == nullptr || hop_len > block_len) {
    return cb;
  }
  cb->fft_len = fft_len;
  cb->hop_len = hop_len;
  cb->block_len = block_len;
  cb->num_ch_in = num_ch_in;
  cb->out_channels = out_channels;
  cb->out_fill = block_len - hop_len;
  cb->stage = pool_floats(2 * block_len * num_ch_in);
  cb->out_store = pool_floats(2 * fft_len * out_channels);
  return cb;
}

int32_t se_catch_buf_get_offset(const catch_buf *cb) {
  return cb == nullptr ? 0 : cb->out_fill;
}

float *se_catch_buf_next_hop(const catch_buf *cb) {
  const bool room =
      cb->out_fill + cb->out_channels * cb->hop_len <= 2 * cb->fft_len * cb->out_channels;
  return room ? cb->out_store + cb->out_fill : nullptr;
}

void se_catch_buff_uninit(catch_buf *cb) {
  if (cb == nullptr) {
    return;
  }
  if (cb->stage != nullptr) {
    tamrin_free(cb->stage);
  }
  if (cb->out_store != nullptr) {
    tamrin_free(cb->out_store);
  }
  tamrin_free(cb);
}

int32_t se_form_input_block(catch_buf *cb, const int16_t *in, frame_content content, float *frame,
                            int32_t stride) {
  const int32_t channels = cb->num_ch_in;
  const int32_t hop = cb->hop_len;
  const int32_t carried = cb->staged_count / channels;
  const int32_t need = hop - carried;
  const int16_t *source = in + cb->read_pos * channels;

  const bool two = channels == 2;
  if (two && content == FRAME_MEAN) {
    mean_of(cb->stage, cb->stage + cb->block_len, frame, carried);
    take_mean(source, frame + carried, need);
  } else {
    for (int32_t c = 0; c < channels; ++c) {
      std::memcpy(frame + c * stride, cb->stage + c * cb->block_len, float_bytes(carried));
    }
    take_channels(source, channels, frame + carried, stride, need);
  }
  if (two && content == FRAME_MEAN_AND_SECOND) {
    mean_of(frame, frame + stride, frame, hop);
  }

  const int32_t remaining = cb->block_len - cb->read_pos - need;
  if (remaining >= hop) {
    // Set to this frame's intake, not advanced by it: exact for at most two frames from a block.
    cb->read_pos = need;
    cb->staged_count = 0;
    return remaining;
  }

  cb->staged_count = remaining * channels;
  take_channels(source + need * channels, channels, cb->stage, cb->block_len, remaining);
  cb->read_pos = 0;
  return remaining;
}

void se_buffer_output_block(catch_buf *cb) {
  cb->out_fill += cb->out_channels * cb->hop_len;
}

void se_form_output_frame(catch_buf *cb, int16_t *out) {
  to_pcm(cb->out_store, out, cb->block_len, {INT16_MIN, INT16_MAX});

  cb->out_fill -= cb->out_channels * cb->block_len;
  if (cb->out_fill > 0) {
    std::memmove(cb->out_store, cb->out_store + cb->block_len, float_bytes(cb->out_fill));
  }
}
