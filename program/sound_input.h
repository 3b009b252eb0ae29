// A sound that is read to its end, or as far as possible.
#ifndef SE_BF_SOUND_INPUT_H
#define SE_BF_SOUND_INPUT_H

#include <sndfile.h>

#include <string>

#include "sound_bytes.h"
#include "sound_format.h"

struct sound_input {
  std::string name;  // for messages
  sound_bytes bytes;
  SNDFILE *file = nullptr;
  // as it comes
  int rate_hz = 0;
  size_t channels = 0;
  int64_t announced = kUnknownLength;  // frames
  int64_t most = kUnknownLength;       // no more frames than these can come
  int64_t frames_read = 0;
  int64_t lap = 0;       // frames that libsndfile gives before it must start anew
  int64_t lap_read = 0;  // of them
  bool raw = false;
  bool guessed = false;  // libsndfile does not know the length
  bool ended = false;    // nothing more to read
  bool cut = false;      // the file lacks its end, whatever it announces
  bool chained = false;  // other recordings follow, which libsndfile does not read
  std::string failure;   // why reading stopped before the end; empty: it did not
};

// Most frames that should be read at a time, so that a pipe's sound is passed on at once.
size_t input_chunk(const sound_input *in);

// Reads up to `count` frames of all channels, full scale 1; a pipe's as soon as there are some.
// Returns the frame count, 0 at the end and when reading stops before it, or a signal asked for the
// end.
size_t input_read(sound_input *in, float *out, size_t count);

// True when the sound ended before its time: the input holds less than it announces.
bool input_is_cut(const sound_input *in);

// What the user should know of how the sound ended, as one line; empty: all is well.
std::string input_verdict(const sound_input *in);

#endif  // SE_BF_SOUND_INPUT_H
