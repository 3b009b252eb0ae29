// Level comparison of two microphones.
#include "interface/channel_fault.h"

#include "support/has_neon.h"
#include "support/pcm_neon.h"
#include "support/pcm_pair.h"
#include "support/se_vector.h"

namespace {

// Smoothing of the levels from call to call; the complement is formed in single precision.
constexpr float kLevelDecay = 0.9f;
constexpr float kLevelIntake = 1.0f - kLevelDecay;

// A channel whose level is below this has no signal; compared in double precision.
constexpr double kSilentLevel = 1e-10;

// Ratio of levels above which the weaker microphone counts as dead: 40 dB.
constexpr float kDeadRatio = 100.0f;

// Single precision holds every integer up to 2^24. The absolute values of kExactPairs samples
// cannot add up to more.
constexpr float kExactSum = 16777216.0f;
constexpr int32_t kExactPairs = 512;

struct channel_sums {
  float first;
  float second;
};

int32_t magnitude(int16_t sample) {
  return sample < 0 ? -sample : sample;
}

// Sums of absolute values over n sample pairs in integer arithmetic, n at most kExactPairs.
SE_BF_VECTOR_CLONES channel_sums short_sums(const int16_t *in, int32_t n) {
  int32_t first = 0;
  int32_t second = 0;
  const int32_t done = has_neon() ? pcm_neon.add_magnitudes(in, n, &first, &second) : 0;
  for (int32_t i = done; i < n; ++i) {
    first += magnitude(in[2 * i]);
    second += magnitude(in[2 * i + 1]);
  }
  return {static_cast<float>(first), static_cast<float>(second)};
}

// The sum of one channel, added sample by sample in single precision: the definition of a level,
// which matters once sums leave the exact range.
SE_BF_RARELY_RUN float rounded_sum(const int16_t *in, int32_t n) {
  float sum = 0.0f;
  for (int32_t i = 0; i < n; ++i) {
    sum += static_cast<float>(magnitude(in[2 * i]));
  }
  return sum;
}

// Levels are defined as sums in single precision, in the order of the samples. As long as a sum
// stays within 2^24 no addition rounds, so integer sums in any order give the same value and are
// faster.
channel_sums absolute_sums(const int16_t *in, int32_t n) {
  channel_sums sums = {0.0f, 0.0f};
  for (int32_t done = 0; done < n; done += kExactPairs) {
    const int32_t count = n - done < kExactPairs ? n - done : kExactPairs;
    const channel_sums part = short_sums(in + 2 * done, count);
    sums = {sums.first + part.first, sums.second + part.second};
  }
  if (sums.first >= kExactSum) {
    sums.first = rounded_sum(in, n);
  }
  if (sums.second >= kExactSum) {
    sums.second = rounded_sum(in + 1, n);
  }
  return sums;
}

// Copies the good channel over the dead one.
SE_BF_RARELY_RUN void copy_channel(int16_t *in, int32_t good, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    const pcm_pair pair = pcm_pair_at(in, i);
    pcm_pair_fill(in, i, good == 0 ? pair.first : pair.second);
  }
}

bool silent(float level) {
  return static_cast<double>(level) < kSilentLevel;
}

}  // namespace

int channel_fault_check(core_state *core, int16_t *in, int32_t n) {
  // The levels are smoothed sums over the whole call.
  const channel_sums sums = absolute_sums(in, n);
  const float first = kLevelDecay * core->pwr1 + kLevelIntake * sums.first;
  const float second = kLevelDecay * core->pwr2 + kLevelIntake * sums.second;
  core->pwr1 = first;
  core->pwr2 = second;

  if (first < second) {
    if (silent(first) || kDeadRatio * first < second) {
      copy_channel(in, 1, n);
      return 1;
    }
    return 0;
  }
  if (silent(second) || first > kDeadRatio * second) {
    copy_channel(in, 0, n);
    return 1;
  }
  return first == second ? 1 : 0;
}
