// How much sound the header of a WAV file promises, where the file holds less.
#ifndef SE_BF_RIFF_HEADER_H
#define SE_BF_RIFF_HEADER_H

#include <stdint.h>

#include <string>

// Frames at `rate_hz` that a RIFF WAVE file promises and that its end cuts off; -1 when it holds
// all of its data, promises nothing (as programs write that stream into a pipe), or is no such
// file.
int64_t riff_promised_frames(const std::string &path, int rate_hz);

#endif  // SE_BF_RIFF_HEADER_H
