// Runs hours of audio through one instance and watches that nothing drifts: every value stays
// finite, the pool stays as it is, the level and the speed of the last hour are those of the first.
//
// soak NAME MODE CHANNELS HOURS. Prints a line per hour and `hash NAME VALUE` of all output; exit 1
// when a check fails. Linked to the library's objects, so that it can look inside.
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "finite_state.h"
#include "streams/integer_signals.h"

namespace {

constexpr int32_t kHop = 192;
constexpr int32_t kCallsPerMinute = 60 * kSecond / kBlockLen;
constexpr int32_t kTalkerDelay = 3;  // samples by which channel 1 hears the talker later
constexpr int32_t kNoise = 300;
constexpr double kSlowest = 1.5;  // processor time of the last hour over that of the first
constexpr double kLevelShift =
    2.0;  // mean square of the last hour over that of the first, or under

struct scene {
  talker voices[2];
  uint32_t seed;
  int32_t time;
};

struct hour_figures {
  double processor_s;
  double energy;
  bool sound;  // every value finite, the pool where initialisation left it
};

// One call's worth of a talker, or a pause, in noise.
void make_block(scene *s, bool talking, int32_t channels, std::vector<int16_t> *block) {
  for (int32_t i = 0; i < kBlockLen * channels; ++i) {
    const int32_t m = i % channels;
    const int32_t voice = talking ? talk(&s->voices[m], s->time - m * kTalkerDelay) : 0;
    (*block)[static_cast<size_t>(i)] = saturate(voice + noise(&s->seed, kNoise));
    s->time += m == channels - 1 ? 1 : 0;
  }
}

// The talker pauses for two minutes of every six.
hour_figures run_hour(se_bf_inst *inst, scene *s, uint64_t *hash) {
  const int32_t position = kStaticMemoryPosition;
  std::vector<int16_t> in(static_cast<size_t>(kBlockLen * inst->num_ch_in));
  std::vector<int16_t> out(kBlockLen);
  clock_t busy = 0;
  hour_figures figures = {0.0, 0.0, true};
  for (int32_t call = 0; call < 60 * kCallsPerMinute; ++call) {
    make_block(s, call / kCallsPerMinute % 6 < 4, inst->num_ch_in, &in);
    busy -= std::clock();
    se_bf_do(inst, out.data(), in.data());
    busy += std::clock();
    figures.sound = figures.sound && state_is_finite(inst);
    *hash = hash_words(*hash, out);
    for (const int16_t sample : out) {
      figures.energy += static_cast<double>(sample) * static_cast<double>(sample);
    }
  }
  figures.processor_s = static_cast<double>(busy) / static_cast<double>(CLOCKS_PER_SEC);
  figures.sound = figures.sound && kStaticMemoryPosition == position;
  return figures;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: soak NAME MODE CHANNELS HOURS\n");
    return 2;
  }
  const se_bf_create_param sizes = {static_cast<int16_t>(std::atoi(argv[3])), kBlockLen, kHop};
  const se_bf_init_param geometry = {std::atoi(argv[2]), 0.05f, 60.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &geometry);
  scene s = {{}, 1, 0};
  uint64_t hash = kEmptyHash;
  hour_figures first = {};
  hour_figures last = {};
  bool sound = true;
  for (int32_t hour = 1; hour <= std::atoi(argv[4]); ++hour) {
    last = run_hour(inst, &s, &hash);
    first = hour == 1 ? last : first;
    sound = sound && last.sound;
    std::printf("hour %2d: %.2f s of processor time, pool at %d, %s\n", hour, last.processor_s,
                kStaticMemoryPosition, sound ? "sound" : "NOT SOUND");
  }
  const double slower = last.processor_s / first.processor_s;
  const double louder = last.energy / first.energy;
  std::printf("last hour over first: processor time %.3f, mean square %.3f\n", slower, louder);
  std::printf("hash %s %016llx\n", argv[1], static_cast<unsigned long long>(hash));
  const bool steady = slower <= kSlowest && louder < kLevelShift && louder > 1.0 / kLevelShift;
  return sound && steady ? EXIT_SUCCESS : EXIT_FAILURE;
}
