// Where an MPEG audio stream begins, and whether it states its length.
#include "mpeg_stream.h"

#include <cstring>
#include <string>

namespace {

constexpr size_t kHeadBytes = 4;
constexpr int64_t kSearchedBytes = 65536;
constexpr size_t kTagBytes = 10;      // head of the tag in front of a stream
constexpr size_t kCountBytes = 192;   // of the first frame, where its count may stand
constexpr uint8_t kSizeDigit = 0x7f;  // seven bits of a byte count
constexpr int kLayer3 = 1;            // as the head codes it
constexpr int kVersion1 = 3;          // as the head codes it
constexpr int kVersion2 = 2;
constexpr int kBits1[] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr int kBits2[] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
constexpr int kRatesHz[] = {44100, 48000, 32000};  // of version 1

struct mpeg_head {
  int version;
  int layer;
  int bits;  // index of the bit rate
  int rate;  // index of the sample rate
  int pad;   // bytes
};

bool read_head(const sound_bytes *bytes, int64_t at, mpeg_head *head) {
  uint8_t word[kHeadBytes] = {};
  if (sound_bytes_peek(bytes, at, word, sizeof word) != sizeof word || word[0] != 0xff ||
      (word[1] & 0xe0) != 0xe0) {
    return false;
  }
  *head = {word[1] >> 3 & 3, word[1] >> 1 & 3, word[2] >> 4, word[2] >> 2 & 3, word[2] >> 1 & 1};
  return head->version != 1 && head->layer != 0 && head->bits != 0 && head->bits != 15 &&
         head->rate != 3;
}

// Bytes of a frame of layer 3.
int64_t frame_bytes(const mpeg_head *head) {
  const bool first = head->version == kVersion1;
  const int kilobits = first ? kBits1[head->bits - 1] : kBits2[head->bits - 1];
  const int rate_hz = kRatesHz[head->rate] / (first ? 1 : head->version == kVersion2 ? 2 : 4);
  return (first ? 144000 : 72000) * kilobits / rate_hz + head->pad;
}

}  // namespace

bool mpeg_begins(const sound_bytes *bytes, int64_t at) {
  mpeg_head head = {};
  return read_head(bytes, at, &head);
}

int64_t mpeg_find(const sound_bytes *bytes) {
  for (int64_t at = 0; at < kSearchedBytes && at < bytes->held; ++at) {
    mpeg_head head = {};
    mpeg_head next = {};
    if (read_head(bytes, at, &head) && head.layer == kLayer3 &&
        read_head(bytes, at + frame_bytes(&head), &next) && next.layer == kLayer3 &&
        next.version == head.version && next.rate == head.rate) {
      return at;
    }
  }
  return -1;
}

bool mpeg_tells_length(const sound_bytes *bytes) {
  uint8_t tag[kTagBytes] = {};
  char frame[kCountBytes] = {};
  int64_t at = 0;
  while (sound_bytes_peek(bytes, at, tag, sizeof tag) == sizeof tag &&
         std::memcmp(tag, "ID3", 3) == 0) {
    int64_t size = 0;
    for (size_t n = 6; n < kTagBytes; ++n) {
      size = size << 7 | (tag[n] & kSizeDigit);
    }
    at += static_cast<int64_t>(kTagBytes) + size;
  }
  const std::string first(frame, sound_bytes_peek(bytes, at, frame, sizeof frame));
  return first.find("Xing") != std::string::npos || first.find("Info") != std::string::npos;
}
