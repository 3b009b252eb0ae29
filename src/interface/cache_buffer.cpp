// Frame forming, hop collecting and block output.
#include "interface/cache_buffer.h"

#include <cstring>

#include "support/se_vector.h"

namespace {

constexpr float kPcmMax = 32767.0f;
constexpr float kPcmMin = -32768.0f;

float *pool_floats(int32_t count) {
  return static_cast<float *>(tamrin_malloc(count * static_cast<int32_t>(sizeof(float))));
}

// Samples of one channel out of interleaved ones.
SE_BF_VECTOR_CLONES void take_channel(const int16_t *__restrict interleaved, int32_t channels,
                                      float *__restrict samples, int32_t count) {
  if (channels == 1) {
    for (int32_t i = 0; i < count; ++i) {
      samples[i] = static_cast<float>(interleaved[i]);
    }
    return;
  }
  for (int32_t i = 0; i < count; ++i) {
    samples[i] = static_cast<float>(interleaved[2 * i]);
  }
}

// Clipped to 16 bits, then truncated toward zero. No path produces a not-a-number; it would become
// silence.
SE_BF_VECTOR_CLONES void to_pcm(const float *__restrict x, int16_t *__restrict out, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const float number = x[i] == x[i] ? x[i] : 0.0f;
    const float below = number > kPcmMax ? kPcmMax : number;
    const float clipped = below < kPcmMin ? kPcmMin : below;
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

bool se_catch_buf_has_room(const catch_buf *cb) {
  return cb->out_fill + cb->out_channels * cb->hop_len <= 2 * cb->fft_len * cb->out_channels;
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

int32_t se_form_input_block(catch_buf *cb, const int16_t *in, float *frame) {
  const int32_t channels = cb->num_ch_in;
  const int32_t hop = cb->hop_len;
  const int32_t carried = cb->staged_count / channels;
  const int32_t need = hop - carried;
  const int16_t *source = in + cb->read_pos * channels;

  for (int32_t c = 0; c < channels; ++c) {
    float *samples = frame + c * hop;
    for (int32_t i = 0; i < carried; ++i) {
      samples[i] = cb->stage[i * channels + c];
    }
    take_channel(source + c, channels, samples + carried, need);
  }

  const int32_t remaining = cb->block_len - cb->read_pos - need;
  if (remaining >= hop) {
    // Set to this frame's intake, not advanced by it: exact for at most two frames from a block.
    cb->read_pos = need;
    cb->staged_count = 0;
    return remaining;
  }

  cb->staged_count = remaining * channels;
  take_channel(source + need * channels, 1, cb->stage, cb->staged_count);
  cb->read_pos = 0;
  return remaining;
}

void se_buffer_output_block(catch_buf *cb, const float *hop) {
  const int32_t count = cb->out_channels * cb->hop_len;
  std::memcpy(cb->out_store + cb->out_fill, hop, static_cast<size_t>(count) * sizeof(float));
  cb->out_fill += count;
}

void se_form_output_frame(catch_buf *cb, int16_t *out) {
  to_pcm(cb->out_store, out, cb->block_len);

  cb->out_fill -= cb->out_channels * cb->block_len;
  if (cb->out_fill > 0) {
    const size_t bytes = static_cast<size_t>(cb->out_fill) * sizeof(float);
    std::memmove(cb->out_store, cb->out_store + cb->block_len, bytes);
  }
}
