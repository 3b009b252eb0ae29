// Opens a sound: a file, a pipe that carries one, or raw PCM on standard input.
#include "sound_open.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "mpeg_stream.h"
#include "process.h"
#include "scene.h"
#include "sound_file.h"
#include "sound_header.h"
#include "temporary_file.h"

namespace {

constexpr size_t kPrefixBytes = 16384;  // of a pipe, which tell what it carries
constexpr size_t kSpoolBytes = 65536;   // copied at a time

bool fail_reading(const sound_input *in, int error) {
  return sound_file_refuse("reading " + in->name + " failed: " + std::strerror(error));
}

bool fail_empty(const sound_input *in) {
  return sound_file_refuse(in->name + " is empty: nothing came through the pipe");
}

bool fail_headerless(const sound_input *in) {
  if (in->bytes.head.empty()) {
    return fail_empty(in);
  }
  return sound_file_refuse(
      in->name + " carries no known sound file" +
      (in->bytes.fd == STDIN_FILENO
           ? "; for raw PCM say how many channels it has: --raw-channels 1 or 2"
           : "; raw PCM is taken from standard input only, as IN -"));
}

bool open_raw(sound_input *in, const enhance_options *options) {
  sound_bytes *bytes = &in->bytes;
  SF_INFO info = {};
  if (!sound_bytes_gather(bytes, 1)) {
    return fail_reading(in, bytes->error);
  }
  if (bytes->head.empty()) {
    return fail_empty(in);
  }
  info.samplerate = options->raw_rate_hz;
  info.channels = static_cast<int>(options->raw_channels);
  info.format = SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE;
  in->raw = true;
  in->file = sound_bytes_open(bytes, kSoundBytesFar, &info);
  if (in->file == nullptr) {
    return sound_file_unreadable(in);
  }
  sound_file_adopt(in, &info);
  return true;
}

void close_bytes(sound_input *in) {
  if (in->bytes.fd > STDIN_FILENO) {
    close(in->bytes.fd);
  }
  in->bytes.fd = -1;
}

// Writes what a pipe carries, from its first byte to its last, to `fd`.
bool drain(sound_input *in, int fd) {
  sound_bytes *bytes = &in->bytes;
  std::vector<uint8_t> piece = bytes->head;
  while (!piece.empty()) {
    if (!process_write(fd, piece.data(), piece.size())) {
      return !process_stopped() && temporary_file_failed(errno);
    }
    bytes->held += static_cast<int64_t>(piece.size());
    bytes->head.clear();
    if (!sound_bytes_gather(bytes, kSpoolBytes)) {
      return fail_reading(in, bytes->error);
    }
    piece.swap(bytes->head);
  }
  return true;
}

// Reads from a file without a name, which holds all that a pipe carried, instead of the pipe.
bool spool(sound_input *in) {
  const int fd = temporary_file_open();
  const bool good = fd != -1 && drain(in, fd);
  close_bytes(in);
  in->bytes.fd = fd;
  in->bytes.live = false;
  return good;
}

// True when libsndfile knows the kind of file that the first bytes of a pipe belong to.
bool is_known(const sound_bytes *bytes) {
  sound_bytes prefix = *bytes;
  SF_INFO info = {};
  SNDFILE *file = sound_bytes_open(&prefix, static_cast<int64_t>(bytes->head.size()), &info);
  if (file != nullptr) {
    sf_close(file);
  }
  return file != nullptr || sf_error(nullptr) != SF_ERR_UNRECOGNISED_FORMAT;
}

// Opens a pipe: formats with a header in front of plain samples are read as they arrive, others
// once everything is there.
bool open_pipe(sound_input *in) {
  sound_bytes *bytes = &in->bytes;
  SF_INFO info = {};
  const bool plain = sound_header_take(bytes);
  if (bytes->error != 0) {
    return fail_reading(in, bytes->error);
  }
  if (plain) {
    in->file = sound_bytes_open(bytes, kSoundBytesFar, &info);
    if (in->file != nullptr && bytes->unit > 0) {
      sound_file_adopt(in, &info);
      return true;
    }
    sound_file_close(in);
  }
  if (!sound_bytes_gather(bytes, kPrefixBytes)) {
    return fail_reading(in, bytes->error);
  }
  const bool known = sound_header_begins(bytes) || mpeg_begins(bytes, 0) || is_known(bytes);
  if (bytes->head.empty() || !known) {
    return fail_headerless(in);
  }
  return spool(in) && sound_file_open(in, "");
}

bool open_standard_input(sound_input *in, const enhance_options *options) {
  struct stat status = {};
  in->name = "standard input";
  in->bytes.fd = STDIN_FILENO;
  if (isatty(STDIN_FILENO) == 1) {
    return sound_file_refuse(
        "standard input is a terminal; pipe sound into it, for example from "
        "arecord -t wav -f S16_LE -r 16000");
  }
  const bool on_disk = fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
  in->bytes.live = !on_disk || options->raw_channels > 0;
  if (options->raw_channels > 0) {
    return open_raw(in, options);
  }
  if (!on_disk) {
    return open_pipe(in);
  }
  in->bytes.start = lseek(STDIN_FILENO, 0, SEEK_CUR);
  in->bytes.held = status.st_size - in->bytes.start;
  return sound_file_open(in, "");
}

bool open_named(sound_input *in, const std::string &path) {
  struct stat status = {};
  in->name = path;
  if (stat(path.c_str(), &status) != 0) {
    return sound_file_refuse("cannot open " + path + ": " + std::strerror(errno));
  }
  if (S_ISDIR(status.st_mode)) {
    return sound_file_refuse(
        path + " is a directory; name a sound file in it, or enhance all of it with --out-dir");
  }
  in->bytes.fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  in->bytes.live = !S_ISREG(status.st_mode);
  in->bytes.held = status.st_size;
  if (in->bytes.fd == -1) {
    return sound_file_refuse("cannot read " + path + ": " + std::strerror(errno));
  }
  return in->bytes.live ? open_pipe(in) : sound_file_open(in, path);
}

}  // namespace

bool sound_open(sound_input *in, const enhance_options *options) {
  *in = {};
  return options->in == "-" ? open_standard_input(in, options) : open_named(in, options->in);
}

void sound_close(sound_input *in) {
  sound_file_close(in);
  close_bytes(in);
}
