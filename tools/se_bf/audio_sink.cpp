// Where the audio goes: a sound file that appears under its name only when whole, or raw PCM.
#include "audio_sink.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "audio_source.h"
#include "link_path.h"
#include "process.h"
#include "report.h"
#include "se_bf_host.h"
#include "sound_format.h"

static constexpr size_t CHUNK = 4096;  // samples converted at a time
static constexpr float FULL_SCALE = 32768.0f;

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

static bool fail_writing(const audio_sink *sink, const std::string &why) {
  return fail("writing " + sink->place.name + " failed: " + why);
}

// The operating system's reason where there is one: libsndfile passes it on for some formats only.
static std::string reason(int sndfile_error) {
  return errno != 0 ? strerror(errno) : sound_reason(sf_error_number(sndfile_error));
}

// libsndfile's encoders do not pass on every write that fails; the error stays behind in errno,
// which was 0 before.
static bool write_failed() {
  return errno == ENOSPC || errno == EDQUOT || errno == EFBIG || errno == EIO;
}

static bool open_raw(audio_sink *sink) {
  if (isatty(sink->place.fd) == 1) {
    return fail(sink->place.name +
                " is a terminal; pipe it into a player, for example "
                "aplay -t raw -f S16_LE -r 16000, or name a file");
  }
  sink->rate_hz = ENHANCE_RATE_HZ;
  return true;
}

static bool open_file(audio_sink *sink, const sound_format *format) {
  SF_INFO info = {};
  info.samplerate = sink->rate_hz;
  info.channels = 1;
  info.format = format->format;
  if (sf_format_check(&info) == 0) {
    return fail(sink->place.name + " cannot hold sound at " + std::to_string(sink->rate_hz) +
                " Hz; use another format, for example .wav");
  }
  errno = 0;
  sink->file = sf_open_fd(sink->place.fd, SFM_WRITE, &info, SF_FALSE);
  if (sink->file == nullptr && errno != 0) {
    return fail_writing(sink, strerror(errno));
  }
  if (sink->file == nullptr) {
    return fail("cannot write sound at " + std::to_string(sink->rate_hz) + " Hz to " +
                sink->place.name + ": " + sound_reason(sf_strerror(nullptr)) +
                "; use another format, for example .flac, or convert IN to such a rate first");
  }
  return true;
}

static bool open_named(audio_sink *sink, const std::string &out, const std::string &in) {
  const sound_format *format = sound_format_of(out);
  if (!output_file_find(&sink->place, out, in)) {
    return false;
  }
  if (format == nullptr && !sink->place.in_place) {
    return fail("the extension of " + out + " tells no sound format; use one of" +
                sound_format_list() + ", or - for raw PCM");
  }
  if (!output_file_open(&sink->place, format == nullptr ? "" : format->extension)) {
    return false;
  }
  return format == nullptr ? open_raw(sink) : open_file(sink, format);
}

bool sink_open(audio_sink *sink, const std::string &out, const std::string &in, int rate_hz,
               int raw_fd) {
  const bool standard = out == "-" || link_descriptor(out) == STDOUT_FILENO;
  *sink = {};
  sink->rate_hz = rate_hz;
  if (!(standard ? output_file_adopt(&sink->place, raw_fd, in) && open_raw(sink)
                 : open_named(sink, out, in))) {
    return false;
  }
  if (!resampler_open(&sink->convert, ENHANCE_RATE_HZ, sink->rate_hz, 1)) {
    return fail("cannot convert from 16000 Hz to " + std::to_string(sink->rate_hz) + " Hz");
  }
  sink->unit.resize(CHUNK);
  sink->converted.resize(CHUNK);
  sink->pcm.resize(CHUNK);
  return true;
}

bool sink_is_raw(const audio_sink *sink) {
  return sink->file == nullptr;
}

