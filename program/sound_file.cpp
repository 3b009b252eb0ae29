// Opens a sound on disk, and takes over what libsndfile found.
#include "sound_file.h"

#include "mpeg_stream.h"
#include "ogg_end.h"
#include "process.h"
#include "promised_length.h"
#include "report.h"
#include "sound_format.h"
#include "sound_header.h"

namespace {

bool is_mpeg(const SF_INFO *info) {
  return (info->format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
}

// Opens as if the file were longer: some formats are refused when they are cut off, and where
// libsndfile guesses the length of a stream, the guess must not end it.
void open_longer(sound_input *in, SF_INFO *info) {
  sound_bytes *bytes = &in->bytes;
  *info = {};
  in->file = sound_bytes_open(bytes, kSoundBytesFar, info);
  const int64_t skipped = in->file != nullptr || sound_header_begins(bytes) ? 0 : mpeg_find(bytes);
  if (skipped > 0) {
    *info = {};
    bytes->start += skipped;
    bytes->held -= skipped;
    in->file = sound_bytes_open(bytes, kSoundBytesFar, info);
  }
  in->guessed = is_mpeg(info) && !mpeg_tells_length(bytes);
  in->cut = in->cut || (in->file != nullptr && !is_mpeg(info));
}

}  // namespace

bool sound_file_refuse(const std::string &text) {
  return !process_stopped() && report_failure(text);
}

bool sound_file_unreadable(const sound_input *in) {
  if (!in->bytes.live && in->bytes.held == 0) {
    return sound_file_refuse(in->name + " is empty");
  }
  const bool broken = sf_error(nullptr) == SF_ERR_MALFORMED_FILE;
  return sound_file_refuse(
      "cannot read " + in->name + " as sound (" + sound_reason(sf_strerror(nullptr)) + "); " +
      (broken ? "it is cut off in its header, or damaged"
              : "convert it to WAV or FLAC; raw PCM goes through standard input: se_bf "
                "enhance --raw-channels 1 - OUT"));
}

void sound_file_adopt(sound_input *in, const SF_INFO *info) {
  const sound_bytes *bytes = &in->bytes;
  in->lap = info->frames;
  in->rate_hz = info->samplerate;
  in->channels = static_cast<size_t>(info->channels);
  in->announced = in->guessed || in->raw ? kUnknownLength : promised_frames(bytes, info);
  if (in->announced != kUnknownLength || in->guessed || bytes->live) {
    in->most = bytes->live ? in->announced : info->frames;
  } else if (bytes->unit > 0 && promised_goes_on(bytes, info)) {
    in->most = (bytes->held - bytes->sound_at) / static_cast<int64_t>(bytes->unit);
  } else {
    in->most = info->frames;
  }
  if (in->guessed || in->most >= kSoundBytesFar) {
    in->most = kUnknownLength;
  }
  in->announced = in->announced > in->most ? in->announced : in->most;
}

bool sound_file_open(sound_input *in, const std::string &path) {
  sound_bytes *bytes = &in->bytes;
  SF_INFO info = {};
  sound_header_take(bytes);
  const ogg_end end = ogg_find_end(bytes);
  in->cut = !end.marked;
  in->chained = end.chained;
  in->file = sound_bytes_open(bytes, end.at, &info);
  if (in->file != nullptr && is_mpeg(&info) && !mpeg_tells_length(bytes)) {
    sound_file_close(in);
  }
  if (in->file == nullptr) {
    open_longer(in, &info);
  }
  if (in->file == nullptr && !path.empty()) {
    info = {};
    in->file = sf_open(path.c_str(), SFM_READ, &info);
    bytes->unit = 0;
  }
  if (in->file == nullptr) {
    return in->cut ? sound_file_refuse(in->name + " is cut off, and what is left cannot be read")
                   : sound_file_unreadable(in);
  }
  sound_file_adopt(in, &info);
  return true;
}

void sound_file_close(sound_input *in) {
  if (in->file != nullptr) {
    sf_close(in->file);
    in->file = nullptr;
  }
}
