// Where the last complete page of an Ogg file ends, and how.
#ifndef SE_BF_OGG_END_H
#define SE_BF_OGG_END_H

#include "sound_bytes.h"

struct ogg_end {
  int64_t at;    // where the last whole page ends, in bytes
  bool marked;   // that page ends its stream, as the last page of a file that is not cut off does
  bool chained;  // other streams follow the first ones
};

// Finds the end of an Ogg file on disk. For other files it is the last byte, marked as an end.
ogg_end ogg_find_end(const sound_bytes *bytes);

#endif  // SE_BF_OGG_END_H