// Raw PCM is little-endian on every processor.
static bool store_raw(audio_sink *sink, const int16_t *pcm, size_t samples) {
  uint8_t bytes[2 * CHUNK];
  for (size_t at = 0; at < samples; at += CHUNK) {
    const size_t piece = samples - at < CHUNK ? samples - at : CHUNK;
    for (size_t n = 0; n < piece; ++n) {
      const uint16_t word = static_cast<uint16_t>(pcm[at + n]);
      bytes[2 * n] = static_cast<uint8_t>(word & 0xff);
      bytes[2 * n + 1] = static_cast<uint8_t>(word >> 8);
    }
    if (!process_write(sink->place.fd, bytes, 2 * piece)) {
      const bool stopped = errno == EINTR && process_stopped();
      return stopped ? false
                     : fail_writing(
                           sink, errno == EPIPE ? "the reader closed the pipe" : strerror(errno));
    }
  }
  sink->frames_written += static_cast<int64_t>(samples);
  return true;
}

static bool store(audio_sink *sink, const int16_t *pcm, size_t samples, int64_t frame_limit) {
  if (sink->file == nullptr) {
    return store_raw(sink, pcm, samples);
  }
  const int64_t room = frame_limit - sink->frames_written;
  const sf_count_t wanted = static_cast<int64_t>(samples) < room ? static_cast<sf_count_t>(samples)
                                                                 : static_cast<sf_count_t>(room);
  errno = 0;
  if (wanted > 0 && (sf_writef_short(sink->file, pcm, wanted) != wanted || write_failed())) {
    return fail_writing(sink, reason(sf_error(sink->file)));
  }
  sink->frames_written += wanted > 0 ? wanted : 0;
  return true;
}

// Runs up to CHUNK samples of `unit` through the resampler and stores what comes out.
static bool store_converted(audio_sink *sink, size_t samples, int64_t frame_limit, bool end) {
  size_t at = 0;
  for (;;) {
    size_t used = samples - at;
    const long made = resampler_run(&sink->convert, sink->unit.data() + at, &used,
                                    sink->converted.data(), CHUNK, end);
    if (made < 0) {
      return fail("converting the sample rate for " + sink->place.name + " failed");
    }
    at += used;
    for (size_t n = 0; n < static_cast<size_t>(made); ++n) {
      sink->pcm[n] = host_sample_from_float(sink->converted[n]);
    }
    if (!store(sink, sink->pcm.data(), static_cast<size_t>(made), frame_limit)) {
      return false;
    }
    if (made == 0 && (used == 0 || at == samples)) {
      return true;
    }
  }
}

bool sink_write(audio_sink *sink, const int16_t *pcm, size_t samples, int64_t frame_limit) {
  if (sink->convert.state == nullptr) {
    return store(sink, pcm, samples, frame_limit);
  }
  for (size_t at = 0; at < samples; at += CHUNK) {
    const size_t piece = samples - at < CHUNK ? samples - at : CHUNK;
    for (size_t n = 0; n < piece; ++n) {
      sink->unit[n] = static_cast<float>(pcm[at + n]) / FULL_SCALE;
    }
    if (!store_converted(sink, piece, frame_limit, false)) {
      return false;
    }
  }
  return true;
}

// The resampler may end a frame early; the output is as long as the input.
static bool pad(audio_sink *sink, int64_t frames) {
  memset(sink->pcm.data(), 0, sink->pcm.size() * sizeof(int16_t));
  while (sink->frames_written < frames) {
    if (!store(sink, sink->pcm.data(), CHUNK, frames)) {
      return false;
    }
  }
  return true;
}

// Completes the sound file and leaves it to the operating system, safely.
static bool settle(audio_sink *sink) {
  errno = 0;
  if (sink->frames_written == 0) {
    // FLAC files get their header with the first samples, or here.
    sf_command(sink->file, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  }
  const int error = sf_close(sink->file);
  sink->file = nullptr;
  if (error != SF_ERR_NO_ERROR || write_failed()) {
    return fail_writing(sink, reason(error));
  }
  return output_file_commit(&sink->place);
}

bool sink_finish(audio_sink *sink, int64_t frames) {
  bool good = true;
  if (sink->convert.state != nullptr) {
    good = store_converted(sink, 0, frames, true);
    resampler_close(&sink->convert);
  }
  if (sink->file != nullptr) {
    return good && pad(sink, frames) && settle(sink);
  }
  return good && output_file_commit(&sink->place);
}

void sink_abort(audio_sink *sink) {
  if (sink->file != nullptr) {
    sf_close(sink->file);
    sink->file = nullptr;
  }
  output_file_abort(&sink->place);
  resampler_close(&sink->convert);
}
