// Levels and energies of a block, and what follows from them.
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

// Blocks in a section: 0.2 s.
constexpr int32_t kSectionBlocks = 10;

// Share of the energy, -30 dB, up to which the rest of one channel after the other is taken away
// counts as none; real pairs leave -22 dB or more over a second. Twice that ends the state. -50 dB
// is less than the noise of two microphones even in one block: what was before then counts no more.
constexpr float kLeastResidual = 0.001f;
constexpr float kRelease = 2.0f;
constexpr float kExactResidual = 0.00001f;

struct block_sums {
  float absolute[2];
  channel_energies energies;
};

SE_BF_VECTOR_CLONES void sum_block(const float *__restrict x, const float *__restrict y,
                                   block_sums *sums) {
  float lanes[7][kSumLanes] = {};
  for (int32_t n = 0; n < kRefinedHop; n += kSumLanes) {
    for (int32_t i = 0; i < kSumLanes; ++i) {
      const float a = x[n + i];
      const float b = y[n + i];
      lanes[0][i] += std::fabs(a);
      lanes[1][i] += std::fabs(b);
      lanes[2][i] += a;
      lanes[3][i] += b;
      lanes[4][i] += a * a;
      lanes[5][i] += b * b;
      lanes[6][i] += a * b;
    }
  }
  const float count = static_cast<float>(kRefinedHop);
  const float mean0 = add_lanes(lanes[2]) / count;
  const float mean1 = add_lanes(lanes[3]) / count;
  sums->absolute[0] = add_lanes(lanes[0]);
  sums->absolute[1] = add_lanes(lanes[1]);
  sums->energies = {add_lanes(lanes[4]) - count * (mean0 * mean0),
                    add_lanes(lanes[5]) - count * (mean1 * mean1),
                    add_lanes(lanes[6]) - count * (mean0 * mean1)};
}

SE_BF_VECTOR_CLONES void scale(float *x, float factor) {
  for (int32_t n = 0; n < kRefinedHop; ++n) {
    x[n] *= factor;
  }
}

// The energy of one channel that the other does not explain is (1 - r^2) of its own, with the
// correlation r: whether that is below a limit.
bool explained(const channel_energies *sum, float limit) {
  const float most = sum->first * sum->second;
  return most > 0.0f && most - sum->both * sum->both < limit * most;
}

// Adds the block, and returns the sums over the last second.
channel_energies add_energies(channel_guard *guard, const channel_energies *block) {
  if (!guard->proportional && explained(block, kExactResidual)) {
    std::memset(guard->sections, 0, sizeof guard->sections);
  }
  if (guard->section_blocks == kSectionBlocks) {
    guard->section_blocks = 0;
    guard->section = (guard->section + 1) % kGuardSections;
    guard->sections[guard->section] = {0.0f, 0.0f, 0.0f};
  }
  guard->section_blocks += 1;
  channel_energies *current = &guard->sections[guard->section];
  *current = {current->first + block->first, current->second + block->second,
              current->both + block->both};
  channel_energies sum = {0.0f, 0.0f, 0.0f};
  for (const channel_energies &section : guard->sections) {
    sum = {sum.first + section.first, sum.second + section.second, sum.both + section.both};
  }
  return sum;
}

void follow_imbalance(channel_guard *guard, const float *absolute) {
  const double ratio = static_cast<double>(absolute[1]) / static_cast<double>(absolute[0]);
  const float now = static_cast<float>(fixed_log(ratio));
  const float below = now < kLargestImbalance ? now : kLargestImbalance;
  const float within = below > -kLargestImbalance ? below : -kLargestImbalance;
  guard->log_imbalance += kImbalanceFollow * (within - guard->log_imbalance);
}

// The channel that stands for both, or kBothChannels.
int32_t judge_block(channel_guard *guard, const block_sums *sums) {
  const float *now = sums->absolute;
  float *level = guard->level;
  for (int32_t m = 0; m < 2; ++m) {
    level[m] = kLevelDecay * level[m] + kLevelIntake * now[m];
  }
  const channel_energies second = add_energies(guard, &sums->energies);
  const float limit = guard->proportional ? kRelease * kLeastResidual : kLeastResidual;
  guard->proportional = explained(&second, limit);
  if ((now[0] < kSilentSum && now[1] > kAudibleSum) || level[1] > kDeadRatio * level[0]) {
    return 1;
  }
  if ((now[1] < kSilentSum && now[0] > kAudibleSum) || level[0] > kDeadRatio * level[1]) {
    return 0;
  }
  if (guard->proportional) {
    return second.second > second.first ? 1 : 0;
  }
  if (now[0] > kSilentSum && now[1] > kSilentSum) {
    follow_imbalance(guard, now);
  }
  return kBothChannels;
}

}  // namespace

int32_t channel_guard_block(channel_guard *guard, float *first, float *second) {
  block_sums sums;
  sum_block(first, second, &sums);
  const int32_t alone = judge_block(guard, &sums);
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
