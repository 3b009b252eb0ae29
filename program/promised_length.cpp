// How much sound the header of a file states, although the file may hold less.
#include "promised_length.h"

#include <cstdlib>
#include <cstring>

#include "sound_header.h"

namespace {

constexpr int64_t kLeastUnknownSize = 0x7e000000;   // less than any that stands for unknown
constexpr int64_t kLargestSize = INT64_C(1) << 60;  // any above is no size
constexpr size_t kTextHeaderBytes = 1024;
constexpr char kTextCount[] = "\nsample_count -i ";

constexpr int kNoMark = -1;
constexpr int kVocSound16 = 9;  // kind of block: sound of any encoding

enum field_place { FROM_START, BEFORE_SOUND };
enum field_unit { BYTES, FRAMES };

// Where a header has a size of the sound that libsndfile ignores.
struct size_field {
  int format;
  field_place place;
  int64_t at;    // bytes from the start, or before the sound
  size_t width;  // bytes
  bool big;      // the first byte counts most
  int64_t less;  // bytes in the size that are no sound
  field_unit unit;
  int mark;  // byte that must stand in front of it; kNoMark: any
};

constexpr size_field kFields[] = {
    {SF_FORMAT_W64, BEFORE_SOUND, 8, 8, false, 24, BYTES, kNoMark},
    {SF_FORMAT_SVX, BEFORE_SOUND, 4, 4, true, 0, BYTES, kNoMark},
    {SF_FORMAT_VOC, BEFORE_SOUND, 15, 3, false, 12, BYTES, kVocSound16},
    {SF_FORMAT_MAT5, BEFORE_SOUND, 4, 4, false, 0, BYTES, kNoMark},
    {SF_FORMAT_AU, FROM_START, 8, 4, true, 0, BYTES, kNoMark},
    {SF_FORMAT_WVE, FROM_START, 18, 4, true, 0, BYTES, kNoMark},
    {SF_FORMAT_AVR, FROM_START, 26, 4, true, 0, FRAMES, kNoMark},
    {SF_FORMAT_MPC2K, FROM_START, 30, 4, false, 0, FRAMES, kNoMark},
};

// Formats whose stated length libsndfile returns if the file seems to be long enough.
constexpr int kToldIn32Bits[] = {SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_AIFF, SF_FORMAT_AU,
                                 SF_FORMAT_MAT4};
constexpr int kToldIn64Bits[] = {SF_FORMAT_RF64, SF_FORMAT_CAF, SF_FORMAT_W64};

// True when the sound would end where a size that means "unknown" says.
bool ends_at_unknown_size(const sound_bytes *bytes, int64_t frames) {
  int64_t first = 0;
  int64_t last = 0;
  bool unknown = false;
  for (size_t n = 0; sound_unknown_sizes(n, &first, &last); ++n) {
    unknown = unknown || (sound_bytes_frames(bytes, bytes->sound_at + first) < frames &&
                          sound_bytes_frames(bytes, bytes->sound_at + last) == frames);
  }
  return unknown;
}

int64_t promised_if_longer(const sound_bytes *bytes, bool wide) {
  const int64_t frames = sound_bytes_frames(bytes, kSoundBytesFar);
  if (frames < 0 || frames != sound_bytes_frames(bytes, 2 * kSoundBytesFar)) {
    return kUnknownLength;  // it reaches to the end, wherever that is
  }
  return !wide && ends_at_unknown_size(bytes, frames) ? kUnknownLength : frames;
}

int64_t read_field(const sound_bytes *bytes, const size_field *field, bool big) {
  uint8_t digits[sizeof(int64_t)] = {};
  uint8_t mark = 0;
  const int64_t at = field->place == FROM_START ? field->at : bytes->sound_at - field->at;
  sound_bytes_peek(bytes, at - 1, &mark, 1);
  if ((field->mark != kNoMark && field->mark != mark) ||
      sound_bytes_peek(bytes, at, digits, field->width) != field->width) {
    return kUnknownLength;
  }
  uint64_t value = 0;
  for (size_t n = 0; n < field->width; ++n) {
    value = value << 8 | digits[big ? n : field->width - 1 - n];
  }
  const int64_t size = value < kLargestSize ? static_cast<int64_t>(value) : kUnknownLength;
  const bool wide = field->width == sizeof digits;
  return !wide && sound_size_is_unknown(size) ? kUnknownLength : size;
}

int64_t promised_in(const sound_bytes *bytes, const SF_INFO *info, const size_field *field) {
  const int endian = info->format & SF_FORMAT_ENDMASK;
  const bool big = endian == 0 ? field->big : endian == SF_ENDIAN_BIG;
  const int64_t size = read_field(bytes, field, big);
  if (size == kUnknownLength || field->unit == FRAMES) {
    return size;
  }
  return (size - field->less) / static_cast<int64_t>(bytes->unit);
}

// A header of text: "sample_count -i 96000".
int64_t promised_in_text(const sound_bytes *bytes) {
  char text[kTextHeaderBytes + 1] = {};
  sound_bytes_peek(bytes, 0, text, kTextHeaderBytes);
  const char *found = std::strstr(text, kTextCount);
  const int64_t count =
      found == nullptr ? 0 : std::strtoll(found + std::strlen(kTextCount), nullptr, 10);
  return count > 0 && count < kLargestSize ? count : kUnknownLength;
}

// True when chunks, each with a printable tag and a size, fill the file from `at` on.
bool chunks_follow(const sound_bytes *bytes, int64_t at, bool big) {
  uint8_t head[kChunkHeaderBytes];
  for (at += at % 2; at < bytes->held; at += at % 2) {
    bool printable = sound_bytes_peek(bytes, at, head, sizeof head) == sizeof head;
    int64_t size = 0;
    for (size_t n = 0; n < 4; ++n) {
      printable = printable && head[n] >= ' ' && head[n] <= '~';
      size = size << 8 | head[big ? 4 + n : 7 - n];
    }
    if (!printable) {
      return false;
    }
    at += static_cast<int64_t>(sizeof head) + size;
  }
  return at <= bytes->held + 1;
}

}  // namespace

int64_t promised_frames(const sound_bytes *bytes, const SF_INFO *info) {
  const int format = info->format & SF_FORMAT_TYPEMASK;
  int64_t frames = kUnknownLength;
  for (const int told : kToldIn32Bits) {
    frames = format == told ? promised_if_longer(bytes, false) : frames;
  }
  for (const int told : kToldIn64Bits) {
    frames = format == told ? promised_if_longer(bytes, bytes->open_size_at == 0) : frames;
  }
  if (format == SF_FORMAT_NIST) {
    frames = promised_in_text(bytes);
  }
  for (const size_field &field : kFields) {
    if (frames == kUnknownLength && format == field.format && bytes->unit > 0) {
      frames = promised_in(bytes, info, &field);
    }
  }
  return frames;
}

bool promised_goes_on(const sound_bytes *bytes, const SF_INFO *info) {
  const int64_t end = bytes->sound_at + info->frames * static_cast<int64_t>(bytes->unit);
  const bool big = (info->format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AIFF;
  return bytes->held > kLeastUnknownSize &&
         end + static_cast<int64_t>(kChunkHeaderBytes) <= bytes->held &&
         !chunks_follow(bytes, end, big);
}
