// Where the audio goes: a sound file that appears under its name only when whole, or raw PCM.
#ifndef SE_BF_AUDIO_SINK_H
#define SE_BF_AUDIO_SINK_H

#include <sndfile.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "output_file.h"
#include "resampler.h"

struct audio_sink {
  output_file place;  // of the file, or of the raw output
  SNDFILE *file;      // null: raw PCM
  int rate_hz;        // of a file
  int64_t frames_written;
  resampler convert;
  std::vector<float> unit;       // samples before conversion, full scale 1
  std::vector<float> converted;  // and after
  std::vector<int16_t> pcm;      // as they are stored
};

// Opens `out` for mono samples: "-", or what leads to standard output, is raw PCM at 16 kHz to
// `raw_fd`, as is a device or a pipe without a known extension; anything else a sound file at
// `rate_hz` in the format of its extension. `in` is the path that is being read, which `out` must
// not name. On failure prints one line, returns false.
bool sink_open(audio_sink *sink, const std::string &out, const std::string &in, int rate_hz,
               int raw_fd);

// True when the sink takes raw PCM at 16 kHz whatever the rate of the input.
bool sink_is_raw(const audio_sink *sink);

// Writes samples at 16 kHz, in a file never more than `frame_limit` frames in all. On failure
// prints one line and returns false.
bool sink_write(audio_sink *sink, const int16_t *pcm, size_t samples, int64_t frame_limit);

// Completes the output: a file gets exactly `frames` frames, is stored safely and then takes its
// name. On failure prints one line and returns false; sink_abort must follow.
bool sink_finish(audio_sink *sink, int64_t frames);

// Gives up: removes what was written of a regular file.
void sink_abort(audio_sink *sink);

#endif  // SE_BF_AUDIO_SINK_H
