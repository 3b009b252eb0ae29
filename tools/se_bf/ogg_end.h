// Where the whole pages of an Ogg file end, and whether the last one is marked as such.
#ifndef SE_BF_OGG_END_H
#define SE_BF_OGG_END_H

#include "sound_bytes.h"

// True for an Ogg file on disk; then `end` is where its last whole page ends, in bytes, and
// `marked` is true when that page ends its stream, as the last page of a file that is not cut off
// does.
bool ogg_find_end(const sound_bytes *bytes, int64_t *end, bool *marked);

#endif  // SE_BF_OGG_END_H
