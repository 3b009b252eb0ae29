// Prints a hash of the library's output for a fixed set of streams, one line each.
//
// The committed list output_hashes.txt holds for every compiler, optimisation level and processor:
// signals are made in integer arithmetic only, so that nothing but the library can change a hash.
// output_hashes RECORDING: path of the stored two-channel recording (raw 16-bit little-endian).
#include <cstdio>

#include "stream_run.h"

namespace {

enum signal_kind { SPEECH, NOISE, TONES, SILENCE, FULL_SCALE, RECORDING, DYING, ONE_LSB, SETTLING };

struct stream {
  const char *name;
  signal_kind kind;
  stream_setup setup;
  int32_t later_mode;  // from the middle on; 0 keeps the mode
  int32_t seconds;
  int32_t last_mode = 0;  // in the last quarter; 0 keeps the mode
};

constexpr stream kStreams[] = {
    {"mean-speech-192", SPEECH, {2, 320, 192, 6000}, 0, 8},
    {"mean-tones-160", TONES, {2, 960, 160, 6000}, 0, 4},
    {"mean-full-scale-320", FULL_SCALE, {2, 2560, 320, 6000}, 0, 4},
    {"omlsa-speech-1ch-192", SPEECH, {1, 320, 192, 6001}, 0, 20},
    {"omlsa-speech-1ch-160", SPEECH, {1, 320, 160, 6001}, 0, 10},
    {"omlsa-speech-1ch-320", SPEECH, {1, 320, 320, 6001}, 0, 10},
    {"omlsa-recording-192", RECORDING, {2, 320, 192, 6001}, 0, 12},
    {"omlsa-noise-2ch-320", NOISE, {2, 640, 320, 6001}, 0, 8},
    {"omlsa-tones-1ch-192", TONES, {1, 320, 192, 6001}, 0, 8},
    {"omlsa-full-scale-1ch-192", FULL_SCALE, {1, 320, 192, 6001}, 0, 4},
    {"omlsa-silence-1ch-192", SILENCE, {1, 320, 192, 6001}, 0, 4},
    {"mvdr-speech-192", SPEECH, {2, 320, 192, 6002, 0.05f, 60.0f}, 0, 60},
    {"mvdr-speech-160", SPEECH, {2, 320, 160, 6002, 0.08f, 0.0f}, 0, 15},
    {"mvdr-speech-320", SPEECH, {2, 320, 320, 6002, 0.03f, 135.0f}, 0, 15},
    {"mvdr-recording-192", RECORDING, {2, 2560, 192, 6002}, 0, 30},
    {"mvdr-recording-320", RECORDING, {2, 320, 320, 6002, 0.06f, 30.0f}, 0, 30},
    {"mvdr-noise-192", NOISE, {2, 320, 192, 6002}, 0, 20},
    {"mvdr-tones-192", TONES, {2, 320, 192, 6002}, 0, 10},
    {"mvdr-full-scale-192", FULL_SCALE, {2, 320, 192, 6002}, 0, 10},
    {"mvdr-one-lsb-192", ONE_LSB, {2, 320, 192, 6002}, 0, 10},
    {"mvdr-dying-192", DYING, {2, 320, 192, 6002, 0.05f, 90.0f}, 0, 12},
    {"mvdr-then-omlsa-192", SPEECH, {2, 320, 192, 6002, 0.05f, 90.0f}, 6001, 10},
    {"omlsa-then-mvdr-320", SPEECH, {2, 320, 320, 6001, 0.05f, 90.0f}, 6002, 10},
    {"mvdr-then-mean-160", RECORDING, {2, 320, 160, 6002}, 6000, 8},
    {"mvdr-then-unknown-192", SPEECH, {2, 320, 192, 6002}, 6004, 8},
    {"mono-speech-192", SPEECH, {2, 320, 192, 6003}, 6002, 8},
    {"mvdr-to-omlsa-and-back-192", SPEECH, {2, 320, 192, 6002}, 6001, 10, 6002},
    {"mvdr-to-unknown-and-back-320", RECORDING, {2, 320, 320, 6002}, 6004, 10, 6002},
};

// The fault levels outlive instances. Before each stream, noise in both channels runs until the
// levels no longer depend on what went before, so that every stream starts alike.
constexpr stream kSettling = {"", SETTLING, {2, 320, 192, 6000}, 0, 8};

// State of the signals, each of which is an integer recursion.
struct source {
  uint32_t seed;
  talker voice;
  int32_t dry[4];
  int32_t interferer[3];
  int32_t low[2];
  int32_t high[2];
};

// The next sample of an oscillator.
int32_t oscillate(int32_t past[2], int32_t two_cos_q14) {
  const int32_t next = saturate((two_cos_q14 * past[0] >> 14) - past[1]);
  past[1] = past[0];
  past[0] = next;
  return next;
}

// Sample n of channel 0 or 1; channel 0 goes first. The talker reaches channel 1 three samples
// later, each channel has noise of its own, and a second noise comes from another direction.
int32_t next_sample(source *s, signal_kind kind, int32_t n, int32_t channel, int32_t left) {
  switch (kind) {
    case SPEECH:
    case DYING:
      if (channel == 0) {
        s->dry[n % 4] = talk(&s->voice, n);
        s->interferer[n % 3] = noise(&s->seed, 500);
        return s->dry[n % 4] + s->interferer[(n + 1) % 3] + noise(&s->seed, 60);
      }
      return s->dry[(n + 1) % 4] * 9 / 10 + s->interferer[n % 3] + noise(&s->seed, 60);
    case NOISE:
      return channel == 0 ? noise(&s->seed, 3000) : noise(&s->seed, 2500) + left / 4;
    case TONES:
      if (channel == 0) {
        const int32_t low = oscillate(s->low, 32400);
        return low / 2 + oscillate(s->high, 20000) / 4 + noise(&s->seed, 5);
      }
      return s->low[1] / 2 - s->high[1] / 8 + noise(&s->seed, 5);
    case FULL_SCALE:
      return (channel == 0 ? n / 40 % 2 == 0 : n % 2 != 0) ? kFull : -kFull - 1;
    case ONE_LSB:
      return noise(&s->seed, 1);
    case SETTLING:
      return noise(&s->seed, 1000);
    default:
      return 0;
  }
}

// Two channels.
pcm make_signal(const stream &s, const pcm &recording) {
  const uint32_t seed = s.kind == SPEECH || s.kind == DYING ? 0x1234567u : 0x89ABCDEFu;
  source from = {s.kind == SETTLING ? 1 : seed, {}, {}, {}, {12000, 11800}, {4000, 2500}};
  pcm words;
  for (int32_t n = 0; n < s.seconds * kSecond; ++n) {
    const size_t first = 2 * static_cast<size_t>(n) % recording.size();
    const bool dead = s.kind == DYING && n >= s.seconds * kSecond / 3;
    const int32_t left = next_sample(&from, s.kind, n, 0, 0);
    const int32_t right = next_sample(&from, s.kind, n, 1, left);
    words.push_back(s.kind == RECORDING ? recording[first] : saturate(left));
    words.push_back(s.kind == RECORDING ? recording[first + 1] : saturate(dead ? 0 : right));
  }
  return words;
}

uint64_t hash_stream(const stream &s, const pcm &signal) {
  const int32_t calls = s.seconds * kSecond / s.setup.samples_per_call;
  const int32_t call_words = s.setup.samples_per_call * s.setup.channels;
  const int32_t ends[] = {calls / 2, calls / 2 + calls / 4, calls};
  const int32_t modes[] = {s.later_mode, s.last_mode, 0};
  se_bf_inst *inst = make_instance(s.setup);
  uint64_t hash = kEmptyHash;
  auto from = signal.begin();
  for (size_t part = 0; part < 3; ++part) {
    const auto to = signal.begin() + ends[part] * call_words;
    pcm words(from, to);
    hash = hash_words(hash, process(inst, s.setup, &words));
    if (modes[part] != 0) {
      se_bf_change_mode(inst, modes[part]);
    }
    from = to;
  }
  se_bf_destroy(inst);
  return hash;
}

}  // namespace

int main(int argc, char **argv) {
  const pcm recording = read_words(argc == 2 ? argv[1] : "");
  if (recording.empty()) {  // cannot be read
    return 2;
  }
  const pcm settling = make_signal(kSettling, recording);
  for (const stream &s : kStreams) {
    hash_stream(kSettling, settling);
    const uint64_t hash = hash_stream(s, make_signal(s, recording));
    std::printf("hash %s %016llx\n", s.name, static_cast<unsigned long long>(hash));
  }
  return 0;
}
