// Sound files: the formats that can be written, by file name extension, and reasons of failures.
#include "sound_format.h"

#include <sndfile.h>
#include <string.h>
#include <strings.h>

static const sound_format FORMATS[] = {
    {".wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},   {".flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
    {".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},   {".oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {".opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},    {".aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    {".aif", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},  {".au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
    {".caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},   {".w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
    {".rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
};

// Formats that are read only. Extensions that other files have as well, as .mat, are not among
// them.
static const char *const READ_ONLY[] = {".mp3", ".mp2",  ".m1a", ".sph", ".nist", ".voc",
                                        ".snd", ".aifc", ".avr", ".paf", ".sds",  ".svx"};

static const char *const REASON_PREFIX = "Error : ";

std::string sound_extension(const std::string &path) {
  const size_t slash = path.rfind('/');
  const size_t dot = path.rfind('.');
  const bool none = dot == std::string::npos || (slash != std::string::npos && dot < slash);
  return none ? "" : path.substr(dot);
}

const sound_format *sound_format_of(const std::string &path) {
  const std::string extension = sound_extension(path);
  for (const sound_format &known : FORMATS) {
    if (strcasecmp(known.extension, extension.c_str()) == 0) {
      return &known;
    }
  }
  return nullptr;
}

bool sound_format_is_known(const std::string &path) {
  const std::string extension = sound_extension(path);
  for (const char *known : READ_ONLY) {
    if (strcasecmp(known, extension.c_str()) == 0) {
      return true;
    }
  }
  return sound_format_of(path) != nullptr;
}

std::string sound_format_list() {
  std::string list;
  for (const sound_format &known : FORMATS) {
    list += std::string(" ") + known.extension;
  }
  return list;
}

std::string sound_reason(const char *text) {
  std::string reason = text;
  if (reason.rfind(REASON_PREFIX, 0) == 0) {
    reason.erase(0, strlen(REASON_PREFIX));
  }
  reason.erase(reason.find_last_not_of(". \n") + 1);
  return reason;
}
