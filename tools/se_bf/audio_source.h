// Where the audio comes from: a sound file or raw PCM on standard input, as 16 kHz float frames.
#ifndef SE_BF_AUDIO_SOURCE_H
#define SE_BF_AUDIO_SOURCE_H

#include <sndfile.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "options.h"
#include "resampler.h"

constexpr int ENHANCE_RATE_HZ = 16000;

struct audio_source {
  std::string name;           // for messages
  SNDFILE *file;              // null: raw PCM on standard input
  int rate_hz;                // of the file
  size_t stored_channels;     // in the file or raw stream
  std::vector<size_t> picks;  // stored channels that are used: one or two
  int64_t frames_total;       // announced by the file, -1: unknown
  int64_t frames_read;        // at the rate of the file
  int64_t not_finite;         // samples that were no number and count as 0
  bool ended;                 // nothing more to read
  resampler convert;
  std::vector<float> stored;   // frames as stored, all channels
  std::vector<float> pending;  // picked frames that wait for the resampler
  size_t pending_at;           // first frame waiting
  size_t pending_frames;       // frames waiting
  std::vector<uint8_t> bytes;  // raw bytes read
  size_t bytes_held;           // bytes of an incomplete frame, at the start of `bytes`
};

// Opens the input of `options`; on failure prints one line and returns false.
bool source_open(audio_source *src, const enhance_options *options);

// Reads up to `room` frames of the picked channels at 16 kHz, full scale 1, interleaved; raw input
// is returned as soon as there is some. Returns the frame count, 0 at the end (or when a signal
// asked for it), -1 after printing one line on a read error.
long source_read(audio_source *src, float *out, size_t room);

void source_close(audio_source *src);

#endif  // SE_BF_AUDIO_SOURCE_H
