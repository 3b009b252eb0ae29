// The bytes of a sound file, on disk or as a pipe delivers them, as libsndfile reads them.
#include "sound_bytes.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "process.h"

namespace {

constexpr int64_t kOpenSizeBytes = 4;
constexpr size_t kMaxZeros = 4096;  // while a header is read: damaged ones ask for more

int64_t smaller(int64_t a, int64_t b) {
  return a < b ? a : b;
}

// Returns the number of bytes read, 0 at the end and on an error, which is recorded.
size_t take(sound_bytes *bytes, uint8_t *out, size_t count) {
  for (;;) {
    if (!process_wait(bytes->fd)) {
      bytes->error = EINTR;
      return 0;
    }
    const ssize_t got = read(bytes->fd, out, count);
    if (got >= 0) {
      return static_cast<size_t>(got);
    }
    if (errno != EINTR || process_stopped()) {
      bytes->error = errno;
      return 0;
    }
  }
}

size_t peek_disk(const sound_bytes *bytes, int64_t at, uint8_t *out, size_t count) {
  size_t done = 0;
  while (done < count) {
    const ssize_t got =
        pread(bytes->fd, out + done, count - done, bytes->start + at + static_cast<int64_t>(done));
    if (got == 0 || (got < 0 && errno != EINTR)) {
      break;
    }
    done += got > 0 ? static_cast<size_t>(got) : 0;
  }
  return done;
}

// Of a pipe, whole frames are delivered as soon as there are some.
size_t read_pipe(sound_bytes *bytes, uint8_t *out, size_t count, size_t got) {
  const size_t unit = bytes->unit;
  while (got < count) {
    const size_t frames_end = static_cast<size_t>(bytes->position - bytes->sound_at) + got;
    if (got > 0 && unit > 0 && frames_end % unit == 0) {
      break;
    }
    const size_t more = take(bytes, out + got, count - got);
    if (more == 0) {
      break;
    }
    got += more;
  }
  return got;
}

sf_count_t read_bytes(void *out, sf_count_t count, void *user) {
  sound_bytes *bytes = static_cast<sound_bytes *>(user);
  uint8_t *next = static_cast<uint8_t *>(out);
  const int64_t wanted = smaller(count, bytes->length - bytes->position);
  errno = 0;
  if (wanted <= 0) {
    return 0;
  }
  const size_t room = static_cast<size_t>(wanted);
  size_t got = sound_bytes_peek(bytes, bytes->position + bytes->shift, next, room);
  if (bytes->opening && got < room) {
    const size_t left = kMaxZeros - bytes->zeros;
    const size_t zeros = room - got < left ? room - got : left;
    std::memset(next + got, 0, zeros);
    bytes->zeros += zeros;
    got += zeros;
  } else if (bytes->live) {
    got = read_pipe(bytes, next, room, got);
  } else if (got < room) {
    bytes->error = errno;
  }
  const int64_t open = bytes->open_size_at - bytes->position;  // of the first byte read
  for (int64_t n = open; bytes->open_size_at > 0 && n < open + kOpenSizeBytes; ++n) {
    if (n >= 0 && n < static_cast<int64_t>(got)) {
      next[n] = UINT8_MAX;
    }
  }
  // An incomplete header ends with the file, whatever length it states.
  const bool lost = bytes->opening && got < room;
  bytes->position = lost ? bytes->length : bytes->position + static_cast<int64_t>(got);
  return static_cast<sf_count_t>(got);
}

sf_count_t seek_bytes(sf_count_t offset, int whence, void *user) {
  sound_bytes *bytes = static_cast<sound_bytes *>(user);
  const int64_t base = whence == SEEK_SET   ? 0
                       : whence == SEEK_CUR ? bytes->position
                                            : bytes->length;
  const int64_t at = base + offset;
  bytes->position = at < 0 ? bytes->position : at;
  return at < 0 ? -1 : at;
}

sf_count_t tell_bytes(void *user) {
  return static_cast<const sound_bytes *>(user)->position;
}

sf_count_t count_bytes(void *user) {
  return static_cast<const sound_bytes *>(user)->length;
}

sf_count_t write_nothing(const void *, sf_count_t, void *) {
  return 0;
}

// Formats that pack samples in their own way, whatever the encoding.
bool is_packed(int format) {
  const int container = format & SF_FORMAT_TYPEMASK;
  return container == SF_FORMAT_FLAC || container == SF_FORMAT_PAF || container == SF_FORMAT_SDS;
}

}  // namespace

bool sound_bytes_gather(sound_bytes *bytes, size_t count) {
  size_t held = bytes->head.size();
  bytes->head.resize(held < count ? count : held);
  while (held < count) {
    const size_t got = take(bytes, bytes->head.data() + held, count - held);
    if (got == 0) {
      break;
    }
    held += got;
  }
  bytes->head.resize(held);
  return bytes->error == 0;
}

size_t sound_bytes_peek(const sound_bytes *bytes, int64_t at, void *out, size_t count) {
  const int64_t end = bytes->live ? static_cast<int64_t>(bytes->head.size()) : bytes->held;
  const int64_t there = smaller(end - at, static_cast<int64_t>(count));
  if (at < 0 || there <= 0) {
    return 0;
  }
  if (!bytes->live) {
    return peek_disk(bytes, at, static_cast<uint8_t *>(out), static_cast<size_t>(there));
  }
  std::memcpy(out, bytes->head.data() + at, static_cast<size_t>(there));
  return static_cast<size_t>(there);
}

SNDFILE *sound_bytes_open(sound_bytes *bytes, int64_t length, SF_INFO *info) {
  SF_VIRTUAL_IO io = {count_bytes, seek_bytes, read_bytes, write_nothing, tell_bytes};
  bytes->length = length;
  bytes->position = 0;
  bytes->shift = 0;
  bytes->zeros = 0;
  bytes->opening = true;
  SNDFILE *file = sf_open_virtual(&io, SFM_READ, info, bytes);
  bytes->opening = false;
  bytes->sound_at = bytes->position;
  bytes->unit =
      file == nullptr ? 0 : static_cast<size_t>(info->channels) * sound_sample_bytes(info->format);
  return file;
}

int64_t sound_bytes_frames(const sound_bytes *bytes, int64_t length) {
  sound_bytes probe = *bytes;
  SF_INFO info = {};
  SNDFILE *file = sound_bytes_open(&probe, length, &info);
  if (file == nullptr) {
    return -1;
  }
  sf_close(file);
  return info.frames;
}

bool sound_bytes_go_on(sound_bytes *bytes, SNDFILE *file) {
  const int64_t at = bytes->position + bytes->shift;
  const bool more = bytes->live || at + static_cast<int64_t>(bytes->unit) <= bytes->held;
  if (bytes->unit == 0 || !more || sf_seek(file, 0, SEEK_SET) != 0) {
    return false;
  }
  bytes->shift = at - bytes->position;
  return true;
}

size_t sound_sample_bytes(int format) {
  if (is_packed(format)) {
    return 0;
  }
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
      return 1;
    case SF_FORMAT_PCM_16:
      return 2;
    case SF_FORMAT_PCM_24:
      return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
      return 4;
    case SF_FORMAT_DOUBLE:
      return sizeof(double);
    default:
      return 0;
  }
}
