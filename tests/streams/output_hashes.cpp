// Prints a hash of the library's output for a fixed set of streams, one line each.
//
// The committed list output_hashes.txt holds for every compiler, optimisation level and processor:
// signals are made in integer arithmetic only, so that nothing but the library can change a hash.
// output_hashes RECORDING: path of the stored two-channel recording (raw 16-bit little-endian).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "integer_signals.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kBlock = 320;

enum signal_kind { SPEECH, NOISE, TONES, SILENCE, FULL_SCALE, RECORDING, DYING, ONE_LSB };

struct stream {
  const char *name;
  signal_kind kind;
  int16_t channels;
  int32_t hop;
  int32_t mode;
  int32_t later_mode;  // from the middle on; 0 keeps the mode
  int32_t samples_per_call;
  float mic_distance;
  float doa;
  int32_t seconds;
};

constexpr stream kStreams[] = {
    {"mean-speech-192", SPEECH, 2, 192, 6000, 0, 320, 0.0f, 0.0f, 8},
    {"mean-tones-160", TONES, 2, 160, 6000, 0, 960, 0.0f, 0.0f, 4},
    {"mean-full-scale-320", FULL_SCALE, 2, 320, 6000, 0, 2560, 0.0f, 0.0f, 4},
    {"omlsa-speech-1ch-192", SPEECH, 1, 192, 6001, 0, 320, 0.0f, 0.0f, 20},
    {"omlsa-speech-1ch-160", SPEECH, 1, 160, 6001, 0, 320, 0.0f, 0.0f, 10},
    {"omlsa-speech-1ch-320", SPEECH, 1, 320, 6001, 0, 320, 0.0f, 0.0f, 10},
    {"omlsa-recording-192", RECORDING, 2, 192, 6001, 0, 320, 0.0f, 0.0f, 12},
    {"omlsa-noise-2ch-320", NOISE, 2, 320, 6001, 0, 640, 0.0f, 0.0f, 8},
    {"omlsa-tones-1ch-192", TONES, 1, 192, 6001, 0, 320, 0.0f, 0.0f, 8},
    {"omlsa-full-scale-1ch-192", FULL_SCALE, 1, 192, 6001, 0, 320, 0.0f, 0.0f, 4},
    {"omlsa-silence-1ch-192", SILENCE, 1, 192, 6001, 0, 320, 0.0f, 0.0f, 4},
    {"mvdr-speech-192", SPEECH, 2, 192, 6002, 0, 320, 0.05f, 60.0f, 60},
    {"mvdr-speech-160", SPEECH, 2, 160, 6002, 0, 320, 0.08f, 0.0f, 15},
    {"mvdr-speech-320", SPEECH, 2, 320, 6002, 0, 320, 0.03f, 135.0f, 15},
    {"mvdr-recording-192", RECORDING, 2, 192, 6002, 0, 2560, 0.0f, 0.0f, 30},
    {"mvdr-recording-320", RECORDING, 2, 320, 6002, 0, 320, 0.06f, 30.0f, 30},
    {"mvdr-noise-192", NOISE, 2, 192, 6002, 0, 320, 0.0f, 0.0f, 20},
    {"mvdr-tones-192", TONES, 2, 192, 6002, 0, 320, 0.0f, 0.0f, 10},
    {"mvdr-full-scale-192", FULL_SCALE, 2, 192, 6002, 0, 320, 0.0f, 0.0f, 10},
    {"mvdr-one-lsb-192", ONE_LSB, 2, 192, 6002, 0, 320, 0.0f, 0.0f, 10},
    {"mvdr-dying-192", DYING, 2, 192, 6002, 0, 320, 0.05f, 90.0f, 12},
    {"mvdr-then-omlsa-192", SPEECH, 2, 192, 6002, 6001, 320, 0.05f, 90.0f, 10},
    {"omlsa-then-mvdr-320", SPEECH, 2, 320, 6001, 6002, 320, 0.05f, 90.0f, 10},
    {"mvdr-then-mean-160", RECORDING, 2, 160, 6002, 6000, 320, 0.0f, 0.0f, 8},
    {"mvdr-then-unknown-192", SPEECH, 2, 192, 6002, 6004, 320, 0.0f, 0.0f, 8},
    {"mono-speech-192", SPEECH, 2, 192, 6003, 6002, 320, 0.0f, 0.0f, 8},
};

// Two channels of `frames` samples: the talker reaches channel 1 three samples later, each channel
// has noise of its own, and a second noise comes from elsewhere.
std::vector<int16_t> make_speech(int32_t frames, int32_t dies_at) {
  constexpr int32_t kTalkerDelay = 3;
  std::vector<int32_t> dry(static_cast<size_t>(frames + kTalkerDelay));
  std::vector<int16_t> pcm(2 * static_cast<size_t>(frames));
  talker voice = {};
  uint32_t seed = 0x1234567u;
  int32_t interferer[3] = {};
  for (int32_t n = 0; n < frames; ++n) {
    const size_t now = static_cast<size_t>(n);
    dry[now + kTalkerDelay] = talk(&voice, n);
    interferer[n % 3] = noise(&seed, 500);
    const int32_t early = interferer[(n + 1) % 3];
    const int32_t late = interferer[n % 3];
    pcm[2 * now] = saturate(dry[now + kTalkerDelay] + early + noise(&seed, 60));
    pcm[2 * now + 1] = saturate(dry[now] * 9 / 10 + late + noise(&seed, 60));
    if (n >= dies_at) {
      pcm[2 * now + 1] = 0;
    }
  }
  return pcm;
}

