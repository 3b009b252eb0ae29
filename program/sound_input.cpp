// A sound that is read to its end, or as far as possible.
#include "sound_input.h"

#include <cstring>

#include "process.h"
#include "report.h"
#include "sound_format.h"
#include "sound_header.h"

namespace {

constexpr size_t kChunkSamples = 8192;  // all channels, read at a time
constexpr size_t kLiveSamples = 1024;   // of a pipe: libsndfile reads them at once
constexpr size_t kMpegSamples = 576;    // what is read with an error is lost: one frame

// Why the sound has ended: its file does, or reading it fails before.
void note_end(sound_input *in, int error) {
  const sound_bytes *bytes = &in->bytes;
  const bool at_end = !bytes->live && bytes->position >= bytes->held;
  in->ended = true;
  if (process_stopped()) {
    return;
  }
  if (bytes->error != 0) {
    in->failure = std::strerror(bytes->error);
  } else if (error != SF_ERR_NO_ERROR && !at_end) {
    in->failure = sound_reason(sf_error_number(error)) + "; the file is damaged";
  }
  in->cut = in->cut || (error != SF_ERR_NO_ERROR && at_end);
}

// Never asks for frames beyond the last one: libsndfile would read bytes and drop them.
size_t read_lap(sound_input *in, float *out, size_t count) {
  const int64_t left = in->lap - in->lap_read;
  const int64_t asked = static_cast<int64_t>(count);
  const sf_count_t got = left > 0 ? sf_readf_float(in->file, out, asked < left ? asked : left) : 0;
  in->lap_read += got > 0 ? got : 0;
  in->frames_read += got > 0 ? got : 0;
  return got > 0 ? static_cast<size_t>(got) : 0;
}

// Raw PCM must not begin as a sound file does.
bool check_raw(sound_input *in) {
  const bool good = sound_bytes_gather(&in->bytes, kSoundMarkBytes);
  if (good && sound_header_begins(&in->bytes)) {
    in->failure = "it carries a sound file with a header, not raw PCM; leave out --raw-channels";
  }
  return good && in->failure.empty();
}

std::string seconds(const sound_input *in, int64_t frames) {
  return report_number(static_cast<double>(frames) / in->rate_hz, 2);
}

}  // namespace

size_t input_chunk(const sound_input *in) {
  const size_t samples = in->bytes.live ? kLiveSamples : in->guessed ? kMpegSamples : kChunkSamples;
  return in->channels > samples ? 1 : samples / in->channels;
}

size_t input_read(sound_input *in, float *out, size_t count) {
  if (in->ended) {
    return 0;
  }
  if (in->raw && in->frames_read == 0 && !check_raw(in)) {
    note_end(in, SF_ERR_NO_ERROR);
    return 0;
  }
  size_t got = read_lap(in, out, count);
  int error = sf_error(in->file);
  const bool more = in->most == kUnknownLength || in->frames_read < in->most;
  if (got == 0 && error == SF_ERR_NO_ERROR && in->bytes.error == 0 && more &&
      in->lap_read == in->lap && sound_bytes_go_on(&in->bytes, in->file)) {
    in->lap_read = 0;
    got = read_lap(in, out, count);
    error = sf_error(in->file);
  }
  if (got == 0 || error != SF_ERR_NO_ERROR) {
    note_end(in, error);
  }
  return got;
}

bool input_is_cut(const sound_input *in) {
  return in->cut || in->chained || in->frames_read < in->announced;
}

std::string input_verdict(const sound_input *in) {
  const int64_t read = in->frames_read;
  const int64_t unit = static_cast<int64_t>(in->bytes.unit);
  const int64_t rest = in->raw ? (in->bytes.position - in->bytes.sound_at) % unit : 0;
  if (!in->failure.empty()) {
    return "reading " + in->name + " failed" +
           (read == 0 ? ": " + in->failure
                      : " after " + seconds(in, read) + " s: " + in->failure +
                            "; only the sound before is enhanced");
  }
  if (read < in->announced) {
    return "warning: " + in->name + " is cut off or damaged: it holds " + std::to_string(read) +
           " of the " + std::to_string(in->announced) + " frames that it announces (" +
           seconds(in, read) + " of " + seconds(in, in->announced) + " s)";
  }
  if (in->cut) {
    return "warning: " + in->name + " is cut off or damaged: its end is missing after " +
           std::to_string(read) + " frames (" + seconds(in, read) + " s)";
  }
  if (in->chained) {
    return "warning: " + in->name +
           " holds several recordings, one behind the other; only the first is enhanced (" +
           seconds(in, read) + " s)";
  }
  if (rest > 0) {
    return "warning: " + in->name + " ended within a frame of " + std::to_string(unit) +
           " bytes; the last " + std::to_string(rest) +
           " byte(s) are left out (is --raw-channels right?)";
  }
  return read > 0 ? "" : "warning: " + in->name + " holds no sound that can be read";
}
