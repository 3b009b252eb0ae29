// One enhanced stream of an audio plug-in: two microphones in, one channel out, at a latency that
// is the same in every mode and in the stand-in.
//
// The library runs one instance per process. A plug-in's second stream at the same time is a
// stand-in: it returns the mean of the two channels with the same delay. The first such stream is
// reported on standard error, once per process.
#ifndef SE_BF_PLUGIN_STREAM_H
#define SE_BF_PLUGIN_STREAM_H

#include <stddef.h>
#include <stdint.h>

#include "se_bf_host.h"

constexpr int32_t PLUGIN_HOP = 320;       // samples; one transform a block, and no less delay
constexpr int32_t PLUGIN_LATENCY = 512;   // samples by which the output is delayed
constexpr int32_t PLUGIN_CHANNELS = 2;    // interleaved
constexpr float PLUGIN_MAX_SPACING = 10;  // metres
constexpr float PLUGIN_MAX_ANGLE = 180;   // degrees
constexpr float PLUGIN_NO_ANGLE = -200;   // stands for an unknown direction

struct plugin_scene {
  int32_t mode;        // SE_BF_MODE_*
  float mic_distance;  // metres; 0: uniform steering
  float doa;           // degrees; 0: in line on the side of microphone 0, 90: broadside; below
                       // -PLUGIN_MAX_ANGLE: unknown; the spacing is then ignored
  bool plain;          // true: the bare library, without the shielding of the host layer
};

struct plugin_stream {
  plugin_scene scene;
  host *enhancer;   // null: stand-in
  int32_t late;     // samples by which the output is delayed here, in `line`
  int32_t line_at;  // oldest sample of `line`
  int16_t line[PLUGIN_LATENCY];
};

// Starts the stream: processing starts again, and the enhancer is taken if it is free. Allocates.
// A spacing without a direction is reported on standard error, once per process.
void plugin_stream_open(plugin_stream *stream, const plugin_scene *scene);

// Takes `frames` interleaved samples of both channels and writes `frames` samples, delayed by
// PLUGIN_LATENCY.
void plugin_stream_run(plugin_stream *stream, const int16_t *in, size_t frames, int16_t *out);

// Ends the stream and frees the enhancer for another one. A stream that is not open is accepted.
void plugin_stream_close(plugin_stream *stream);

#endif  // SE_BF_PLUGIN_STREAM_H
