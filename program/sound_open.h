// Opens a sound: a file, a pipe that carries one, or raw PCM on standard input.
#ifndef SE_BF_SOUND_OPEN_H
#define SE_BF_SOUND_OPEN_H

#include "options.h"
#include "sound_input.h"

// Opens the input of `options`. On failure prints one line and returns false; without the line when
// a signal asked for the end.
bool sound_open(sound_input *in, const enhance_options *options);

void sound_close(sound_input *in);

#endif  // SE_BF_SOUND_OPEN_H
