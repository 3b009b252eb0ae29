// Headers of formats whose sound is plain 16-bit samples of one channel: WAV and AU.
#include "plain_header.h"

#include <sndfile.h>

#include <cstring>

#include "sound_header.h"

namespace {

constexpr uint64_t kUnknownSize = 0xffffffff;
constexpr size_t kWidth16 = 2;
constexpr size_t kWidth32 = 4;
constexpr size_t kWidth64 = 8;
constexpr size_t kWideBytes = 28;  // three sizes of 64 bits and a count of more of them
constexpr size_t kFormatBytes = 16;
constexpr size_t kWavBytes = 44;
constexpr uint64_t kPcmCode = 1;
constexpr uint64_t kAuPcm16Code = 3;

typedef std::vector<uint8_t> byte_list;

void put_tag(byte_list *bytes, const char *tag) {
  bytes->insert(bytes->end(), tag, tag + std::strlen(tag));
}

void put_low_first(byte_list *bytes, uint64_t value, size_t width) {
  for (size_t n = 0; n < width; ++n) {
    bytes->push_back(static_cast<uint8_t>(value >> 8 * n));
  }
}

void put_high_first(byte_list *bytes, uint64_t value) {
  for (size_t n = kWidth32; n > 0; --n) {
    bytes->push_back(static_cast<uint8_t>(value >> 8 * (n - 1)));
  }
}

byte_list wav_header(int rate_hz, int64_t frames, bool wide) {
  const uint64_t rate = static_cast<uint64_t>(rate_hz);
  const uint64_t sound = static_cast<uint64_t>(frames * static_cast<int64_t>(kSampleBytes));
  const uint64_t around =
      kWavBytes - kChunkHeaderBytes + (wide ? kWideBytes + kChunkHeaderBytes : 0);
  const bool known = frames != kUnknownLength;
  const bool fits = known && sound < kUnknownSize - around;
  const bool rf64 = wide && known && !fits;
  byte_list bytes;
  put_tag(&bytes, rf64 ? "RF64" : "RIFF");
  put_low_first(&bytes, fits ? around + sound : kUnknownSize, kWidth32);
  put_tag(&bytes, "WAVE");
  if (wide) {
    // Room for the 64-bit sizes, should they be needed.
    put_tag(&bytes, rf64 ? "ds64" : "JUNK");
    put_low_first(&bytes, kWideBytes, kWidth32);
    put_low_first(&bytes, rf64 ? around + sound : 0, kWidth64);
    put_low_first(&bytes, rf64 ? sound : 0, kWidth64);
    put_low_first(&bytes, rf64 ? static_cast<uint64_t>(frames) : 0, kWidth64);
    put_low_first(&bytes, 0, kWidth32);
  }
  put_tag(&bytes, "fmt ");
  put_low_first(&bytes, kFormatBytes, kWidth32);
  put_low_first(&bytes, kPcmCode, kWidth16);
  put_low_first(&bytes, 1, kWidth16);  // channels
  put_low_first(&bytes, rate, kWidth32);
  put_low_first(&bytes, rate * kSampleBytes, kWidth32);
  put_low_first(&bytes, kSampleBytes, kWidth16);
  put_low_first(&bytes, 8 * kSampleBytes, kWidth16);
  put_tag(&bytes, "data");
  put_low_first(&bytes, fits ? sound : kUnknownSize, kWidth32);
  return bytes;
}

byte_list au_header(int rate_hz, int64_t frames) {
  const uint64_t sound = static_cast<uint64_t>(frames * static_cast<int64_t>(kSampleBytes));
  const bool fits = frames != kUnknownLength && sound < kUnknownSize;
  byte_list bytes;
  put_tag(&bytes, ".snd");
  put_high_first(&bytes, kAuHeaderBytes);
  put_high_first(&bytes, fits ? sound : kUnknownSize);
  put_high_first(&bytes, kAuPcm16Code);
  put_high_first(&bytes, static_cast<uint64_t>(rate_hz));
  put_high_first(&bytes, 1);  // channels
  return bytes;
}

}  // namespace

byte_list plain_header(const sound_format *format, int rate_hz, int64_t frames, bool wide) {
  switch (format->format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
      return wav_header(rate_hz, frames, wide);
    case SF_FORMAT_AU:
      return au_header(rate_hz, frames);
    default:
      return {};
  }
}

void plain_put_words(const int16_t *pcm, size_t samples, bool big_endian, uint8_t *bytes) {
  const size_t low = big_endian ? 1 : 0;
  for (size_t n = 0; n < samples; ++n) {
    const uint16_t word = static_cast<uint16_t>(pcm[n]);
    bytes[kSampleBytes * n + low] = static_cast<uint8_t>(word & 0xff);
    bytes[kSampleBytes * n + 1 - low] = static_cast<uint8_t>(word >> 8);
  }
}

bool plain_is_big_endian(const sound_format *format) {
  return (format->format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AU;
}
