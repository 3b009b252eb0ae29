// Writes 16-bit samples of one channel in any format, to a file or to a pipe.
#include "sound_writer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "process.h"
#include "report.h"
#include "temporary_file.h"

namespace {

constexpr size_t kChunk = 4096;       // samples stored at a time
constexpr size_t kCopyBytes = 65536;  // at a time
constexpr size_t kLeastFirstBytes = 4096;

bool fail_writing(const sound_writer *writer, int error) {
  if (error == EINTR && process_stopped()) {
    return false;
  }
  return report_failure("writing " + writer->name + " failed: " +
                        (error == EPIPE ? "the reader closed the pipe" : std::strerror(error)));
}

int target(const sound_writer *writer) {
  return writer->spool != -1 ? writer->spool : writer->fd;
}

bool put_at(int fd, const void *data, size_t bytes, int64_t at) {
  const char *next = static_cast<const char *>(data);
  while (bytes > 0) {
    const ssize_t count = pwrite(fd, next, bytes, at);
    if (count < 0 && (errno != EINTR || process_stopped())) {
      return false;
    }
    const size_t done = count > 0 ? static_cast<size_t>(count) : 0;
    next += done;
    at += static_cast<int64_t>(done);
    bytes -= done;
  }
  return true;
}

bool put_first(sound_writer *writer) {
  writer->begun = true;
  return process_write(writer->fd, writer->first.data(), writer->first.size());
}

// Writes more data. The first piece for a pipe holds more than the header: readers that recognise
// the format by it may look only once.
bool put_next(sound_writer *writer, const void *data, size_t bytes) {
  if (writer->begun) {
    return process_write(writer->fd, data, bytes);
  }
  const uint8_t *next = static_cast<const uint8_t *>(data);
  writer->first.insert(writer->first.end(), next, next + bytes);
  return writer->first.size() < kLeastFirstBytes || put_first(writer);
}

// libsndfile's writes. A pipe gets new data; what libsndfile would overwrite is dropped.
sf_count_t write_bytes(const void *data, sf_count_t count, void *user) {
  sound_writer *writer = static_cast<sound_writer *>(user);
  const size_t bytes = static_cast<size_t>(count);
  const bool anew = writer->position != writer->end;
  errno = 0;
  bool good = writer->error == 0;
  if (good && (writer->seekable || writer->spool != -1)) {
    good = put_at(target(writer), data, bytes, writer->start + writer->position);
  } else if (good && !anew) {
    good = put_next(writer, data, bytes);
  }
  if (!good) {
    writer->error = writer->error != 0 ? writer->error : errno;
    return 0;
  }
  writer->position += count;
  writer->end = writer->position > writer->end ? writer->position : writer->end;
  return count;
}

sf_count_t seek_bytes(sf_count_t offset, int whence, void *user) {
  sound_writer *writer = static_cast<sound_writer *>(user);
  const int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? writer->position : writer->end;
  writer->position = base + offset;
  return writer->position;
}

sf_count_t read_nothing(void *, sf_count_t, void *) {
  return 0;
}

sf_count_t tell_bytes(void *user) {
  return static_cast<const sound_writer *>(user)->position;
}

sf_count_t count_bytes(void *user) {
  return static_cast<const sound_writer *>(user)->end;
}

bool open_sndfile(sound_writer *writer) {
  SF_VIRTUAL_IO io = {count_bytes, seek_bytes, read_nothing, write_bytes, tell_bytes};
  SF_INFO info = {};
  info.samplerate = writer->rate_hz;
  info.channels = 1;
  info.format = writer->format->format;
  if (sf_format_check(&info) == 0) {
    return report_failure(writer->name + " cannot hold sound at " +
                          std::to_string(writer->rate_hz) +
                          " Hz; use another format, for example .wav");
  }
  if (!writer->seekable && writer->format->layout == LAYOUT_FILE) {
    writer->spool = temporary_file_open();
    if (writer->spool == -1) {
      return false;
    }
  }
  writer->file = sf_open_virtual(&io, SFM_WRITE, &info, writer);
  if (writer->file == nullptr && writer->error != 0) {
    return fail_writing(writer, writer->error);
  }
  if (writer->file == nullptr) {
    return report_failure(
        "cannot write sound at " + std::to_string(writer->rate_hz) + " Hz to " + writer->name +
        ": " + sound_reason(sf_strerror(nullptr)) +
        "; use another format, for example .flac, or convert IN to such a rate first");
  }
  return true;
}

bool open_words(sound_writer *writer) {
  const bool wav = (writer->format->format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
  const bool fits = writer->expected != kUnknownLength && writer->expected <= kMostFrames32;
  writer->wide = wav && writer->seekable && !fits;
  // A header without a length allows a pipe to continue.
  writer->most = !writer->seekable || writer->wide ? INT64_MAX : wav ? kMostFrames32 : writer->most;
  const std::vector<uint8_t> header =
      plain_header(writer->format, writer->rate_hz, writer->expected, writer->wide);
  writer->begun = writer->seekable || header.empty();
  return put_next(writer, header.data(), header.size()) || fail_writing(writer, errno);
}

bool write_words(sound_writer *writer, const int16_t *pcm, size_t samples) {
  uint8_t bytes[kSampleBytes * kChunk];
  for (size_t at = 0; at < samples; at += kChunk) {
    const size_t piece = samples - at < kChunk ? samples - at : kChunk;
    plain_put_words(pcm + at, piece, plain_is_big_endian(writer->format), bytes);
    if (!put_next(writer, bytes, kSampleBytes * piece)) {
      return fail_writing(writer, errno);
    }
  }
  return true;
}

// Reports why libsndfile failed: with the operating system's reason if there is one.
bool fail_encoding(const sound_writer *writer, int sndfile_error) {
  if (writer->error != 0) {
    return writer->spool != -1 ? temporary_file_failed(writer->error)
                               : fail_writing(writer, writer->error);
  }
  return report_failure("writing " + writer->name +
                        " failed: " + sound_reason(sf_error_number(sndfile_error)));
}

bool copy_spool(sound_writer *writer) {
  std::vector<uint8_t> piece(kCopyBytes);
  int64_t at = 0;
  while (at < writer->end) {
    const ssize_t count = pread(writer->spool, piece.data(), piece.size(), at);
    if (count <= 0 || !process_write(writer->fd, piece.data(), static_cast<size_t>(count))) {
      return fail_writing(writer, errno);
    }
    at += count;
  }
  return true;
}

bool finish_words(sound_writer *writer) {
  const std::vector<uint8_t> header =
      plain_header(writer->format, writer->rate_hz, writer->frames, writer->wide);
  const bool same = writer->frames == writer->expected && !writer->wide;
  if (!writer->begun && !put_first(writer)) {
    return fail_writing(writer, errno);
  }
  return same || !writer->seekable ||
         put_at(writer->fd, header.data(), header.size(), writer->start) ||
         fail_writing(writer, errno);
}

}  // namespace

bool writer_open(sound_writer *writer) {
  writer->most = writer->format->most_frames;
  writer->start = writer->seekable ? lseek(writer->fd, 0, SEEK_CUR) : 0;
  return writer->format->layout == LAYOUT_WORDS ? open_words(writer) : open_sndfile(writer);
}

bool writer_write(sound_writer *writer, const int16_t *pcm, size_t samples) {
  const int64_t room = writer->most - writer->frames;
  writer->full = writer->full || static_cast<int64_t>(samples) > room;
  const sf_count_t count = writer->full ? room : static_cast<sf_count_t>(samples);
  if (writer->file == nullptr && !write_words(writer, pcm, static_cast<size_t>(count))) {
    return false;
  }
  // Encoders do not report every write that fails.
  if (writer->file != nullptr && count > 0 &&
      (sf_writef_short(writer->file, pcm, count) != count || writer->error != 0)) {
    return fail_encoding(writer, sf_error(writer->file));
  }
  writer->frames += count;
  return true;
}

bool writer_finish(sound_writer *writer) {
  if (writer->file == nullptr) {
    return finish_words(writer);
  }
  if (writer->frames == 0) {
    // FLAC files get their header with the first samples, or here.
    sf_command(writer->file, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  }
  const int error = sf_close(writer->file);
  writer->file = nullptr;
  if (error != SF_ERR_NO_ERROR || writer->error != 0) {
    return fail_encoding(writer, error);
  }
  if (writer->spool != -1 && !copy_spool(writer)) {
    return false;
  }
  if (!writer->seekable && !writer->begun && !put_first(writer)) {
    return fail_writing(writer, errno);
  }
  // What is written to the same file next continues here.
  return !writer->seekable || lseek(writer->fd, writer->start + writer->end, SEEK_SET) != -1 ||
         fail_writing(writer, errno);
}

void writer_abort(sound_writer *writer) {
  if (writer->file != nullptr) {
    sf_close(writer->file);
    writer->file = nullptr;
  }
  if (writer->spool != -1) {
    close(writer->spool);
    writer->spool = -1;
  }
}
