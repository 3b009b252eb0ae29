// Headers in front of plain samples, as written by programs that do not know the length yet.
#ifndef SE_BF_SOUND_HEADER_H
#define SE_BF_SOUND_HEADER_H

#include "sound_bytes.h"

constexpr size_t kSoundMarkBytes = 12;   // that tell a sound file
constexpr size_t kChunkHeaderBytes = 8;  // tag and size, in WAV and its like
constexpr size_t kAuHeaderBytes = 24;    // at least

// True for a size of 32 bits that programs write which cannot know the true one.
bool sound_size_is_unknown(int64_t size);

// The first and the last of such sizes around the `n`-th of the usual ones; false behind the last.
bool sound_unknown_sizes(size_t n, int64_t *first, int64_t *last);

// True when the first bytes are those of a sound file, and surely no raw PCM.
bool sound_header_begins(const sound_bytes *bytes);

// Walks through the header of a WAV, RF64 or AU file and takes it out of a pipe, up to the first
// byte of the sound. A size of the sound that its program has left at 0 is noted. Returns false for
// other files, of which it takes some bytes, and with `error` set when reading fails.
bool sound_header_take(sound_bytes *bytes);

#endif  // SE_BF_SOUND_HEADER_H
