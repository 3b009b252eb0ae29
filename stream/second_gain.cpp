// All averages and the gain, bin by bin.
#include "second_gain.h"

#include "support/se_vector.h"

namespace {

// Noise is averaged over 67 frames, 1.3 s.
constexpr float kNoiseDecay = 0.985f;
constexpr float kNoiseIntake = 1.0f - kNoiseDecay;

// Before noise has been seen its power is 100 times the least: everything passes.
constexpr float kLeastNoisePower = 1.0f / kRefinedPowerScale;
constexpr float kLeastNoiseShare = 0.01f;

// Speech is hardly smoothed: its onset must pass.
constexpr float kSpeechDecay = 0.2f;
constexpr float kSpeechIntake = 1.0f - kSpeechDecay;

// Over-subtraction, 3 dB: what is left of the noise fluctuates about its mean.
constexpr float kNoiseWeight = 2.0f;

// Smoothing of the power that is kept, and its slow average, which decays like a room with a
// reverberation time of 0.4 s.
constexpr float kKeptDecay = 0.3f;
constexpr float kKeptIntake = 1.0f - kKeptDecay;
constexpr float kLateDecay = 0.7f;
constexpr float kLateIntake = 1.0f - kLateDecay;

// Share of the slow average that counts as reverberation, and the least factor it leaves: -10 dB.
constexpr float kLateShare = 0.1f;
constexpr float kLeastLateFactor = 0.1f;

// Keeps a quotient of powers defined, and averages of silence from becoming subnormal, which some
// processors handle slowly.
constexpr float kLeastPower = 1e-18f;

//   q = 1 - g^2; B = average of q P; Q = average of q; lambda = (B + 1/N^2) / (Q + 0.01)
//   S = 0.2 S + 0.8 g^2 P; G^2 = S / (S + 2 lambda)
//   K = 0.3 K + 0.7 G^2 P; R = 0.7 R + 0.3 K
//   G^2 becomes G^2 max(1 - 0.1 R(3 frames ago) / K, 0.1)
SE_BF_VECTOR_CLONES void update_bins(second_gain *__restrict s, const float *__restrict power,
                                     const float *__restrict first, float *__restrict squared_gain,
                                     float *__restrict over_noise, const float *__restrict last,
                                     float *__restrict newest, const float *__restrict oldest) {
  for (int32_t k = 0; k < kRefinedBins; ++k) {
    const float passed = first[k] * first[k];
    const float removed = 1.0f - passed;
    const float noise_power =
        kNoiseDecay * s->noise_power[k] + kNoiseIntake * (removed * power[k]) + kLeastPower;
    const float noise_share =
        kNoiseDecay * s->noise_share[k] + kNoiseIntake * removed + kLeastPower;
    const float speech =
        kSpeechDecay * s->speech[k] + kSpeechIntake * (passed * power[k]) + kLeastPower;
    s->noise_power[k] = noise_power;
    s->noise_share[k] = noise_share;
    s->speech[k] = speech;

    const float weight = noise_share + kLeastNoiseShare;
    const float weighted_noise = noise_power + kLeastNoisePower;
    over_noise[k] = power[k] * weight / weighted_noise;
    const float gain = speech * weight / (speech * weight + kNoiseWeight * weighted_noise);
    const float kept = kKeptDecay * s->kept[k] + kKeptIntake * (gain * power[k]) + kLeastPower;
    s->kept[k] = kept;
    newest[k] = kLateDecay * last[k] + kLateIntake * kept;
    const float dry = 1.0f - kLateShare * oldest[k] / kept;
    squared_gain[k] = gain * (dry < kLeastLateFactor ? kLeastLateFactor : dry);
  }
}

}  // namespace

// The row after the newest is the oldest, of 3 frames ago once the new one has been counted.
void second_gain_frame(second_gain *s, const float *power, const float *first, float *squared_gain,
                       float *over_noise) {
  const int32_t last = s->newest;
  s->newest = (last + 1) % kLateFrames;
  const int32_t oldest = (s->newest + 1) % kLateFrames;
  update_bins(s, power, first, squared_gain, over_noise, s->late[last], s->late[s->newest],
              s->late[oldest]);
}
