// Headers in front of plain samples, as written by programs that do not know the length yet.
#include "sound_header.h"

#include <cstring>

namespace {

constexpr size_t kTagBytes = 4;
constexpr size_t kWideSizeAt = 16;      // of the sound, in a chunk with sizes of 64 bits
constexpr size_t kWideSizesBytes = 24;  // of that chunk, as far as it is looked at
constexpr size_t kMaxHeaderBytes = 1 << 20;
// Sizes that mean "unknown": just below 2 GiB, 2 and 4 GiB, all with or without headers.
constexpr int64_t kUnknownSizes[] = {0x7f000000, 0x80000000, 0x100000000};
constexpr int64_t kUnknownSlack = 8192;

constexpr const char *kMarks[] = {"RIFF", "RIFX", "RF64",  "fLaC",  "OggS", ".snd",
                                  "FORM", "caff", "ID3\2", "ID3\3", "ID3\4"};

bool is_tag(const sound_bytes *bytes, size_t at, const char *tag) {
  char found[kTagBytes];
  return sound_bytes_peek(bytes, static_cast<int64_t>(at), found, kTagBytes) == kTagBytes &&
         std::memcmp(found, tag, kTagBytes) == 0;
}

size_t read_size(const sound_bytes *bytes, size_t at, bool big) {
  uint8_t digits[kTagBytes] = {};
  size_t value = 0;
  sound_bytes_peek(bytes, static_cast<int64_t>(at), digits, kTagBytes);
  for (size_t n = 0; n < kTagBytes; ++n) {
    value = value << 8 | digits[big ? n : kTagBytes - 1 - n];
  }
  return value;
}

// True when the first `count` bytes are there.
bool gather(sound_bytes *bytes, size_t count) {
  if (count > kMaxHeaderBytes || !bytes->live) {
    return count <= kMaxHeaderBytes && static_cast<int64_t>(count) <= bytes->held;
  }
  return sound_bytes_gather(bytes, count) && bytes->head.size() >= count;
}

bool walk_chunks(sound_bytes *bytes, bool big) {
  const size_t around = read_size(bytes, kTagBytes, big);
  size_t at = kSoundMarkBytes;
  size_t size = 0;
  while (gather(bytes, at + kChunkHeaderBytes)) {
    size = read_size(bytes, at + kTagBytes, big);
    if (is_tag(bytes, at, "ds64") && gather(bytes, at + kWideSizesBytes) &&
        read_size(bytes, at + kWideSizeAt, big) == 0 &&
        read_size(bytes, at + kWideSizeAt + kTagBytes, big) == 0) {
      bytes->open_size_at = static_cast<int64_t>(at + kWideSizeAt);
    }
    if (is_tag(bytes, at, "data")) {
      // The size of the whole file shows whether there is no sound, or no size yet.
      const bool unknown = around <= at || sound_size_is_unknown(static_cast<int64_t>(around));
      bytes->open_size_at =
          size == 0 && unknown ? static_cast<int64_t>(at + kTagBytes) : bytes->open_size_at;
      return true;
    }
    at += kChunkHeaderBytes + size + size % 2;  // chunks start at even places
  }
  return false;
}

}  // namespace

bool sound_unknown_sizes(size_t n, int64_t *first, int64_t *last) {
  if (n >= sizeof kUnknownSizes / sizeof *kUnknownSizes) {
    return false;
  }
  *first = kUnknownSizes[n] - kUnknownSlack;
  *last = kUnknownSizes[n] + kUnknownSlack;
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
  for (const char *mark : kMarks) {
    found = found || is_tag(bytes, 0, mark);
  }
  return found;
}

bool sound_header_take(sound_bytes *bytes) {
  if (!gather(bytes, kSoundMarkBytes)) {
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
  const size_t sound = read_size(bytes, kTagBytes, !little);
  return gather(bytes, sound > kAuHeaderBytes ? sound : kAuHeaderBytes);
}
