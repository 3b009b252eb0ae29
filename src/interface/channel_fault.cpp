// Level comparison of two microphones.
#include "interface/channel_fault.h"

namespace {

// Smoothing of the levels from call to call; the complement is formed in single precision.
constexpr float kLevelDecay = 0.9f;
constexpr float kLevelIntake = 1.0f - kLevelDecay;

// Level of a channel without any signal; compared in double precision.
constexpr double kSilentLevel = 1e-10;

// Ratio of levels, 40 dB, beyond which the weaker microphone counts as dead.
constexpr float kDeadRatio = 100.0f;

// Smoothed sums of absolute sample values of channel 0 and 1, over the whole call.
float pwr1 = 0.0f;
float pwr2 = 0.0f;

float absolute_sum(const int16_t *in, int32_t n) {
  float sum = 0.0f;
  for (int32_t i = 0; i < n; ++i) {
    const int32_t sample = in[2 * i];
    sum += static_cast<float>(sample < 0 ? -sample : sample);
  }
  return sum;
}

void copy_channel(int16_t *in, int32_t from, int32_t to, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    in[2 * i + to] = in[2 * i + from];
  }
}

bool silent(float level) {
  return static_cast<double>(level) < kSilentLevel;
}

}  // namespace

int is_one_channel_brocken(int, int16_t *in, int32_t n) {
  pwr1 = kLevelDecay * pwr1 + kLevelIntake * absolute_sum(in, n);
  pwr2 = kLevelDecay * pwr2 + kLevelIntake * absolute_sum(in + 1, n);

  if (pwr1 < pwr2) {
    if (silent(pwr1) || kDeadRatio * pwr1 < pwr2) {
      copy_channel(in, 1, 0, n);
      return 1;
    }
    return 0;
  }
  if (silent(pwr2) || pwr1 > kDeadRatio * pwr2) {
    copy_channel(in, 0, 1, n);
    return 1;
  }
  return pwr1 == pwr2 ? 1 : 0;
}
