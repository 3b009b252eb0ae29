// Where the audio comes from: the channels in use of a sound, as float frames.
#ifndef SE_BF_AUDIO_SOURCE_H
#define SE_BF_AUDIO_SOURCE_H

#include <cstdint>
#include <vector>

#include "options.h"
#include "scene.h"
#include "sound_input.h"

struct audio_source {
  sound_input input;
  std::vector<size_t> picks;  // stored channels that are used: one or two
  int64_t not_finite;         // samples that were no number and count as 0
  std::vector<float> stored;  // frames as stored, all channels
};

// Opens the input of `options`; on failure prints one line and returns false.
bool source_open(audio_source *src, const enhance_options *options);

// Reads up to `room` frames of the picked channels, full scale 1, interleaved; a pipe's sound is
// returned as soon as there is some. Returns the frame count, 0 at the end, when reading stops
// before it, or when a signal asked for it.
size_t source_read(audio_source *src, float *out, size_t room);

void source_close(audio_source *src);

#endif  // SE_BF_AUDIO_SOURCE_H
