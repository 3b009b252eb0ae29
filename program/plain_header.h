// Headers of formats whose sound is plain 16-bit samples of one channel: WAV and AU.
#ifndef SE_BF_PLAIN_HEADER_H
#define SE_BF_PLAIN_HEADER_H

#include <cstdint>
#include <vector>

#include "sound_format.h"

// The header in front of `frames` frames: of a WAV file 44 bytes, of raw PCM none. A length that is
// unknown or does not fit gets the size that stands for this. With `wide` a WAV header is longer
// and takes any length: it is RF64 where WAV does not do.
std::vector<uint8_t> plain_header(const sound_format *format, int rate_hz, int64_t frames,
                                  bool wide);

constexpr size_t kSampleBytes = 2;  // of 16 bits

// Writes the bytes of 16-bit samples, kSampleBytes each, the low byte first or the high one.
void plain_put_words(const int16_t *pcm, size_t samples, bool big_endian, uint8_t *bytes);

// True when the samples behind the header have their high byte first.
bool plain_is_big_endian(const sound_format *format);

#endif  // SE_BF_PLAIN_HEADER_H
