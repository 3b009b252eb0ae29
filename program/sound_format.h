// Sound files: the formats that can be written, by name or extension, and reasons of failures.
#ifndef SE_BF_SOUND_FORMAT_H
#define SE_BF_SOUND_FORMAT_H

#include <cstdint>
#include <string>
#include <vector>

constexpr int64_t kUnknownLength = -1;  // frames

// Frames of one channel with 16 bits that sizes of 32 bits tell, with room for the header.
constexpr int64_t kMostFrames32 = (INT64_C(0xffffffff) - 1024) / 2;

// How a format is written.
enum sound_layout {
  LAYOUT_WORDS,   // our header, and samples as they are
  LAYOUT_STREAM,  // libsndfile, which goes back at most to note the length at the start
  LAYOUT_FILE,    // libsndfile, which goes back to the start for a file that can be read
};

struct sound_format {
  const char *name;       // as --format takes it
  const char *extension;  // with its dot; empty: no extension tells it
  int format;             // for libsndfile; 0: raw PCM
  sound_layout layout;
  int64_t most_frames;  // of one channel with 16 bits that a file holds
};

// The format that the extension of a path names, upper or lower case; null when it is not known.
const sound_format *sound_format_of(const std::string &path);

// The format of a name as --format takes it; null when it is not known.
const sound_format *sound_format_named(const std::string &name);

// True when the extension is that of a sound file that can be read.
bool sound_format_is_known(const std::string &path);

// The extension of a path with its dot; empty when there is none.
std::string sound_extension(const std::string &path);

// All names that --format takes.
std::vector<std::string> sound_format_names();

// All extensions that can be written, each behind a blank.
std::string sound_format_list();

// The extensions of the formats that hold `frames` frames, each behind a blank.
std::string sound_format_list_holding(int64_t frames);

// The rate in Hz that the format has for sound at `rate_hz`: the same, or in Opus the next higher
// of its few.
int sound_format_rate(const sound_format *format, int rate_hz);

// What libsndfile gives as the reason of a failure, without its "Error : " and final full stop.
std::string sound_reason(const char *text);

#endif  // SE_BF_SOUND_FORMAT_H
