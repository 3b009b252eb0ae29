// The public functions: a stream's memory and life, and the way of samples through it.
#include <cstdlib>
#include <cstring>

#include "block_path.h"
#include "enhancer.h"
#include "input_watch.h"
#include "rate_path.h"
#include "sample_format.h"
#include "stream_config.h"

// Samples per channel that go through the stream in one piece.
static constexpr int32_t kPiece = kStreamBlock;

struct se_bf_stream {
  se_bf_stream_config config;
  int32_t latency;
  int32_t lead;       // samples of output still to come that precede the first one of input
  rate_path *rates;   // null at 16 kHz
  block_path blocks;  // at 16 kHz
  input_watch watch;
  enhancer enhance;
  float in[kStreamMaxChannels * kPiece];  // a piece on its way to and from other rates
  float out[kPiece];
  float unheard[kPiece];  // output that is dropped, in either format
  int16_t
      block[kStreamMaxChannels * kStreamBlock];  // a block at 16 kHz that came from another rate
  enhanced_block done;
};

namespace {

constexpr char kVersion[] = "2.0.0";

// Silence for a piece, in either format.
constexpr float kSilence[kStreamMaxChannels * kPiece] = {};

// How a piece of samples of one type passes through a stream. in: [frames][channels]; out:
// [frames]; frames: at most piece_room.
struct sample_type {
  size_t size;  // bytes of a sample
  void (*pass)(se_bf_stream *s, const void *in, int32_t frames, void *out);
};

void report(const se_bf_stream *s, const se_bf_stream_event *event) {
  if (s->config.on_event != nullptr) {
    s->config.on_event(s->config.user, event);
  }
}

// Passes on an event of the enhancer, with times at the rate of the stream.
void report_at_rate(void *user, const se_bf_stream_event *event) {
  const se_bf_stream *s = static_cast<const se_bf_stream *>(user);
  se_bf_stream_event translated = *event;
  translated.time = event->time * s->config.rate / kCoreRateHz;
  translated.since = event->since * s->config.rate / kCoreRateHz;
  report(s, &translated);
}

// found: samples of `in` that are not finite.
void watch_input(se_bf_stream *s, const float *in, int32_t frames, int32_t found) {
  se_bf_stream_event event;
  if (input_watch_advance(&s->watch, in, frames, found, &event)) {
    report(s, &event);
  }
}

// The block function of the rate path.
void run_block(void *user, const float *in, float *out) {
  se_bf_stream *s = static_cast<se_bf_stream *>(user);
  words_from_floats(in, s->config.channels * kStreamBlock, s->block);
  enhancer_block(&s->enhance, s->block, &s->done);
  rate_path_use(s->rates, s->done.alone);
  const bool raised = s->done.lowered && !s->enhance.words;
  floats_from_words(s->done.samples, kStreamBlock, raised ? kRaise : 1.0f, out);
}

// Samples per channel that can pass in one piece. At 16 kHz that is a block, and the spans of the
// input's watch are blocks, too.
int32_t piece_room(const se_bf_stream *s) {
  if (s->rates == nullptr) {
    return block_path_room(&s->blocks);
  }
  const int32_t room = input_watch_room(&s->watch);
  return room < kPiece ? room : kPiece;
}

void pass_words(se_bf_stream *s, const void *in, int32_t frames, void *out) {
  const int32_t count = frames * s->config.channels;
  s->enhance.words = true;
  watch_input(s, nullptr, frames, 0);
  if (s->rates != nullptr) {
    floats_from_words(static_cast<const int16_t *>(in), count, 1.0f, s->in);
    rate_path_process(s->rates, s->in, static_cast<size_t>(frames), s->out);
    words_from_floats(s->out, frames, static_cast<int16_t *>(out));
    return;
  }
  std::memcpy(block_path_input(&s->blocks), in, static_cast<size_t>(count) * sizeof(int16_t));
  block_path_words(&s->blocks, frames, static_cast<int16_t *>(out));
  block_path_advance(&s->blocks, frames);
}

void pass_floats(se_bf_stream *s, const void *in, int32_t frames, void *out) {
  const float *samples = static_cast<const float *>(in);
  const int32_t count = frames * s->config.channels;
  s->enhance.words = false;
  if (s->rates != nullptr) {
    watch_input(s, samples, frames, limit_floats(samples, count, s->in));
    rate_path_process(s->rates, s->in, static_cast<size_t>(frames), static_cast<float *>(out));
    return;
  }
  watch_input(s, samples, frames, words_from_floats(samples, count, block_path_input(&s->blocks)));
  block_path_floats(&s->blocks, frames, static_cast<float *>(out));
  block_path_advance(&s->blocks, frames);
}

constexpr sample_type kWords = {sizeof(int16_t), pass_words};
constexpr sample_type kFloats = {sizeof(float), pass_floats};

void process(se_bf_stream *s, const sample_type *type, const void *in, size_t frames, void *out) {
  if (s == nullptr || in == nullptr || out == nullptr) {
    return;
  }
  const size_t in_size = static_cast<size_t>(s->config.channels) * type->size;
  const char *next_in = static_cast<const char *>(in);
  char *next_out = static_cast<char *>(out);
  size_t left = frames;
  while (left > 0) {
    const size_t room = static_cast<size_t>(piece_room(s));
    const size_t piece = left < room ? left : room;
    type->pass(s, next_in, static_cast<int32_t>(piece), next_out);
    next_in += piece * in_size;
    next_out += piece * type->size;
    left -= piece;
  }
  const size_t lead = static_cast<size_t>(s->lead);
  s->lead -= static_cast<int32_t>(frames < lead ? frames : lead);
}

// Passes `frames` samples per channel whose output nobody hears.
void process_unheard(se_bf_stream *s, const sample_type *type, const void *in, size_t frames) {
  const size_t in_size = static_cast<size_t>(s->config.channels) * type->size;
  const char *next_in = static_cast<const char *>(in);
  for (size_t done = 0; done < frames; done += kPiece) {
    const size_t piece = frames - done < kPiece ? frames - done : kPiece;
    process(s, type, next_in + done * in_size, piece, s->unheard);
  }
}

size_t push(se_bf_stream *s, const sample_type *type, const void *in, size_t frames, void *out) {
  if (s == nullptr || in == nullptr || out == nullptr) {
    return 0;
  }
  const size_t lead = static_cast<size_t>(s->lead);
  const size_t skipped = frames < lead ? frames : lead;
  process_unheard(s, type, in, skipped);
  const size_t in_size = static_cast<size_t>(s->config.channels) * type->size;
  process(s, type, static_cast<const char *>(in) + skipped * in_size, frames - skipped, out);
  return frames - skipped;
}

size_t finish(se_bf_stream *s, const sample_type *type, void *out) {
  if (s == nullptr || out == nullptr) {
    return 0;
  }
  const size_t inside = static_cast<size_t>(s->latency - s->lead);
  for (int32_t lead = s->lead; inside > 0 && lead > 0; lead -= kPiece) {
    process_unheard(s, type, kSilence, static_cast<size_t>(lead < kPiece ? lead : kPiece));
  }
  char *next_out = static_cast<char *>(out);
  for (size_t done = 0; done < inside; done += kPiece) {
    const size_t piece = inside - done < kPiece ? inside - done : kPiece;
    process(s, type, kSilence, piece, next_out + done * type->size);
  }
  se_bf_stream_reset(s);
  return inside;
}

// Opens the path of the stream's rate and sets the latency; says what failed, or null.
const char *open_path(se_bf_stream *s) {
  s->latency = kStreamBlock + s->enhance.delay;
  if (s->config.rate == kCoreRateHz) {
    return nullptr;
  }
  const rate_path_config config = {s->config.rate,      s->config.channels, s->enhance.delay,
                                   s->config.full_band, run_block,          s};
  const char *fault = nullptr;
  s->rates = rate_path_open(&config, &fault);
  if (s->rates == nullptr) {
    return fault;
  }
  s->latency = rate_path_latency(s->rates);
  return nullptr;
}

void start(se_bf_stream *s) {
  block_path_init(&s->blocks, &s->enhance, s->config.channels);
  input_watch_init(&s->watch, s->config.rate, s->config.channels);
  s->lead = s->latency;
}

// Opens all parts of a zero-filled stream; says what failed, or null.
const char *open_parts(se_bf_stream *s, const se_bf_stream_config *config) {
  s->config = *config;
  const lane_setting setting = stream_config_setting(config);
  if (!enhancer_open(&s->enhance, &setting, report_at_rate, s)) {
    // Cannot happen: the core's memory is made for the largest of the settings that are taken.
    return "config.channels and config.hop need more memory than the core has";
  }
  const char *fault = open_path(s);
  start(s);
  return fault;
}

}  // namespace

