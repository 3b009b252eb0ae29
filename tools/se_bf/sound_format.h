// Sound files: the formats that can be written, by file name extension, and reasons of failures.
#ifndef SE_BF_SOUND_FORMAT_H
#define SE_BF_SOUND_FORMAT_H

#include <string>

struct sound_format {
  const char *extension;  // with its dot
  int format;             // for libsndfile
};

// The format that the extension of a path names, upper or lower case; null when it is not known.
const sound_format *sound_format_of(const std::string &path);

// True when the extension is that of a sound file that can be read.
bool sound_format_is_known(const std::string &path);

// The extension of a path with its dot; empty when there is none.
std::string sound_extension(const std::string &path);

// All extensions that can be written, each behind a blank.
std::string sound_format_list();

// What libsndfile gives as the reason of a failure, without its "Error : " and final full stop.
std::string sound_reason(const char *text);

#endif  // SE_BF_SOUND_FORMAT_H
