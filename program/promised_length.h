// How much sound the header of a file states, although the file may hold less.
//
// libsndfile takes what is there as the length of most files.
#ifndef SE_BF_PROMISED_LENGTH_H
#define SE_BF_PROMISED_LENGTH_H

#include "sound_bytes.h"
#include "sound_format.h"

// Frames that the header of an opened sound promises; kUnknownLength when it tells none, or only
// a size as programs write it that cannot know the true one. `info` is as libsndfile filled it.
int64_t promised_frames(const sound_bytes *bytes, const SF_INFO *info);

// True when the file on disk goes on behind the size that its header tells with more sound, and not
// with other chunks: of a size that stands for unknown. Frames must have a fixed size. `info` is as
// libsndfile filled it.
bool promised_goes_on(const sound_bytes *bytes, const SF_INFO *info);

#endif  // SE_BF_PROMISED_LENGTH_H
