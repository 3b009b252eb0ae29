// Samples as 16-bit words and as floats of full scale 1.
#ifndef TM_SE_BF_STREAM_SAMPLE_FORMAT_H
#define TM_SE_BF_STREAM_SAMPLE_FORMAT_H

#include <cstdint>

constexpr float kSampleFullScale = 32768.0f;  // 16-bit value of a float sample of 1
constexpr float kSampleStep = 1.0f / kSampleFullScale;

// The nearest integer, half to even, for values below 2^22: the sum has no bits for a fraction.
inline float sample_round(float x) {
  constexpr float kRounder = 12582912.0f;  // 1.5 * 2^23
  return (x + kRounder) - kRounder;
}

// Rounds to 16 bits, saturating; what is not finite gives 0. Exact for x = word / 32768.
void words_from_floats(const float *x, int32_t count, int16_t *words);

// Exact.
void floats_from_words(const int16_t *words, int32_t count, float *x);

// Limits to 60 dB above full scale, for the filters; what is not finite gives 0. `limited` may be
// `x`.
void limit_floats(const float *x, int32_t count, float *limited);

// Number of samples that are not finite; `first` is set to the index of the first one, if any.
int32_t count_not_finite(const float *x, int32_t count, int32_t *first);

#endif  // TM_SE_BF_STREAM_SAMPLE_FORMAT_H
