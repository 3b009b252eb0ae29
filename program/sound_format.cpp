// Sound files: the formats that can be written, by name or extension, and reasons of failures.
#include "sound_format.h"

#include <sndfile.h>
#include <string.h>
#include <strings.h>

static constexpr int64_t NO_LIMIT = INT64_MAX;
static constexpr int64_t MOST_FRAMES_FLAC = (INT64_C(1) << 36) - 1;
static constexpr int OPUS_RATES_HZ[] = {8000, 12000, 16000, 24000, 48000};
static constexpr int PCM = SF_FORMAT_PCM_16;

static const sound_format FORMATS[] = {
    {"wav", ".wav", SF_FORMAT_WAV | PCM, LAYOUT_WORDS, NO_LIMIT},
    {"flac", ".flac", SF_FORMAT_FLAC | PCM, LAYOUT_STREAM, MOST_FRAMES_FLAC},
    {"ogg", ".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, LAYOUT_STREAM, NO_LIMIT},
    {"ogg", ".oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS, LAYOUT_STREAM, NO_LIMIT},
    {"opus", ".opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, LAYOUT_STREAM, NO_LIMIT},
    {"aiff", ".aiff", SF_FORMAT_AIFF | PCM, LAYOUT_FILE, MOST_FRAMES_32},
    {"aiff", ".aif", SF_FORMAT_AIFF | PCM, LAYOUT_FILE, MOST_FRAMES_32},
    {"au", ".au", SF_FORMAT_AU | PCM, LAYOUT_WORDS, MOST_FRAMES_32},
    {"caf", ".caf", SF_FORMAT_CAF | PCM, LAYOUT_FILE, NO_LIMIT},
    {"w64", ".w64", SF_FORMAT_W64 | PCM, LAYOUT_FILE, NO_LIMIT},
    {"rf64", ".rf64", SF_FORMAT_RF64 | PCM, LAYOUT_FILE, NO_LIMIT},
    {"raw", "", 0, LAYOUT_WORDS, NO_LIMIT},
};

// Formats that can only be read. Extensions that other files also have, such as .mat, are left out.
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
    if (!extension.empty() && strcasecmp(known.extension, extension.c_str()) == 0) {
      return &known;
    }
  }
  return nullptr;
}

const sound_format *sound_format_named(const std::string &name) {
  for (const sound_format &known : FORMATS) {
    if (name == known.name) {
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
  return sound_format_list_holding(0);
}

std::string sound_format_list_holding(int64_t frames) {
  std::string list;
  for (const sound_format &known : FORMATS) {
    const bool offered = known.extension[0] != '\0' && known.most_frames >= frames;
    list += offered ? std::string(" ") + known.extension : "";
  }
  return list;
}

int sound_format_rate(const sound_format *format, int rate_hz) {
  int chosen = rate_hz;
  if ((format->format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
    for (const int rate : OPUS_RATES_HZ) {
      chosen = rate;
      if (rate >= rate_hz) {
        break;
      }
    }
  }
  return chosen;
}

std::string sound_reason(const char *text) {
  std::string reason = text;
  if (reason.rfind(REASON_PREFIX, 0) == 0) {
    reason.erase(0, strlen(REASON_PREFIX));
  }
  reason.erase(reason.find_last_not_of(". \n") + 1);
  return reason;
}
