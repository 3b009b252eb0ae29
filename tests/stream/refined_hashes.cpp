// Prints a hash of the output of the refined path for a fixed set of streams, one line each.
//
// The committed list refined_hashes.txt holds for every compiler, optimisation level and processor:
// signals are made in integer arithmetic only, so that nothing but the library can change a hash.
#include <cstdio>

#include "test_signals.h"
#include "tm_se_bf_stream.h"

namespace {

enum fault { NONE, DEAD, INVERTED, SILENCE, FULL_SCALE };

struct stream {
  const char *name;
  int32_t channels;
  float mic_distance;
  float doa;
  float max_attenuation_db;
  int32_t seconds;
  fault later;  // in the last third
};

constexpr stream kStreams[] = {
    {"refined-1ch", 1, 0, 0, 0, 20, NONE},
    {"refined-1ch-limit-15", 1, 0, 0, 15, 6, SILENCE},
    {"refined-1ch-full-scale", 1, 0, 0, 0, 6, FULL_SCALE},
    {"refined-2ch-found", 2, 0, 0, 0, 60, NONE},
    {"refined-2ch-given", 2, 0.06f, 40, 10, 12, NONE},
    {"refined-2ch-wide", 2, 0.5f, 10, 0, 8, NONE},
    {"refined-2ch-dying", 2, 0.05f, 70, 0, 12, DEAD},
    {"refined-2ch-inverted", 2, 0, 0, 0, 12, INVERTED},
    {"refined-2ch-silence", 2, 0, 0, 0, 9, SILENCE},
    {"refined-2ch-full-scale", 2, 0, 0, 0, 9, FULL_SCALE},
};

// The talker reaches channel 1 three samples later; each channel has noise of its own, and a second
// noise comes from another direction.
pcm make_signal(const stream &s) {
  uint32_t seed = 0x2468ACEu;
  talker voice = {};
  int32_t dry[4] = {};
  int32_t other[3] = {};
  pcm words;
  const int32_t count = s.seconds * kSecond;
  for (int32_t n = 0; n < count; ++n) {
    dry[n % 4] = talk(&voice, n);
    other[n % 3] = noise(&seed, 400);
    int32_t first = dry[n % 4] + other[(n + 1) % 3] + noise(&seed, 60);
    int32_t second = dry[(n + 1) % 4] * 7 / 10 + other[n % 3] + noise(&seed, 60);
    if (s.later != NONE && n >= count / 3 * 2) {
      const int32_t square = n / 40 % 2 == 0 ? kFull : -kFull - 1;
      const bool silent = s.later == SILENCE && n < count / 8 * 7;
      first = silent ? 0 : s.later == FULL_SCALE ? square : first;
      second = silent || s.later == DEAD ? 0 : s.later == INVERTED ? -first / 2 : second;
    }
    words.push_back(saturate(first));
    if (s.channels == 2) {
      words.push_back(saturate(second));
    }
  }
  return words;
}

bool print_hash(const stream &s) {
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.mode = SE_BF_STREAM_REFINED;
  config.channels = s.channels;
  config.mic_distance = s.mic_distance;
  config.doa = s.doa;
  config.max_attenuation_db = s.max_attenuation_db;
  const char *error = nullptr;
  se_bf_stream *opened = se_bf_stream_open(&config, &error);
  if (opened == nullptr) {
    std::fprintf(stderr, "%s: %s\n", s.name, error);
    return false;
  }
  const pcm in = make_signal(s);
  pcm out(in.size() / static_cast<size_t>(s.channels));
  se_bf_stream_process_s16(opened, in.data(), out.size(), out.data());
  se_bf_stream_close(opened);
  std::printf("hash %s %016llx\n", s.name,
              static_cast<unsigned long long>(hash_words(kEmptyHash, out)));
  return true;
}

}  // namespace

int main() {
  bool good = true;
  for (const stream &s : kStreams) {
    good = print_hash(s) && good;
  }
  return good ? 0 : 1;
}
