// Samples of full scale 1 and their 16-bit words, in loops that run on vectors.
#include "sample_words.h"

#include <cfloat>
#include <cmath>

#include "sample_format.h"

namespace {

// What lies between rounds to words within; the middle between two words goes to the even one.
constexpr float kBelowLargest = 32766.5f * kSampleStep;
constexpr float kAboveSmallest = -32767.5f * kSampleStep;

// std::clamp returns references, which keep loops from running on vectors.
float limit(float x, float low, float high) {
  const float below = x < high ? x : high;
  return below > low ? below : low;
}

int32_t round_word(float x) {
  const float within = limit(x * kSampleFullScale, INT16_MIN, INT16_MAX);
  return static_cast<int32_t>(sample_round(within));
}

int32_t is_full_scale(int32_t word) {
  return static_cast<int32_t>(word == INT16_MAX) + static_cast<int32_t>(word == INT16_MIN);
}

}  // namespace

int64_t samples_make_finite(float *x, size_t count) {
  // A 32-bit count keeps the loop on vectors, also in the functions below.
  int32_t bad = 0;
  for (size_t n = 0; n < count; ++n) {
    const bool good = std::fabs(x[n]) <= FLT_MAX;
    bad += good ? 0 : 1;
    x[n] = good ? x[n] : 0.0f;
  }
  return bad;
}

int64_t samples_amplify(float *x, size_t count, float gain) {
  int32_t full = 0;
  for (size_t n = 0; n < count; ++n) {
    const float y = limit(gain * x[n], -1.0f, 1.0f);
    full += (y > kBelowLargest ? 1 : 0) + (y <= kAboveSmallest ? 1 : 0);
    x[n] = y;
  }
  return full;
}

int64_t samples_to_words(const float *x, size_t count, int16_t *words) {
  int32_t full = 0;
  for (size_t n = 0; n < count; ++n) {
    const int32_t word = round_word(x[n]);
    full += is_full_scale(word);
    words[n] = static_cast<int16_t>(word);
  }
  return full;
}
