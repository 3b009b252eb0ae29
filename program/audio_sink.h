// Where the audio goes: a sound file that gets its name only when it is complete, or a stream.
#ifndef SE_BF_AUDIO_SINK_H
#define SE_BF_AUDIO_SINK_H

#include <cstdint>
#include <string>
#include <vector>

#include "output_file.h"
#include "rate_change.h"
#include "sound_writer.h"

// What is wanted of a sink.
struct sink_request {
  std::string out;     // path, or "-" for standard output
  std::string format;  // name; empty: the extension of `out` tells, else it is raw PCM
  std::string in;      // path that is being read, which `out` must not lead to
  int rate_hz;         // of the input
  int raw_rate_hz;     // of raw PCM
  int64_t frames;      // no more than these of the input will come; kUnknownLength
  int standard_fd;     // of standard output
};

struct audio_sink {
  output_file place;
  sound_writer writer;
  int rate_in_hz;      // of the input; the output has the same one, or the next that its format has
  int64_t full_scale;  // samples that were the largest or smallest in 16 bits
  rate_change change;  // where the two rates differ
  std::vector<float> changed;  // samples at the output's rate
  std::vector<int16_t> pcm;    // as they are stored
};

// Opens the output for mono samples. What names no format, "-", a device or a pipe, is raw PCM. On
// failure prints one line, returns false.
bool sink_open(audio_sink *sink, const sink_request *request);

// Writes samples at the input's rate, full scale 1, never more in all than last as long as
// `frames_in` frames of the input. On failure prints one line and returns false.
bool sink_write(audio_sink *sink, const float *samples, size_t count, int64_t frames_in);

// True when the format holds no more sound; then sink_full_text says so to the user.
bool sink_is_full(const audio_sink *sink);
std::string sink_full_text(const audio_sink *sink);

// Completes the output: it lasts as long as `frames_in` frames of the input; a file is stored
// safely and then takes its name. On failure prints one line and returns false; sink_abort must
// follow.
bool sink_finish(audio_sink *sink, int64_t frames_in);

// Gives up: removes what was written of a regular file.
void sink_abort(audio_sink *sink);

#endif  // SE_BF_AUDIO_SINK_H
