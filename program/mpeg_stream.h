// Where an MPEG audio stream begins, and whether it states its length.
#ifndef SE_BF_MPEG_STREAM_H
#define SE_BF_MPEG_STREAM_H

#include "sound_bytes.h"

// True when the bytes at `at` are those of the head of a frame (ISO/IEC 11172-3, 1993).
bool mpeg_begins(const sound_bytes *bytes, int64_t at);

// The first byte of a stream behind other bytes, for instance in a recording of a broadcast that
// begins within a frame; -1 if no stream begins near the start.
int64_t mpeg_find(const sound_bytes *bytes);

// True when the first frame states the number of frames; otherwise libsndfile guesses it from a
// few frames.
bool mpeg_tells_length(const sound_bytes *bytes);

#endif  // SE_BF_MPEG_STREAM_H