std::vector<int16_t> make_plain(signal_kind kind, int32_t frames) {
  std::vector<int16_t> pcm(2 * static_cast<size_t>(frames));
  uint32_t seed = 0x89ABCDEFu;
  int32_t low[2] = {12000, 11800};
  int32_t high[2] = {4000, 2500};
  for (int32_t n = 0; n < frames; ++n) {
    int32_t left = 0;
    int32_t right = 0;
    if (kind == NOISE) {
      left = noise(&seed, 3000);
      right = noise(&seed, 2500) + left / 4;
    } else if (kind == FULL_SCALE) {
      left = n / 40 % 2 == 0 ? kFull : -kFull - 1;
      right = n % 2 == 0 ? -kFull - 1 : kFull;
    } else if (kind == ONE_LSB) {
      left = noise(&seed, 1);
      right = noise(&seed, 1);
    } else if (kind == TONES) {
      constexpr int32_t kLowTwoCosQ14 = 32400;
      constexpr int32_t kHighTwoCosQ14 = 20000;
      const int32_t next_low = (kLowTwoCosQ14 * low[0] >> 14) - low[1];
      const int32_t next_high = (kHighTwoCosQ14 * high[0] >> 14) - high[1];
      low[1] = low[0];
      low[0] = saturate(next_low);
      high[1] = high[0];
      high[0] = saturate(next_high);
      left = low[0] / 2 + high[0] / 4 + noise(&seed, 5);
      right = low[1] / 2 - high[1] / 8 + noise(&seed, 5);
    }
    pcm[2 * static_cast<size_t>(n)] = saturate(left);
    pcm[2 * static_cast<size_t>(n) + 1] = saturate(right);
  }
  return pcm;
}

std::vector<int16_t> read_recording(const char *path) {
  std::vector<int16_t> pcm;
  std::FILE *file = std::fopen(path, "rb");
  if (file == nullptr) {
    std::fprintf(stderr, "output_hashes: cannot read %s\n", path);
    std::exit(1);
  }
  uint8_t bytes[2];
  while (std::fread(bytes, 1, 2, file) == 2) {
    pcm.push_back(static_cast<int16_t>(bytes[0] | bytes[1] << 8));
  }
  std::fclose(file);
  return pcm;
}

std::vector<int16_t> make_signal(const stream &s, const std::vector<int16_t> &recording) {
  const int32_t frames = s.seconds * kSecond;
  switch (s.kind) {
    case SPEECH:
      return make_speech(frames, frames);
    case DYING:
      return make_speech(frames, frames / 3);
    case RECORDING: {
      std::vector<int16_t> pcm;
      while (pcm.size() < 2 * static_cast<size_t>(frames)) {
        pcm.insert(pcm.end(), recording.begin(), recording.end());
      }
      return pcm;
    }
    default:
      return make_plain(s.kind, frames);
  }
}

uint64_t hash_stream(const stream &s, std::vector<int16_t> pcm) {
  const se_bf_create_param sizes = {s.channels, s.samples_per_call, s.hop};
  const se_bf_init_param scene = {s.mode, s.mic_distance, s.doa};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);

  std::vector<int16_t> out(static_cast<size_t>(s.samples_per_call));
  const int32_t calls = s.seconds * kSecond / s.samples_per_call;
  uint64_t hash = kEmptyHash;
  for (int32_t call = 0; call < calls; ++call) {
    if (call == calls / 2 && s.later_mode != 0) {
      se_bf_change_mode(inst, s.later_mode);
    }
    se_bf_do(inst, out.data(), pcm.data() + call * s.samples_per_call * s.channels);
    hash = hash_words(hash, out);
  }
  se_bf_destroy(inst);
  return hash;
}

// The fault levels outlive instances. A call of noise in both channels before each stream, repeated
// until the levels no longer depend on what went before, gives every stream the same start.
void settle_fault_levels() {
  constexpr int32_t kCalls = 400;
  const se_bf_create_param sizes = {2, kBlock, 0};
  const se_bf_init_param scene = {SE_BF_MODE_MEAN, 0.0f, 0.0f};
  std::vector<int16_t> out(kBlock);
  uint32_t seed = 1;
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  for (int32_t call = 0; call < kCalls; ++call) {
    std::vector<int16_t> in(2 * kBlock);
    for (int16_t &sample : in) {
      sample = saturate(noise(&seed, 1000));
    }
    se_bf_do(inst, out.data(), in.data());
  }
  se_bf_destroy(inst);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: output_hashes RECORDING\n");
    return 2;
  }
  const std::vector<int16_t> recording = read_recording(argv[1]);
  for (const stream &s : kStreams) {
    settle_fault_levels();
    const uint64_t hash = hash_stream(s, make_signal(s, recording));
    std::printf("hash %s %016llx\n", s.name, static_cast<unsigned long long>(hash));
  }
  return 0;
}
