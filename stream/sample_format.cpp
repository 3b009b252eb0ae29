// Conversions, written so that the loops run on vectors.
#include "sample_format.h"

#include <cfloat>
#include <cmath>
#include <cstring>

#include "support/se_vector.h"

namespace {

// Largest float that the filters get, 60 dB above full scale: no sound is changed, and no sum of
// theirs overflows.
constexpr float kLoudest = 1000.0f;

bool is_finite(float x) {
  return std::fabs(x) <= FLT_MAX;
}

// Rounds a value that fits 16 bits. The lowest bits of the sum are those of the integer: that saves
// taking the rounder off again, and the conversion.
int16_t rounded_word(float x) {
  const float sum = x + kSampleRounder;
  uint32_t bits = 0;
  std::memcpy(&bits, &sum, sizeof bits);
  return static_cast<int16_t>(bits);
}

// The loops are in functions of this file, as clang has clones for several processors only there.
// Their limits are parameters: with constants gcc makes twice the instructions of the selections.
SE_BF_VECTOR_CLONES int32_t round_all(const float *x, int32_t count, float least, float most,
                                      int16_t *words) {
  int32_t finite = 0;
  for (int32_t i = 0; i < count; ++i) {
    const bool usable = is_finite(x[i]);
    finite += usable ? 1 : 0;
    const float scaled = usable ? x[i] * kSampleFullScale : 0.0f;
    const float below = scaled < most ? scaled : most;
    const float within = below > least ? below : least;
    words[i] = rounded_word(within);
  }
  return count - finite;
}

SE_BF_VECTOR_CLONES void scale_all(const int16_t *words, int32_t count, float step, float *x) {
  for (int32_t i = 0; i < count; ++i) {
    x[i] = static_cast<float>(words[i]) * step;
  }
}

SE_BF_VECTOR_CLONES int32_t limit_all(const float *x, int32_t count, float least, float most,
                                      float *limited) {
  int32_t finite = 0;
  for (int32_t i = 0; i < count; ++i) {
    const bool usable = is_finite(x[i]);
    finite += usable ? 1 : 0;
    const float number = usable ? x[i] : 0.0f;
    const float below = number < most ? number : most;
    limited[i] = below > least ? below : least;
  }
  return count - finite;
}

}  // namespace

int32_t words_from_floats(const float *x, int32_t count, int16_t *words) {
  return round_all(x, count, INT16_MIN, INT16_MAX, words);
}

void floats_from_words(const int16_t *words, int32_t count, float factor, float *x) {
  scale_all(words, count, factor * kSampleStep, x);
}

int32_t limit_floats(const float *x, int32_t count, float *limited) {
  return limit_all(x, count, -kLoudest, kLoudest, limited);
}

int32_t first_not_finite(const float *x) {
  int32_t first = 0;
  while (is_finite(x[first])) {
    ++first;
  }
  return first;
}
