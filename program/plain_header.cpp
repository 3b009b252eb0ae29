// Headers of formats whose sound is plain 16-bit samples of one channel: WAV and AU.
#include "plain_header.h"

#include <sndfile.h>
#include <string.h>

static constexpr int64_t SAMPLE_BYTES = 2;
static constexpr uint64_t UNKNOWN_SIZE = 0xffffffff;
static constexpr size_t WIDTH_16 = 2;
static constexpr size_t WIDTH_32 = 4;
static constexpr size_t WIDTH_64 = 8;
static constexpr size_t WIDE_BYTES = 28;  // three sizes of 64 bits and a count of more of them
static constexpr size_t FORMAT_BYTES = 16;
static constexpr size_t WAV_BYTES = 44;
static constexpr size_t CHUNK_HEADER_BYTES = 8;
static constexpr uint64_t PCM_CODE = 1;
static constexpr uint64_t AU_HEADER_BYTES = 24;
static constexpr uint64_t AU_PCM_16_CODE = 3;

typedef std::vector<uint8_t> byte_list;

static void put_tag(byte_list *bytes, const char *tag) {
  bytes->insert(bytes->end(), tag, tag + strlen(tag));
}

static void put_low_first(byte_list *bytes, uint64_t value, size_t width) {
  for (size_t n = 0; n < width; ++n) {
    bytes->push_back(static_cast<uint8_t>(value >> 8 * n));
  }
}

static void put_high_first(byte_list *bytes, uint64_t value) {
  for (size_t n = WIDTH_32; n > 0; --n) {
    bytes->push_back(static_cast<uint8_t>(value >> 8 * (n - 1)));
  }
}

static byte_list wav_header(int rate_hz, int64_t frames, bool wide) {
  const uint64_t rate = static_cast<uint64_t>(rate_hz);
  const uint64_t sound = static_cast<uint64_t>(frames * SAMPLE_BYTES);
  const uint64_t around =
      WAV_BYTES - CHUNK_HEADER_BYTES + (wide ? WIDE_BYTES + CHUNK_HEADER_BYTES : 0);
  const bool known = frames != LENGTH_UNKNOWN;
  const bool fits = known && sound < UNKNOWN_SIZE - around;
  const bool rf64 = wide && known && !fits;
  byte_list bytes;
  put_tag(&bytes, rf64 ? "RF64" : "RIFF");
  put_low_first(&bytes, fits ? around + sound : UNKNOWN_SIZE, WIDTH_32);
  put_tag(&bytes, "WAVE");
  if (wide) {
    // Room for the 64-bit sizes, should they be needed.
    put_tag(&bytes, rf64 ? "ds64" : "JUNK");
    put_low_first(&bytes, WIDE_BYTES, WIDTH_32);
    put_low_first(&bytes, rf64 ? around + sound : 0, WIDTH_64);
    put_low_first(&bytes, rf64 ? sound : 0, WIDTH_64);
    put_low_first(&bytes, rf64 ? static_cast<uint64_t>(frames) : 0, WIDTH_64);
    put_low_first(&bytes, 0, WIDTH_32);
  }
  put_tag(&bytes, "fmt ");
  put_low_first(&bytes, FORMAT_BYTES, WIDTH_32);
  put_low_first(&bytes, PCM_CODE, WIDTH_16);
  put_low_first(&bytes, 1, WIDTH_16);  // channels
  put_low_first(&bytes, rate, WIDTH_32);
  put_low_first(&bytes, rate * SAMPLE_BYTES, WIDTH_32);
  put_low_first(&bytes, SAMPLE_BYTES, WIDTH_16);
  put_low_first(&bytes, 8 * SAMPLE_BYTES, WIDTH_16);
  put_tag(&bytes, "data");
  put_low_first(&bytes, fits ? sound : UNKNOWN_SIZE, WIDTH_32);
  return bytes;
}

static byte_list au_header(int rate_hz, int64_t frames) {
  const uint64_t sound = static_cast<uint64_t>(frames * SAMPLE_BYTES);
  const bool fits = frames != LENGTH_UNKNOWN && sound < UNKNOWN_SIZE;
  byte_list bytes;
  put_tag(&bytes, ".snd");
  put_high_first(&bytes, AU_HEADER_BYTES);
  put_high_first(&bytes, fits ? sound : UNKNOWN_SIZE);
  put_high_first(&bytes, AU_PCM_16_CODE);
  put_high_first(&bytes, static_cast<uint64_t>(rate_hz));
  put_high_first(&bytes, 1);  // channels
  return bytes;
}

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

bool plain_is_big_endian(const sound_format *format) {
  return (format->format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AU;
}
