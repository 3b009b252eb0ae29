// Where the audio goes: a sound file that gets its name only when it is complete, or a stream.
#include "audio_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>

#include "link_path.h"
#include "report.h"
#include "sample_words.h"
#include "sound_format.h"

namespace {

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
    const std::string extension = sound_extension(out);
    return report_failure((extension.empty() ? out + " has no extension that names a format"
                                             : "cannot write " + extension) +
                          "; use one of" + sound_format_list() +
                          ", or name the format with --format");
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

// Stores samples at the output's rate; a changed rate may end a sample late.
bool store(audio_sink *sink, const float *samples, size_t count, int64_t frames_in) {
  const int64_t room = frames_out(sink, frames_in) - sink->writer.frames;
  const size_t most = room > 0 ? static_cast<size_t>(room) : 0;
  const size_t kept = count < most ? count : most;
  sink->pcm.resize(kept);
  sink->full_scale += samples_to_words(samples, kept, sink->pcm.data());
  return writer_write(&sink->writer, sink->pcm.data(), kept);
}

bool store_changed(audio_sink *sink, int64_t frames_in) {
  const bool good = store(sink, sink->changed.data(), sink->changed.size(), frames_in);
  sink->changed.clear();
  return good;
}

bool changes_rate(const audio_sink *sink) {
  return sink->writer.rate_hz != sink->rate_in_hz;
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
  writer->rate_hz =
      raw ? request->raw_rate_hz : sound_format_rate(writer->format, request->rate_hz);
  writer->expected =
      request->frames == kUnknownLength ? kUnknownLength : frames_out(sink, request->frames);
  if (!check_length(sink) ||
      (sink->place.fd == -1 && !output_file_open(&sink->place, writer->format->extension)) ||
      !open_writer(sink)) {
    return false;
  }
  if (changes_rate(sink)) {
    rate_change_open(&sink->change, sink->rate_in_hz, writer->rate_hz);
  }
  return true;
}

bool sink_write(audio_sink *sink, const float *samples, size_t count, int64_t frames_in) {
  if (!changes_rate(sink)) {
    return store(sink, samples, count, frames_in);
  }
  rate_change_push(&sink->change, samples, count, &sink->changed);
  return store_changed(sink, frames_in);
}

bool sink_finish(audio_sink *sink, int64_t frames_in) {
  bool good = true;
  if (changes_rate(sink)) {
    rate_change_finish(&sink->change, &sink->changed);
    good = store_changed(sink, frames_in);
  }
  good = good && writer_finish(&sink->writer);
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
}
