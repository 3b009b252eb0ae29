// What follows from the levels of blocks.
#include "channel_guard.h"

#include <cmath>
#include <cstring>

#include "bin_vector.h"
#include "fixed_maths.h"
#include "support/se_vector.h"

namespace {

// Smoothing of the levels over 2.5 blocks.
constexpr float kLevelDecay = 0.6f;
constexpr float kLevelIntake = 1.0f - kLevelDecay;

// Ratio of levels, 34 dB, beyond which the weaker microphone is left out.
constexpr float kDeadRatio = 50.0f;

// Sums of absolute values of a block: without sound, and with sound of a mean of 1.
constexpr float kSilentSum = 1.0f;
constexpr float kAudibleSum = static_cast<float>(kRefinedHop);

// The imbalance follows over 100 blocks, and one block counts for 17 dB at most.
constexpr float kImbalanceFollow = 0.01f;
constexpr float kLargestImbalance = 2.0f;

// Imbalance that is left alone: 1 dB.
constexpr float kToleratedImbalance = 0.12f;

SE_BF_VECTOR_CLONES void scale(float *x, float factor) {
  for (int32_t n = 0; n < kRefinedHop; ++n) {
    x[n] *= factor;
  }
}

void follow_imbalance(channel_guard *guard, const float *absolute) {
  const double ratio = static_cast<double>(absolute[1]) / static_cast<double>(absolute[0]);
  const float now = static_cast<float>(fixed_log(ratio));
  const float below = now < kLargestImbalance ? now : kLargestImbalance;
  const float within = below > -kLargestImbalance ? below : -kLargestImbalance;
  guard->log_imbalance += kImbalanceFollow * (within - guard->log_imbalance);
}

// The channel that stands for both, or kBothChannels.
int32_t judge_block(channel_guard *guard, const block_facts *facts) {
  const float *now = facts->sum;
  float *level = guard->level;
  for (int32_t m = 0; m < 2; ++m) {
    level[m] = kLevelDecay * level[m] + kLevelIntake * now[m];
  }
  if ((now[0] < kSilentSum && now[1] > kAudibleSum) || level[1] > kDeadRatio * level[0]) {
    return 1;
  }
  if ((now[1] < kSilentSum && now[0] > kAudibleSum) || level[0] > kDeadRatio * level[1]) {
    return 0;
  }
  if (facts->copies.louder != kBothChannels) {
    return facts->copies.louder;
  }
  if (now[0] > kSilentSum && now[1] > kSilentSum) {
    follow_imbalance(guard, now);
  }
  return kBothChannels;
}

}  // namespace

int32_t channel_guard_block(channel_guard *guard, const block_facts *facts, float *first,
                            float *second) {
  const int32_t alone = judge_block(guard, facts);
  // Each channel goes half of the way. One that stands for both keeps the level that it had.
  if (std::fabs(guard->log_imbalance) > kToleratedImbalance) {
    const double half = static_cast<double>(0.5f * guard->log_imbalance);
    scale(first, static_cast<float>(fixed_exp(half)));
    scale(second, static_cast<float>(fixed_exp(-half)));
  }
  if (alone != kBothChannels) {
    std::memcpy(alone == 0 ? second : first, alone == 0 ? first : second,
                kRefinedHop * sizeof(float));
  }
  return alone;
}
