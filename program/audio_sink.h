// Where the audio goes: a sound file that gets its name only when it is complete, or a stream.
#ifndef SE_BF_AUDIO_SINK_H
#define SE_BF_AUDIO_SINK_H

#include <cstdint>
#include <string>
#include <vector>

#include "output_file.h"
#include "resampler.h"
#include "sound_writer.h"

// What is wanted of a sink.
struct sink_request {
  std::string out;     // path, or "-" for standard output
  std::string format;  // name; empty: the extension of `out` tells, else it is raw PCM
  std::string in;      // path that is being read, which `out` must not lead to
  int rate_hz;         // of the input
  int64_t frames;      // no more than these of the input will come; kUnknownLength
  int standard_fd;     // of standard output
};

struct audio_sink {
  output_file place;
  sound_writer writer;
  int rate_in_hz;  // of the input; the output has the same one, or the next that its format has
  resampler convert;
  std::vector<float> unit;       // samples before conversion, full scale 1
  std::vector<float> converted;  // and after
  std::vector<int16_t> pcm;      // as they are stored
};

// Opens the output for mono samples. Raw PCM has 16 kHz, and so has what names no other format:
// "-", a device or a pipe. On failure prints one line, returns false.
bool sink_open(audio_sink *sink, const sink_request *request);

// Writes samples at 16 kHz, in a sound file never more in all than for `frames_in` frames at the
// input's rate. On failure prints one line and returns false.
bool sink_write(audio_sink *sink, const int16_t *pcm, size_t samples, int64_t frames_in);

// True when the format holds no more sound; then sink_full_text says so to the user.
bool sink_is_full(const audio_sink *sink);
std::string sink_full_text(const audio_sink *sink);

// Completes the output: a sound file lasts as long as `frames_in` frames of the input, is stored
// safely and then takes its name. On failure prints one line and returns false; sink_abort must
// follow.
bool sink_finish(audio_sink *sink, int64_t frames_in);

// Gives up: removes what was written of a regular file.
void sink_abort(audio_sink *sink);

#endif  // SE_BF_AUDIO_SINK_H
