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

// All extensions, each behind a blank.
std::string sound_format_list();

// What libsndfile gives as the reason of a failure, without its "Error : " and final full stop.
std::string sound_reason(const char *text);

#endif  // SE_BF_SOUND_FORMAT_H
