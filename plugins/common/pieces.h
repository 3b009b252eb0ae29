// How plug-ins bring the samples of two microphones, which come in rows of their own, into the
// order of a stream: a piece at a time, on the stack.
#ifndef TM_SE_BF_PLUGINS_PIECES_H
#define TM_SE_BF_PLUGINS_PIECES_H

#include <stddef.h>

constexpr size_t kChannels = 2;
constexpr size_t kPiece = 256;  // samples per channel

#endif  // TM_SE_BF_PLUGINS_PIECES_H