se_bf_stream *se_bf_stream_open(const se_bf_stream_config *config, const char **error) {
  const char *unread = nullptr;
  const char **fault = error != nullptr ? error : &unread;
  *fault = stream_config_fault(config);
  if (*fault != nullptr) {
    return nullptr;
  }
  se_bf_stream *s = static_cast<se_bf_stream *>(std::calloc(1, sizeof(se_bf_stream)));
  const se_bf_stream_config complete = stream_config_complete(config);
  *fault = s == nullptr ? "not enough memory for a stream" : open_parts(s, &complete);
  if (*fault != nullptr) {
    se_bf_stream_close(s);
    return nullptr;
  }
  return s;
}

int32_t se_bf_stream_latency(const se_bf_stream *stream) {
  return stream == nullptr ? 0 : stream->latency;
}

void se_bf_stream_process_s16(se_bf_stream *stream, const int16_t *in, size_t frames,
                              int16_t *out) {
  process(stream, &kWords, in, frames, out);
}

void se_bf_stream_process_f32(se_bf_stream *stream, const float *in, size_t frames, float *out) {
  process(stream, &kFloats, in, frames, out);
}

size_t se_bf_stream_push_s16(se_bf_stream *stream, const int16_t *in, size_t frames, int16_t *out) {
  return push(stream, &kWords, in, frames, out);
}

