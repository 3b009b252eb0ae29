// Writes 16-bit samples of one channel in any format, to a file or to a pipe.
#ifndef SE_BF_SOUND_WRITER_H
#define SE_BF_SOUND_WRITER_H

#include <sndfile.h>

#include <string>
#include <vector>

#include "plain_header.h"
#include "sound_format.h"

struct sound_writer {
  std::string name;  // for messages
  const sound_format *format = nullptr;
  int fd = -1;            // where it goes
  bool seekable = false;  // bytes written before can be written anew
  int rate_hz = 0;
  int64_t expected = kUnknownLength;  // frames that will be written, at most
  int64_t frames = 0;                 // written so far
  int64_t most = 0;                   // frames that fit
  bool full = false;                  // more came than fits, and was dropped
  // The rest is the writer's own.
  bool wide = false;           // room for a length of 64 bits
  std::vector<uint8_t> first;  // bytes that wait to go to a pipe together
  bool begun = false;          // they have gone
  SNDFILE *file = nullptr;
  int spool = -1;        // descriptor of a file for what cannot be written to a pipe as it comes
  int64_t start = 0;     // of the sound file, in a file on disk
  int64_t position = 0;  // of libsndfile's next byte
  int64_t end = 0;       // bytes so far
  int error = 0;         // errno of the first write that failed
};

// Starts to write as the first six fields ask for and the rate; `expected` must fit the format. On
// failure prints one line and returns false; without it when a signal asked for the end.
bool writer_open(sound_writer *writer);

// Writes as many samples as fit. Returns false after one line, as above.
bool writer_write(sound_writer *writer, const int16_t *pcm, size_t samples);

// Completes what was written; the descriptor stays open. Returns false after one line, as above.
bool writer_finish(sound_writer *writer);

// Gives up what is not complete.
void writer_abort(sound_writer *writer);

#endif  // SE_BF_SOUND_WRITER_H
