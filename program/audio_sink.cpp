// Where the audio goes: a sound file that gets its name only when it is complete, or a stream.
#include "audio_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>

#include "link_path.h"
#include "report.h"
#include "scene.h"
#include "se_bf_host.h"
#include "sound_format.h"

namespace {

constexpr size_t kChunk = 4096;  // samples converted at a time
constexpr float kFullScale = 32768.0f;
constexpr double kSecondsPerHour = 3600.0;

// The format that the user asked for, or that of the extension; null if neither names one.
const sound_format *choose_format(const sink_request *request) {
  return request->format.empty() ? sound_format_of(request->out)
                                 : sound_format_named(request->format);
}

bool find_place(audio_sink *sink, const sink_request *request) {
  const std::string &out = request->out;
  const bool standard = out == "-" || link_descriptor(out) == STDOUT_FILENO;
  const sound_format *raw = sound_format_named("raw");
  if (standard) {
    sink->writer.format = request->format.empty() ? raw : choose_format(request);
    return output_file_adopt(&sink->place, request->standard_fd, request->in);
  }
  sink->writer.format = choose_format(request);
  if (!output_file_find(&sink->place, out, request->in)) {
    return false;
  }
  if (sink->writer.format == nullptr && !sink->place.in_place) {
    return report_failure("the extension of " + out + " tells no sound format; use one of" +
                          sound_format_list() + ", or name the format with --format");
  }
  sink->writer.format = sink->writer.format == nullptr ? raw : sink->writer.format;
  return true;
}

std::string hours(int64_t frames, int rate_hz) {
  return report_number(static_cast<double>(frames) / rate_hz / kSecondsPerHour, 1) + " h";
}

bool check_length(const audio_sink *sink) {
  const sound_writer *writer = &sink->writer;
  if (writer->expected <= writer->format->most_frames) {
    return true;
  }
  return report_failure(sink->place.name + " cannot hold " +
                        hours(writer->expected, writer->rate_hz) + " of sound, only " +
                        hours(writer->format->most_frames, writer->rate_hz) + "; use one of" +
                        sound_format_list_holding(writer->expected));
}

// True when bytes that were written before can be overwritten.
bool is_seekable(const output_file *place) {
  struct stat status = {};
  return fstat(place->fd, &status) == 0 && S_ISREG(status.st_mode) &&
         (fcntl(place->fd, F_GETFL) & O_APPEND) == 0;
}

bool open_writer(audio_sink *sink) {
  sound_writer *writer = &sink->writer;
  if (isatty(sink->place.fd) == 1) {
    return report_failure(sink->place.name +
                          " is a terminal; pipe it into a player, for example "
                          "aplay -t raw -f S16_LE -r 16000, or name a file");
  }
  writer->name = sink->place.name;
  writer->fd = sink->place.fd;
  writer->seekable = is_seekable(&sink->place);
  return writer_open(writer);
}

// Frames at the output's rate for `frames` at the input's.
int64_t frames_out(const audio_sink *sink, int64_t frames) {
  const double ratio = static_cast<double>(sink->writer.rate_hz) / sink->rate_in_hz;
  return sink->writer.rate_hz == sink->rate_in_hz
             ? frames
             : std::llround(static_cast<double>(frames) * ratio);
}

// Raw PCM holds everything that arrives; a sound file is as long as the input.
bool store(audio_sink *sink, const int16_t *pcm, size_t samples, int64_t frame_limit) {
  const int64_t room = frame_limit - sink->writer.frames;
  const bool all = sink->writer.format->format == 0 || static_cast<int64_t>(samples) < room;
  const size_t count = all ? samples : room > 0 ? static_cast<size_t>(room) : 0;
  return writer_write(&sink->writer, pcm, count);
}

// Runs up to kChunk samples of `unit` through the resampler and stores what comes out.
bool store_converted(audio_sink *sink, size_t samples, int64_t frame_limit, bool end) {
  size_t at = 0;
  for (;;) {
    size_t used = samples - at;
    const long made = resampler_run(&sink->convert, sink->unit.data() + at, &used,
                                    sink->converted.data(), kChunk, end);
    if (made < 0) {
      return report_failure("converting the sample rate for " + sink->place.name + " failed");
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

// The resampler may end a frame early; the output is as long as the input.
bool pad(audio_sink *sink, int64_t frames) {
  std::memset(sink->pcm.data(), 0, sink->pcm.size() * sizeof(int16_t));
  while (sink->writer.frames < frames && !sink->writer.full) {
    if (!store(sink, sink->pcm.data(), kChunk, frames)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool sink_open(audio_sink *sink, const sink_request *request) {
  sound_writer *writer = &sink->writer;
  *sink = {};
  sink->rate_in_hz = request->rate_hz;
  if (!find_place(sink, request)) {
    return false;
  }
  const bool raw = writer->format->format == 0;
  writer->rate_hz = raw ? kRateHz : sound_format_rate(writer->format, request->rate_hz);
  writer->expected =
      request->frames == kUnknownLength ? kUnknownLength : frames_out(sink, request->frames);
  if (!check_length(sink) ||
      (sink->place.fd == -1 && !output_file_open(&sink->place, writer->format->extension)) ||
      !open_writer(sink)) {
    return false;
  }
  if (!resampler_open(&sink->convert, kRateHz, writer->rate_hz, 1)) {
    return report_failure("cannot convert from " + std::to_string(kRateHz) + " Hz to " +
                          std::to_string(writer->rate_hz) + " Hz");
  }
  sink->unit.resize(kChunk);
  sink->converted.resize(kChunk);
  sink->pcm.resize(kChunk);
  return true;
}

bool sink_write(audio_sink *sink, const int16_t *pcm, size_t samples, int64_t frames_in) {
  const int64_t frame_limit = frames_out(sink, frames_in);
  if (sink->convert.state == nullptr) {
    return store(sink, pcm, samples, frame_limit);
  }
  for (size_t at = 0; at < samples; at += kChunk) {
    const size_t piece = samples - at < kChunk ? samples - at : kChunk;
    for (size_t n = 0; n < piece; ++n) {
      sink->unit[n] = static_cast<float>(pcm[at + n]) / kFullScale;
    }
    if (!store_converted(sink, piece, frame_limit, false)) {
      return false;
    }
  }
  return true;
}

bool sink_finish(audio_sink *sink, int64_t frames_in) {
  const int64_t frames = frames_out(sink, frames_in);
  const bool raw = sink->writer.format->format == 0;
  bool good = true;
  if (sink->convert.state != nullptr) {
    good = store_converted(sink, 0, frames, true);
    resampler_close(&sink->convert);
  }
  good = good && (raw || pad(sink, frames)) && writer_finish(&sink->writer);
  writer_abort(&sink->writer);
  return good && output_file_commit(&sink->place);
}

bool sink_is_full(const audio_sink *sink) {
  return sink->writer.full;
}

std::string sink_full_text(const audio_sink *sink) {
  const sound_writer *writer = &sink->writer;
  return sink->place.name + " is full: it holds the first " +
         hours(writer->frames, writer->rate_hz) + " of the sound and the rest is lost; use one of" +
         sound_format_list_holding(writer->frames + 1);
}

void sink_abort(audio_sink *sink) {
  writer_abort(&sink->writer);
  output_file_abort(&sink->place);
  resampler_close(&sink->convert);
}