size_t se_bf_stream_push_f32(se_bf_stream *stream, const float *in, size_t frames, float *out) {
  return push(stream, &kFloats, in, frames, out);
}

size_t se_bf_stream_finish_s16(se_bf_stream *stream, int16_t *out) {
  return finish(stream, &kWords, out);
}

size_t se_bf_stream_finish_f32(se_bf_stream *stream, float *out) {
  return finish(stream, &kFloats, out);
}

int32_t se_bf_stream_change(se_bf_stream *stream, const se_bf_stream_config *config) {
  if (stream == nullptr || config == nullptr) {
    return SE_BF_STREAM_ERROR_NULL;
  }
  if (stream_config_fault(config) != nullptr) {
    return SE_BF_STREAM_ERROR_CONFIG;
  }
  const se_bf_stream_config complete = stream_config_complete(config);
  if (!stream_config_fits(&stream->config, &complete)) {
    return SE_BF_STREAM_ERROR_FIXED;
  }
  const lane_setting setting = stream_config_setting(&complete);
  if (!enhancer_change(&stream->enhance, &setting)) {
    return SE_BF_STREAM_ERROR_LATENCY;
  }
  stream->config = complete;
  if (stream->rates != nullptr) {
    rate_path_set_full_band(stream->rates, complete.full_band);
  }
  return 0;
}

int32_t se_bf_stream_direction(const se_bf_stream *stream, se_bf_stream_direction_info *info) {
  if (stream == nullptr || info == nullptr) {
    return SE_BF_STREAM_ERROR_NULL;
  }
  const lane *l = &stream->enhance.lanes[stream->enhance.running];
  return lane_direction(l, info) ? 0 : SE_BF_STREAM_ERROR_MODE;
}

void se_bf_stream_reset(se_bf_stream *stream) {
  if (stream == nullptr) {
    return;
  }
  enhancer_reset(&stream->enhance);
  if (stream->rates != nullptr) {
    rate_path_reset(stream->rates);
  }
  start(stream);
}

void se_bf_stream_close(se_bf_stream *stream) {
  if (stream == nullptr) {
    return;
  }
  rate_path_close(stream->rates);
  std::free(stream);
}

const char *se_bf_stream_version(void) {
  return kVersion;
}
