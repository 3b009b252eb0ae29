// Averages of speech and noise, and the search among delays.
#include "talker_direction.h"

#include <cstring>

#include "phase_ramp.h"
#include "support/se_maths.h"
#include "support/se_vector.h"

namespace {

// 500 frames, 10 s: talkers rarely move faster, and seldom have more than that to say in a row.
constexpr float kDecay = 0.998f;
constexpr float kIntake = 1.0f - kDecay;

// Frames before speech and noise are told apart well enough to be counted.
constexpr int32_t kNoiseFrom = 4;
constexpr int32_t kSpeechFrom = 16;

// A search begins every 10 frames, 0.2 s; the first one at frame 33, to end at 39: what is heard
// earlier often misleads. Its first frame prepares it, the next ones search in coarse steps and the
// last one in fine ones.
constexpr int32_t kSearchFrames = 10;
constexpr int32_t kFirstSearch = 33;
constexpr int32_t kFineFrame = 6;

// Candidates reach to 8 samples, 17 cm of path, on both sides. Coarse ones are much closer than the
// width of a peak of 5.5 kHz. Fine ones reach past the neighbours of the best of them.
constexpr float kLargestDelay = 8.0f;
constexpr float kCoarseStep = 0.25f;
constexpr float kFineStep = 0.125f;
constexpr float kFineReach = 0.375f;
constexpr int32_t kFineCandidates = 7;

// The frames after the one that prepares the coarse search share its 65 candidates.
constexpr int32_t kMostCandidates = 13;  // in one frame
static_assert(kMostCandidates * (kFineFrame - 1) >= 65, "time for all candidates");

// Index of 200 Hz, below which delays are lost in noise.
constexpr int32_t kFirstIndex = 6;

// A peak below this share of the largest possible says nothing: noise reaches 0.1.
constexpr float kLeastPeak = 0.15f;

// The delay moves to a new one with a time constant of 12 frames, 0.25 s.
// Steps below a thousandth of a sample are not worth a new phase ramp.
constexpr float kFollow = 0.08f;
constexpr float kNearEnough = 0.001f;

// What was loud a moment ago still reverberates: 0.7 a frame is a reverberation time of 0.8 s.
// Speech counts by what it has above 1.5 times that, so that the direct sound decides.
constexpr float kRingDecay = 0.7f;
constexpr float kRingWeight = 1.5f;

// Rows of sums: 280 to 1500 Hz, where most of a vowel is, and 2 to 5.5 kHz. A frame counts by the
// share of the former, against twice the latter: keys, dishes and paper have little of it.
constexpr int32_t kVowelFirst = 8;
constexpr int32_t kVowelEnd = 48;
constexpr int32_t kClickFirst = 64;
constexpr float kClickWeight = 2.0f;

// Keep quotients defined, and averages of silence from becoming subnormal, which some processors
// handle slowly.
constexpr float kLeastPower = 1e-18f;
constexpr float kLeastWeight = 1e-12f;

// Spectra start at DC, the vectors of this file at bin 1.
constexpr int32_t kFirstBin = 1;

SE_BF_VECTOR_CLONES void mean_power(const bin_spectrum *x0, const bin_spectrum *x1, float *power) {
  SE_BF_INDEPENDENT_ROUNDS
  for (int32_t i = 0; i < kDirectionBins; ++i) {
    const int32_t k = i + kFirstBin;
    const float first = x0->re[k] * x0->re[k] + x0->im[k] * x0->im[k];
    const float second = x1->re[k] * x1->re[k] + x1->im[k] * x1->im[k];
    power[i] = (first + second) * 0.5f + kLeastPower;
  }
}

// Power of speech in some bins: sum of p max(P - lambda, 0).
SE_BF_VECTOR_CLONES float speech_power(const talker_direction *d, const float *prob,
                                       const float *lambda, int32_t first, int32_t end) {
  const sum_row none = {};
  sum_row sums = {};
  for (int32_t i = first; i < end; i += kSumLanes) {
    sum_row power;
    sum_row noise;
    sum_row speech;
    load_row(&power, d->power + i);
    load_row(&noise, lambda + i);
    load_row(&speech, prob + i);
    const sum_row excess = power - noise;
    sums += speech * (excess > none ? excess : none);
  }
  return add_row(&sums);
}

// By how much the frame sounds like a voice rather than a click, 0 .. 1.
float likeness_to_voice(const talker_direction *d, const float *prob, const float *lambda) {
  const float vowel = speech_power(d, prob, lambda, kVowelFirst, kVowelEnd) + kLeastPower;
  const float click = speech_power(d, prob, lambda, kClickFirst, kDirectionBins);
  const float share = vowel / (vowel + kClickWeight * click);
  return share * share;
}

// w(speech) = b p max(1 - (lambda + 1.5 R) / P, 0), w(noise) = 1 - p; then R = max(0.7 R, P); each
// average A = 0.998 A + 0.002 w a. b is in speech_counts.
SE_BF_VECTOR_CLONES void average_bins(talker_direction *d, const bin_spectrum *x0,
                                      const bin_spectrum *x1, const float *prob,
                                      const float *lambda, float speech_counts,
                                      float noise_counts) {
  SE_BF_INDEPENDENT_ROUNDS
  for (int32_t i = 0; i < kDirectionBins; ++i) {
    const int32_t k = i + kFirstBin;
    const float power0 = x0->re[k] * x0->re[k] + x0->im[k] * x0->im[k];
    const float power1 = x1->re[k] * x1->re[k] + x1->im[k] * x1->im[k];
    const float cross_re = x0->re[k] * x1->re[k] + x0->im[k] * x1->im[k];
    const float cross_im = x0->im[k] * x1->re[k] - x0->re[k] * x1->im[k];

    const float rung = kRingDecay * d->ringing[i];
    const float excess = 1.0f - (lambda[i] + kRingWeight * d->ringing[i]) / d->power[i];
    d->ringing[i] = rung > d->power[i] ? rung : d->power[i];
    const float share = excess > 0.0f ? excess : 0.0f;
    const float speech = speech_counts * (prob[i] * share);
    const float noise = noise_counts * (1.0f - prob[i]);

    direction_average *s = &d->speech;
    s->weight[i] = kDecay * s->weight[i] + speech + kLeastWeight;
    s->power0[i] = kDecay * s->power0[i] + speech * power0 + kLeastPower;
    s->power1[i] = kDecay * s->power1[i] + speech * power1 + kLeastPower;
    s->cross_re[i] = kDecay * s->cross_re[i] + speech * cross_re + kLeastPower;
    s->cross_im[i] = kDecay * s->cross_im[i] + speech * cross_im + kLeastPower;
    direction_average *n = &d->noise;
    n->weight[i] = kDecay * n->weight[i] + noise + kLeastWeight;
    n->power0[i] = kDecay * n->power0[i] + noise * power0 + kLeastPower;
    n->power1[i] = kDecay * n->power1[i] + noise * power1 + kLeastPower;
    n->cross_re[i] = kDecay * n->cross_re[i] + noise * cross_re + kLeastPower;
    n->cross_im[i] = kDecay * n->cross_im[i] + noise * cross_im + kLeastPower;
  }
}

// D = cross-spectrum of speech less that of noise, likewise the powers D0 and D1;
// c = min(|D| / sqrt(D0 D1), 1) where D0 D1 > 0, else 0; phasor = c sqrt(w) D / |D| turned by the
// ramp. The phase of D is that of the delay, 2 pi k delay / N, with a positive sign: the ramp of
// the right delay takes it away.
SE_BF_VECTOR_CLONES void weigh_bins(talker_direction *d, const bin_spectrum *ramp, float *weight) {
  const direction_average *s = &d->speech;
  const direction_average *n = &d->noise;
  SE_BF_INDEPENDENT_ROUNDS
  for (int32_t i = 0; i < kDirectionBins; ++i) {
    const float speech = 1.0f / s->weight[i];
    const float noise = 1.0f / n->weight[i];
    const float power0 = s->power0[i] * speech - n->power0[i] * noise;
    const float power1 = s->power1[i] * speech - n->power1[i] * noise;
    const float cross_re = s->cross_re[i] * speech - n->cross_re[i] * noise;
    const float cross_im = s->cross_im[i] * speech - n->cross_im[i] * noise;
    const float both = (power0 > 0.0f ? power0 : 0.0f) * (power1 > 0.0f ? power1 : 0.0f);
    const float magnitude = se_sqrt(cross_re * cross_re + cross_im * cross_im);
    const float coherent = magnitude / (se_sqrt(both) + kLeastPower);
    const float coherence = coherent < 1.0f ? coherent : 1.0f;
    const float w = both > 0.0f ? coherence * se_sqrt(s->weight[i]) : 0.0f;
    const float unit = w / (magnitude + kLeastPower);
    weight[i] = w;
    const int32_t k = i + kFirstBin;
    d->phasor_re[i] = unit * (cross_re * ramp->re[k] - cross_im * ramp->im[k]);
    d->phasor_im[i] = unit * (cross_re * ramp->im[k] + cross_im * ramp->re[k]);
  }
}

// sums[c] = sum over bins of Re(phasor turn^c), c = 0 .. count - 1; afterwards phasor is
// phasor turn^count.
SE_BF_VECTOR_CLONES void sum_and_turn(float *re, float *im, const float *turn_re,
                                      const float *turn_im, int32_t count, float *sums) {
  sum_row rows[kMostCandidates] = {};
  for (int32_t k = 0; k < kDirectionBins; k += kSumLanes) {
    sum_row a;
    sum_row b;
    sum_row c;
    sum_row s;
    load_row(&a, re + k);
    load_row(&b, im + k);
    load_row(&c, turn_re + k);
    load_row(&s, turn_im + k);
    for (int32_t i = 0; i < count; ++i) {
      rows[i] += a;
      const sum_row next = a * c - b * s;
      b = a * s + b * c;
      a = next;
    }
    std::memcpy(re + k, &a, sizeof a);
    std::memcpy(im + k, &b, sizeof b);
  }
  for (int32_t i = 0; i < count; ++i) {
    sums[i] = add_row(&rows[i]);
  }
}

static_assert(kDirectionBins % kSumLanes == 0, "whole rows of sums");

SE_BF_VECTOR_CLONES float sum_of(const float *values) {
  sum_row sums = {};
  for (int32_t i = 0; i < kDirectionBins; i += kSumLanes) {
    sum_row next;
    load_row(&next, values + i);
    sums += next;
  }
  return add_row(&sums);
}

void begin_search(talker_direction *d, float first_delay) {
  bin_spectrum ramp;
  float weight[kDirectionBins];
  phase_ramp_fill(&ramp, first_delay);
  weigh_bins(d, &ramp, weight);
  for (int32_t i = 0; i < kFirstIndex; ++i) {
    weight[i] = 0.0f;
    d->phasor_re[i] = 0.0f;
    d->phasor_im[i] = 0.0f;
  }
  d->weight_sum = sum_of(weight) + kLeastWeight;
  d->next_delay = first_delay;
  d->best_delay = first_delay;
  d->best_sum = 0.0f;
}

// Tries the next candidates, `count` of them unless the largest delay comes first.
void continue_search(talker_direction *d, const bin_spectrum *turn, float step, int32_t count) {
  float sums[kMostCandidates];
  sum_and_turn(d->phasor_re, d->phasor_im, turn->re + kFirstBin, turn->im + kFirstBin, count, sums);
  for (int32_t i = 0; i < count && d->next_delay <= kLargestDelay; ++i) {
    if (sums[i] > d->best_sum) {
      d->best_sum = sums[i];
      d->best_delay = d->next_delay;
    }
    d->next_delay += step;
  }
}

void finish_search(talker_direction *d) {
  const float lowest = d->best_delay - kFineReach;
  begin_search(d, lowest > -kLargestDelay ? lowest : -kLargestDelay);
  continue_search(d, &d->fine_turn, kFineStep, kFineCandidates);
  d->confidence = d->best_sum / d->weight_sum;
  if (d->confidence <= kLeastPeak) {
    return;
  }
  d->target = d->best_delay;
  if (!d->found) {
    // Nothing has been aligned so far, so nobody hears a jump.
    d->delay = d->target;
    d->found = true;
  }
}

// The share of the frame in the search.
void search(talker_direction *d) {
  if (d->frame < kFirstSearch) {
    return;
  }
  const int32_t since = (d->frame - kFirstSearch) % kSearchFrames;
  if (since == 0) {
    begin_search(d, -kLargestDelay);
  } else if (since < kFineFrame) {
    continue_search(d, &d->coarse_turn, kCoarseStep, kMostCandidates);
  } else if (since == kFineFrame) {
    finish_search(d);
  }
}

}  // namespace

