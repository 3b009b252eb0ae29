// One enhanced stream of an audio plug-in, or its stand-in when the enhancer is taken.
#include "plugin_stream.h"

#include <stdio.h>
#include <string.h>

#include <atomic>

static std::atomic<bool> g_stand_in_told(false);
static std::atomic<bool> g_direction_told(false);

static void tell_once(std::atomic<bool> *told, const char *line) {
  if (!told->exchange(true)) {
    fputs(line, stderr);
  }
}

void plugin_stream_open(plugin_stream *stream, const plugin_scene *scene) {
  *stream = {};
  stream->scene = *scene;
  host_config config = {};
  config.channels = PLUGIN_CHANNELS;
  config.mode = scene->mode;
  config.hop = PLUGIN_HOP;
  const bool directed = scene->doa >= -PLUGIN_MAX_ANGLE;
  config.mic_distance = directed ? scene->mic_distance : 0.0f;
  config.doa = directed ? scene->doa : 0.0f;
  config.plain = scene->plain;
  if (directed != (scene->mic_distance > 0.0f)) {
    tell_once(&g_direction_told,
              "tm_se_bf: no direction is preferred; this needs both the spacing of the microphones "
              "and the direction of the talker, -180 to 180 degrees\n");
  }
  stream->enhancer = host_create(&config);
  stream->late = PLUGIN_LATENCY;
  if (stream->enhancer != nullptr) {
    stream->late -= host_stream_latency(stream->enhancer);
  } else {
    tell_once(
        &g_stand_in_told,
        "tm_se_bf: another stream of this process is being enhanced, or memory is short; this "
        "one is the mean of its channels\n");
  }
}

static void mean_of_channels(const int16_t *in, size_t frames, int16_t *out) {
  for (size_t n = 0; n < frames; ++n) {
    out[n] = static_cast<int16_t>((in[2 * n] + in[2 * n + 1]) / 2);
  }
}

static void delay(plugin_stream *stream, int16_t *samples, size_t frames) {
  for (size_t n = 0; n < frames; ++n) {
    const int16_t oldest = stream->line[stream->line_at];
    stream->line[stream->line_at] = samples[n];
    stream->line_at = (stream->line_at + 1) % stream->late;
    samples[n] = oldest;
  }
}

void plugin_stream_run(plugin_stream *stream, const int16_t *in, size_t frames, int16_t *out) {
  if (stream->enhancer != nullptr) {
    host_stream_s16(stream->enhancer, in, frames, out);
  } else {
    mean_of_channels(in, frames, out);
  }
  if (stream->late > 0) {
    delay(stream, out, frames);
  }
}

void plugin_stream_close(plugin_stream *stream) {
  host_destroy(stream->enhancer);
  stream->enhancer = nullptr;
}
