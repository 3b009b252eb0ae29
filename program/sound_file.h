// Opens a sound on disk, and takes over what libsndfile found.
#ifndef SE_BF_SOUND_FILE_H
#define SE_BF_SOUND_FILE_H

#include <string>

#include "sound_input.h"

// Prints the line and returns false. A signal that ends the work is no failure of the input:
// nothing is printed then.
bool sound_file_refuse(const std::string &text);

// Prints why libsndfile cannot read the input and what to do, and returns false.
bool sound_file_unreadable(const sound_input *in);

// Takes over rate, channels and lengths of the file that libsndfile has opened.
void sound_file_adopt(sound_input *in, const SF_INFO *info);

// Opens the file on disk that `in->bytes` describes: as it is, else as if it were longer, else by
// `path`, if that is not empty. Returns false after one line.
bool sound_file_open(sound_input *in, const std::string &path);

// Closes libsndfile's file, if there is one.
void sound_file_close(sound_input *in);

#endif  // SE_BF_SOUND_FILE_H
