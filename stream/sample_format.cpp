// Conversions, written so that the loops run on vectors.
#include "sample_format.h"

#include <cfloat>
#include <cmath>

#include "support/se_vector.h"

namespace {

// Largest float that the filters get, 60 dB above full scale: no sound is changed, and no sum of
// theirs overflows.
constexpr float kLoudest = 1000.0f;

bool is_finite(float x) {
  return std::fabs(x) <= FLT_MAX;
}

// The loops are in functions of this file, as clang has clones for several processors only there.
SE_BF_VECTOR_CLONES void round_all(const float *x, int32_t count, int16_t *words) {
  for (int32_t i = 0; i < count; ++i) {
    const float scaled = is_finite(x[i]) ? x[i] * kSampleFullScale : 0.0f;
    const float below = scaled < INT16_MAX ? scaled : INT16_MAX;
    const float within = below > INT16_MIN ? below : INT16_MIN;
    words[i] = static_cast<int16_t>(static_cast<int32_t>(sample_round(within)));
  }
}

SE_BF_VECTOR_CLONES void scale_all(const int16_t *words, int32_t count, float *x) {
  for (int32_t i = 0; i < count; ++i) {
    x[i] = static_cast<float>(words[i]) * kSampleStep;
  }
}

SE_BF_VECTOR_CLONES void limit_all(const float *x, int32_t count, float *limited) {
  for (int32_t i = 0; i < count; ++i) {
    const float finite = is_finite(x[i]) ? x[i] : 0.0f;
    const float below = finite < kLoudest ? finite : kLoudest;
    limited[i] = below > -kLoudest ? below : -kLoudest;
  }
}

SE_BF_VECTOR_CLONES int32_t count_them(const float *x, int32_t count) {
  int32_t found = 0;
  for (int32_t i = 0; i < count; ++i) {
    found += is_finite(x[i]) ? 0 : 1;
  }
  return found;
}

}  // namespace

void words_from_floats(const float *x, int32_t count, int16_t *words) {
  round_all(x, count, words);
}

void floats_from_words(const int16_t *words, int32_t count, float *x) {
  scale_all(words, count, x);
}

void limit_floats(const float *x, int32_t count, float *limited) {
  limit_all(x, count, limited);
}

int32_t count_not_finite(const float *x, int32_t count, int32_t *first) {
  const int32_t found = count_them(x, count);
  for (int32_t i = 0; found > 0; ++i) {
    if (!is_finite(x[i])) {
      *first = i;
      break;
    }
  }
  return found;
}
