// How much sound the header of a WAV file promises, where the file holds less.
//
// libsndfile takes what is there as the length of the file and says so in its log text only.
#include "riff_header.h"

#include <string.h>

#include <fstream>

static constexpr size_t TAG_BYTES = 4;
static constexpr size_t CHUNK_HEADER_BYTES = 8;   // tag and size
static constexpr int64_t FIRST_CHUNK_BYTES = 12;  // "RIFF", size, "WAVE"
static constexpr size_t FORMAT_BYTES = 16;        // of a "fmt " chunk, as far as all variants agree
static constexpr size_t BYTE_RATE_AT = 8;         // bytes a second, in a "fmt " chunk
// Sizes of programs that cannot know them are just below 2 or 4 GiB.
static constexpr int64_t UNKNOWN_SIZE = 0x7ff00000;
static constexpr int MAX_CHUNKS =
    1000;  // before the sound: damaged files may seem to hold millions

static int64_t read_word(const char *bytes) {
  int64_t word = 0;
  for (int i = TAG_BYTES - 1; i >= 0; --i) {
    word = word << 8 | static_cast<uint8_t>(bytes[i]);
  }
  return word;
}

static bool is_tag(const char *bytes, const char *tag) {
  return memcmp(bytes, tag, TAG_BYTES) == 0;
}

int64_t riff_promised_frames(const std::string &path, int rate_hz) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const int64_t file_bytes = file.tellg();
  char bytes[FORMAT_BYTES] = {};
  int64_t byte_rate = 0;
  int64_t at = FIRST_CHUNK_BYTES;
  file.seekg(0);
  if (!file.read(bytes, CHUNK_HEADER_BYTES) || !is_tag(bytes, "RIFF")) {
    return -1;
  }
  for (int i = 0; i < MAX_CHUNKS && file.seekg(at); ++i) {
    if (!file.read(bytes, CHUNK_HEADER_BYTES)) {
      return -1;
    }
    const int64_t size = read_word(bytes + TAG_BYTES);
    at += static_cast<int64_t>(CHUNK_HEADER_BYTES);
    if (is_tag(bytes, "data")) {
      const bool cut = size < UNKNOWN_SIZE && at + size > file_bytes && byte_rate > 0;
      return cut ? size * rate_hz / byte_rate : -1;
    }
    if (is_tag(bytes, "fmt ") && file.read(bytes, FORMAT_BYTES)) {
      byte_rate = read_word(bytes + BYTE_RATE_AT);
    }
    at += size + size % 2;  // chunks start at even places
  }
  return -1;
}
