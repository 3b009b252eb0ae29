// Samples as 16-bit words and as floats of full scale 1.
#ifndef TM_SE_BF_STREAM_SAMPLE_FORMAT_H
#define TM_SE_BF_STREAM_SAMPLE_FORMAT_H

#include <cstdint>

constexpr float kSampleFullScale = 32768.0f;  // 16-bit value of a float sample of 1
constexpr float kSampleStep = 1.0f / kSampleFullScale;

// A sum of this and a value below 2^22 has no bits for a fraction: it is rounded half to even.
constexpr float kSampleRounder = 12582912.0f;  // 1.5 * 2^23

// The nearest integer, half to even, for values below 2^22.
inline float sample_round(float x) {
  return (x + kSampleRounder) - kSampleRounder;
}

// Headroom of 3 dB: words are lowered by a factor of sqrt(1/2), rounded to the nearest, and floats
// raised again.
constexpr int32_t kHeadroomBits = 15;
constexpr int32_t kLowering = 23170;  // 2^15 / sqrt(2)
constexpr float kRaise = 1.41421356f;

// In this form compilers find the instruction for it.
inline int16_t sample_lower(int16_t word) {
  return static_cast<int16_t>((((word * kLowering) >> (kHeadroomBits - 1)) + 1) >> 1);
}

// Rounds to 16 bits, saturating; what is not finite gives 0. Exact for x = word / 32768. Returns
// how many samples are not finite.
int32_t words_from_floats(const float *x, int32_t count, int16_t *words);

// Exact; with a factor, rounded: 1 is full scale times `factor`.
void floats_from_words(const int16_t *words, int32_t count, float factor, float *x);

// Limits to 60 dB above full scale, for the filters; what is not finite gives 0. `limited` may be
// `x`. Returns how many samples are not finite.
int32_t limit_floats(const float *x, int32_t count, float *limited);

// Index of the first sample that is not finite; there must be one.
int32_t first_not_finite(const float *x);

#endif  // TM_SE_BF_STREAM_SAMPLE_FORMAT_H
