// Runs sound through streams, and through the seven functions that judge them.
#ifndef TM_SE_BF_TESTS_STREAM_STREAM_USE_H
#define TM_SE_BF_TESTS_STREAM_STREAM_USE_H

#include <gtest/gtest.h>

#include <functional>

#include "stream_run.h"
#include "tm_se_bf_stream.h"

constexpr size_t kBlock = 320;

struct heard_event {
  int32_t kind;
  int32_t mic;
  int64_t time;
  int64_t since;
  int32_t beamforming;
  int32_t count;
  bool operator==(const heard_event &o) const {
    return kind == o.kind && mic == o.mic && time == o.time && since == o.since &&
           beamforming == o.beamforming && count == o.count;
  }
};
using heard_events = std::vector<heard_event>;

inline void PrintTo(const heard_event &e, std::ostream *to) {
  *to << "{kind " << e.kind << " mic " << e.mic << " time " << e.time << " since " << e.since
      << " beamforming " << e.beamforming << " count " << e.count << "}";
}

inline void hear(void *user, const se_bf_stream_event *e) {
  static_cast<heard_events *>(user)->push_back(
      {e->kind, e->mic, e->time, e->since, e->beamforming, e->count});
}

inline se_bf_stream_config make_config(int32_t channels, int32_t mode, int32_t hop,
                                       bool plain = false, heard_events *events = nullptr) {
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.channels = channels;
  config.mode = mode;
  config.hop = hop;
  config.mic_distance = 0.05f;
  config.doa = 70.0f;
  config.plain = plain ? 1 : 0;
  config.on_event = events != nullptr ? hear : nullptr;
  config.user = events;
  return config;
}

inline se_bf_stream *open_stream(const se_bf_stream_config &config) {
  const char *error = nullptr;
  se_bf_stream *stream = se_bf_stream_open(&config, &error);
  EXPECT_NE(stream, nullptr) << error;
  return stream;
}

// Lengths of the pieces that a caller cuts sound into: `longest` each, or random up to that.
struct pieces {
  size_t longest;
  bool random = false;
  uint32_t seed = 1;
  size_t next(size_t left) {
    const size_t wanted = random ? next_random(&seed) % (longest + 1) : longest;
    return std::min(wanted, left);
  }
};

inline pcm process_words(se_bf_stream *stream, const pcm &in, size_t channels, pieces cut) {
  pcm out(in.size() / channels);
  for (size_t at = 0, n = 0; at < out.size(); at += n) {
    n = cut.next(out.size() - at);
    se_bf_stream_process_s16(stream, &in[at * channels], n, &out[at]);
  }
  return out;
}

inline pcm run_process(const se_bf_stream_config &config, const pcm &in, pieces cut = {1000}) {
  se_bf_stream *stream = open_stream(config);
  pcm out = process_words(stream, in, static_cast<size_t>(config.channels), cut);
  se_bf_stream_close(stream);
  return out;
}

inline pcm run_aligned(const se_bf_stream_config &config, const pcm &in, pieces cut = {1000}) {
  const size_t channels = static_cast<size_t>(config.channels);
  se_bf_stream *stream = open_stream(config);
  const size_t frames = in.size() / channels;
  pcm out(frames + 65536);
  size_t written = 0;
  for (size_t at = 0, n = 0; at < frames; at += n) {
    n = cut.next(frames - at);
    written += se_bf_stream_push_s16(stream, &in[at * channels], n, &out[written]);
  }
  out.resize(written + se_bf_stream_finish_s16(stream, &out[written]));
  se_bf_stream_close(stream);
  return out;
}

// The levels of the seven functions outlive their instances. Silence lets them fade to nothing.
inline void forget_levels() {
  run_stream({2, 320, 320, SE_BF_MODE_OMLSA}, pcm(1200 * 2 * kBlock));
}

// The seven functions with 320 samples a call: output as it comes, for whole blocks of input.
inline pcm run_core(const se_bf_stream_config &config, const pcm &in) {
  forget_levels();
  const int32_t hop = config.hop == 0 ? 320 : config.hop;
  return run_stream({static_cast<int16_t>(config.channels), 320, hop, config.mode,
                     config.mic_distance, config.doa},
                    in);
}

// The headroom that a shielded stream leaves the beamformer: 3 dB, which words do not get back.
inline pcm lowered(pcm x) {
  std::transform(x.begin(), x.end(), x.begin(), [](int16_t word) {
    return static_cast<int16_t>(std::floor(word * 23170.0 / 32768 + 0.5));
  });
  return x;
}

inline pcm cut(const pcm &x, size_t from, size_t to) {
  return pcm(x.data() + from, x.data() + std::min(to, x.size()));
}

inline pcm join(const std::vector<pcm> &parts) {
  pcm whole;
  for (const pcm &next : parts) {
    whole.insert(whole.end(), next.begin(), next.end());
  }
  return whole;
}

// A talker in noise as loud as he is, so that no block is silent.
inline pcm make_sound(size_t frames, uint32_t seed, double noise_rms = 3000.0) {
  return to_words(microphones(seed, frames, noise_rms));
}

inline pcm silence(size_t frames) {
  return pcm(2 * frames);
}

// Two channels with microphone `mic` silent from frame `from` to frame `to`.
inline pcm mute(pcm x, size_t mic, size_t from, size_t to) {
  for (size_t t = from; t < to; ++t) {
    x[2 * t + mic] = 0;
  }
  return x;
}

#endif  // TM_SE_BF_TESTS_STREAM_STREAM_USE_H
