// Runs hours of audio through one instance and watches that nothing drifts: values stay finite, the
// pool stays as it is, the level and the speed of the last hour are those of the first.
//
// soak NAME MODE CHANNELS HOURS. Prints a line per hour and `hash NAME VALUE` of all output; exit 1
// when a check fails. Linked to the library's objects, so that it can look inside.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "interface/se_bf_instance.h"
#include "streams/integer_signals.h"

namespace {

constexpr int32_t kHop = 192;
constexpr int32_t kCallSamples = 320;
constexpr int32_t kCallsPerHour = 3600 * kSecond / kCallSamples;
constexpr int32_t kCallsPerMinute = 60 * kSecond / kCallSamples;
constexpr int32_t kTalkerDelay = 3;
constexpr int32_t kMostHours = 37;  // beyond, the sample count leaves 32 bits
constexpr double kSlowest = 1.5;    // processor time of the last hour over that of the first
constexpr double kLevelShift =
    2.0;  // mean square of the last hour over that of the first, or under

struct scene {
  talker voice;
  uint32_t seed;
  int32_t dry[kTalkerDelay + 1];
  int32_t time;
};

struct hour_figures {
  double processor_s;
  double mean_square;
  bool finite;
};

// One call's worth of a talker in noise that falls silent for two minutes of every six. Channel 1
// hears the talker three samples later.
void make_block(scene *s, bool talking, int32_t channels, std::vector<int16_t> *block) {
  for (int32_t i = 0; i < kCallSamples; ++i) {
    const int32_t slot = s->time % (kTalkerDelay + 1);
    const int32_t late = s->dry[(slot + 1) % (kTalkerDelay + 1)];
    s->dry[slot] = talking ? talk(&s->voice, s->time) : 0;
    const size_t first = static_cast<size_t>(i) * static_cast<size_t>(channels);
    (*block)[first] = saturate(s->dry[slot] + noise(&s->seed, 300));
    if (channels > 1) {
      (*block)[first + 1] = saturate(late * 9 / 10 + noise(&s->seed, 300));
    }
    s->time += 1;
  }
}

bool all_finite(const float *x, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    if (!std::isfinite(x[i])) {
      return false;
    }
  }
  return true;
}

bool all_finite(const se_complex *x, int32_t count) {
  return all_finite(&x->re, 2 * count);
}

// What a frame leaves behind.
bool frame_is_finite(const se_bf_inst *inst) {
  return all_finite(inst->frame, inst->hop_len) && all_finite(inst->bin_buf, inst->num_bins) &&
         all_finite(inst->mcra->lambdaD, inst->num_bins) &&
         all_finite(inst->mcra->speech_prob, inst->num_bins);
}

bool beamformer_is_finite(const mvdr_evd_state *mvdr) {
  const int32_t entries = mvdr->bins * mvdr->channels;
  bool finite = all_finite(mvdr->weights, entries) && all_finite(mvdr->steering, entries) &&
                all_finite(mvdr->speech_weight, mvdr->bins) &&
                all_finite(mvdr->noise_weight, mvdr->bins);
  for (int32_t k = 0; k < mvdr->bins; ++k) {
    const int32_t count = mvdr->channels * mvdr->channels;
    finite = finite && all_finite(mvdr->noise_cov[k].data, count) &&
             all_finite(mvdr->speech_cov[k].data, count) &&
             all_finite(mvdr->noise_cov_inv[k].data, count);
  }
  return finite;
}

double processor_seconds() {
  constexpr double kNanoseconds = 1e9;
  struct timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / kNanoseconds;
}

hour_figures run_hour(se_bf_inst *inst, scene *s, int32_t channels, uint64_t *hash) {
  constexpr int32_t kCycleMinutes = 6;
  constexpr int32_t kTalkingMinutes = 4;
  std::vector<int16_t> in(static_cast<size_t>(kCallSamples * channels));
  std::vector<int16_t> out(kCallSamples);
  hour_figures figures = {0.0, 0.0, true};
  for (int32_t call = 0; call < kCallsPerHour; ++call) {
    make_block(s, call / kCallsPerMinute % kCycleMinutes < kTalkingMinutes, channels, &in);
    const double start = processor_seconds();
    se_bf_do(inst, out.data(), in.data());
    figures.processor_s += processor_seconds() - start;
    figures.finite = figures.finite && frame_is_finite(inst);
    *hash = hash_words(*hash, out);
    for (const int16_t sample : out) {
      figures.mean_square += static_cast<double>(sample) * static_cast<double>(sample);
    }
  }
  figures.mean_square /= static_cast<double>(kCallsPerHour) * kCallSamples;
  figures.finite = figures.finite && beamformer_is_finite(inst->mvdr);
  return figures;
}

bool check(bool holds, const char *what) {
  std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
  return holds;
}

// All checks, each with a line of its own.
bool judge(const hour_figures &first, const hour_figures &last, bool finite, bool pool_still) {
  const double slower = last.processor_s / first.processor_s;
  const double louder = last.mean_square / first.mean_square;
  std::printf("last hour over first: processor time %.3f, mean square %.3f\n", slower, louder);
  const bool sound = check(finite, "every value is finite");
  const bool still = check(pool_still, "the pool stays where initialisation left it");
  const bool quick = check(slower <= kSlowest, "the last hour is as fast as the first");
  const bool level = check(louder < kLevelShift && louder > 1.0 / kLevelShift,
                           "the last hour is as loud as the first");
  return sound && still && quick && level;
}

int32_t number(const char *text) {
  constexpr int kDecimal = 10;
  return static_cast<int32_t>(std::strtol(text, nullptr, kDecimal));
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: soak NAME MODE CHANNELS HOURS\n");
    return 2;
  }
  const int32_t channels = number(argv[3]) > 1 ? 2 : 1;
  const int32_t hours = std::min(std::max(number(argv[4]), 1), kMostHours);
  const se_bf_create_param sizes = {static_cast<int16_t>(channels), kCallSamples, kHop};
  const se_bf_init_param geometry = {number(argv[2]), 0.05f, 60.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &geometry);

  const int32_t position = kStaticMemoryPosition;
  scene s = {};
  s.seed = 1;
  uint64_t hash = kEmptyHash;
  hour_figures first = {};
  hour_figures last = {};
  bool finite = true;
  bool pool_still = true;
  for (int32_t hour = 0; hour < hours; ++hour) {
    last = run_hour(inst, &s, channels, &hash);
    first = hour == 0 ? last : first;
    finite = finite && last.finite;
    pool_still = pool_still && kStaticMemoryPosition == position;
    std::printf("hour %2d: %.2f s of processor time, rms %.1f, pool at %d\n", hour + 1,
                last.processor_s, std::sqrt(last.mean_square), kStaticMemoryPosition);
    std::fflush(stdout);
  }
  std::printf("hash %s %016llx\n", argv[1], static_cast<unsigned long long>(hash));
  return judge(first, last, finite, pool_still) ? 0 : 1;
}