bool talker_direction_init(talker_direction *d, core_state *core) {
  d->presence = mcra_init_in(core, kDirectionBins);
  phase_ramp_fill(&d->coarse_turn, kCoarseStep);
  phase_ramp_fill(&d->fine_turn, kFineStep);
  return d->presence != nullptr;
}

void talker_direction_frame(talker_direction *d, const bin_spectrum *x0, const bin_spectrum *x1) {
  mean_power(x0, x1, d->power);
  // The first frame counts twice: then what this tracker does every 15 frames falls on another
  // frame than that of the noise.
  if (d->frame == 0) {
    mcra_do_mcra(d->presence, d->power);
  }
  const float *lambda = mcra_do_mcra(d->presence, d->power);
  const float *prob = mcra_get_speech_prob(d->presence);
  const float voice = likeness_to_voice(d, prob, lambda);
  const float speech_counts = d->frame >= kSpeechFrom ? kIntake * voice : 0.0f;
  const float noise_counts = d->frame >= kNoiseFrom ? kIntake : 0.0f;
  average_bins(d, x0, x1, prob, lambda, speech_counts, noise_counts);
  d->frame += 1;
  search(d);
  const float way = d->target - d->delay;
  const bool arrived = way < kNearEnough && way > -kNearEnough;
  d->delay = arrived ? d->target : d->delay + kFollow * way;
}
