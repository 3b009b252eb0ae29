// Headers in front of plain samples, as written by programs that do not know the length yet.
#include "sound_header.h"

#include <string.h>

static constexpr size_t TAG_BYTES = 4;
static constexpr size_t CHUNK_HEADER_BYTES = 8;  // tag and size
static constexpr size_t WIDE_SIZE_AT = 16;       // of the sound, in a chunk with sizes of 64 bits
static constexpr size_t WIDE_SIZES_BYTES = 24;   // of that chunk, as far as it is looked at
static constexpr size_t AU_HEADER_BYTES = 24;
static constexpr size_t MAX_HEADER_BYTES = 1 << 20;
// Sizes that mean "unknown": just below 2 GiB, 2 and 4 GiB, all with or without headers.
static constexpr int64_t UNKNOWN_SIZES[] = {0x7f000000, 0x80000000, 0x100000000};
static constexpr int64_t UNKNOWN_SLACK = 8192;

static const char *const MARKS[] = {"RIFF", "RIFX", "RF64",  "fLaC",  "OggS", ".snd",
                                    "FORM", "caff", "ID3\2", "ID3\3", "ID3\4"};

static bool is_tag(const sound_bytes *bytes, size_t at, const char *tag) {
  char found[TAG_BYTES];
  return sound_bytes_peek(bytes, static_cast<int64_t>(at), found, TAG_BYTES) == TAG_BYTES &&
         memcmp(found, tag, TAG_BYTES) == 0;
}

static size_t read_size(const sound_bytes *bytes, size_t at, bool big) {
  uint8_t digits[TAG_BYTES] = {};
  size_t value = 0;
  sound_bytes_peek(bytes, static_cast<int64_t>(at), digits, TAG_BYTES);
  for (size_t n = 0; n < TAG_BYTES; ++n) {
    value = value << 8 | digits[big ? n : TAG_BYTES - 1 - n];
  }
  return value;
}

bool sound_unknown_sizes(size_t n, int64_t *first, int64_t *last) {
  if (n >= sizeof UNKNOWN_SIZES / sizeof *UNKNOWN_SIZES) {
    return false;
  }
  *first = UNKNOWN_SIZES[n] - UNKNOWN_SLACK;
  *last = UNKNOWN_SIZES[n] + UNKNOWN_SLACK;
  return true;
}

bool sound_size_is_unknown(int64_t size) {
  int64_t first = 0;
  int64_t last = 0;
  bool unknown = false;
  for (size_t n = 0; sound_unknown_sizes(n, &first, &last); ++n) {
    unknown = unknown || (size >= first && size <= last);
  }
  return unknown;
}

bool sound_header_begins(const sound_bytes *bytes) {
  bool found = false;
  for (const char *mark : MARKS) {
    found = found || is_tag(bytes, 0, mark);
  }
  return found;
}

// True when the first `count` bytes are there.
static bool gather(sound_bytes *bytes, size_t count) {
  if (count > MAX_HEADER_BYTES || !bytes->live) {
    return count <= MAX_HEADER_BYTES && static_cast<int64_t>(count) <= bytes->held;
  }
  return sound_bytes_gather(bytes, count) && bytes->head.size() >= count;
}

static bool walk_chunks(sound_bytes *bytes, bool big) {
  const size_t around = read_size(bytes, TAG_BYTES, big);
  size_t at = SOUND_MARK_BYTES;
  size_t size = 0;
  while (gather(bytes, at + CHUNK_HEADER_BYTES)) {
    size = read_size(bytes, at + TAG_BYTES, big);
    if (is_tag(bytes, at, "ds64") && gather(bytes, at + WIDE_SIZES_BYTES) &&
        read_size(bytes, at + WIDE_SIZE_AT, big) == 0 &&
        read_size(bytes, at + WIDE_SIZE_AT + TAG_BYTES, big) == 0) {
      bytes->open_size_at = static_cast<int64_t>(at + WIDE_SIZE_AT);
    }
    if (is_tag(bytes, at, "data")) {
      // The size of the whole file shows whether there is no sound, or no size yet.
      const bool unknown = around <= at || sound_size_is_unknown(static_cast<int64_t>(around));
      bytes->open_size_at =
          size == 0 && unknown ? static_cast<int64_t>(at + TAG_BYTES) : bytes->open_size_at;
      return true;
    }
    at += CHUNK_HEADER_BYTES + size + size % 2;  // chunks start at even places
  }
  return false;
}

bool sound_header_take(sound_bytes *bytes) {
  if (!gather(bytes, SOUND_MARK_BYTES)) {
    return false;
  }
  const bool big = is_tag(bytes, 0, "RIFX");
  if (big || is_tag(bytes, 0, "RIFF") || is_tag(bytes, 0, "RF64")) {
    return walk_chunks(bytes, big);
  }
  const bool little = is_tag(bytes, 0, "dns.");
  if (!little && !is_tag(bytes, 0, ".snd")) {
    return false;
  }
  const size_t sound = read_size(bytes, TAG_BYTES, !little);
  return gather(bytes, sound > AU_HEADER_BYTES ? sound : AU_HEADER_BYTES);
}
