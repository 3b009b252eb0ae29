// Sound files: the formats that can be written, by name or extension, and reasons of failures.
#include "sound_format.h"

#include <sndfile.h>
#include <strings.h>

#include <cstring>

namespace {

constexpr int64_t kNoLimit = INT64_MAX;
constexpr int64_t kMostFramesFlac = (INT64_C(1) << 36) - 1;
constexpr int kOpusRatesHz[] = {8000, 12000, 16000, 24000, 48000};
constexpr int kPcm = SF_FORMAT_PCM_16;

constexpr sound_format kFormats[] = {
    {"wav", ".wav", SF_FORMAT_WAV | kPcm, LAYOUT_WORDS, kNoLimit},
    {"flac", ".flac", SF_FORMAT_FLAC | kPcm, LAYOUT_STREAM, kMostFramesFlac},
    {"ogg", ".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, LAYOUT_STREAM, kNoLimit},
    {"ogg", ".oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS, LAYOUT_STREAM, kNoLimit},
    {"opus", ".opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, LAYOUT_STREAM, kNoLimit},
    {"aiff", ".aiff", SF_FORMAT_AIFF | kPcm, LAYOUT_FILE, kMostFrames32},
    {"aiff", ".aif", SF_FORMAT_AIFF | kPcm, LAYOUT_FILE, kMostFrames32},
    {"au", ".au", SF_FORMAT_AU | kPcm, LAYOUT_WORDS, kMostFrames32},
    {"caf", ".caf", SF_FORMAT_CAF | kPcm, LAYOUT_FILE, kNoLimit},
    {"w64", ".w64", SF_FORMAT_W64 | kPcm, LAYOUT_FILE, kNoLimit},
    {"rf64", ".rf64", SF_FORMAT_RF64 | kPcm, LAYOUT_FILE, kNoLimit},
    {"raw", "", 0, LAYOUT_WORDS, kNoLimit},
};

// Formats that can only be read. Extensions that other files also have, such as .mat, are left out.
constexpr const char *kReadOnly[] = {".mp3", ".mp2",  ".m1a", ".sph", ".nist", ".voc",
                                     ".snd", ".aifc", ".avr", ".paf", ".sds",  ".svx"};

constexpr char kReasonPrefix[] = "Error : ";

}  // namespace

std::string sound_extension(const std::string &path) {
  const size_t slash = path.rfind('/');
  const size_t dot = path.rfind('.');
  const bool none = dot == std::string::npos || (slash != std::string::npos && dot < slash);
  return none ? "" : path.substr(dot);
}

const sound_format *sound_format_of(const std::string &path) {
  const std::string extension = sound_extension(path);
  for (const sound_format &known : kFormats) {
    if (!extension.empty() && strcasecmp(known.extension, extension.c_str()) == 0) {
      return &known;
    }
  }
  return nullptr;
}

const sound_format *sound_format_named(const std::string &name) {
  for (const sound_format &known : kFormats) {
    if (name == known.name) {
      return &known;
    }
  }
  return nullptr;
}

bool sound_format_is_known(const std::string &path) {
  const std::string extension = sound_extension(path);
  for (const char *known : kReadOnly) {
    if (strcasecmp(known, extension.c_str()) == 0) {
      return true;
    }
  }
  return sound_format_of(path) != nullptr;
}

std::vector<std::string> sound_format_names() {
  std::vector<std::string> names;
  for (const sound_format &known : kFormats) {
    if (names.empty() || names.back() != known.name) {
      names.emplace_back(known.name);
    }
  }
  return names;
}

std::string sound_format_list() {
  return sound_format_list_holding(0);
}

std::string sound_format_list_holding(int64_t frames) {
  std::string list;
  for (const sound_format &known : kFormats) {
    const bool offered = known.extension[0] != '\0' && known.most_frames >= frames;
    list += offered ? std::string(" ") + known.extension : "";
  }
  return list;
}

int sound_format_rate(const sound_format *format, int rate_hz) {
  int chosen = rate_hz;
  if ((format->format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
    for (const int rate : kOpusRatesHz) {
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
  if (reason.rfind(kReasonPrefix, 0) == 0) {
    reason.erase(0, std::strlen(kReasonPrefix));
  }
  reason.erase(reason.find_last_not_of(". \n") + 1);
  return reason;
}
