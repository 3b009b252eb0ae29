// The workload of every measurement: a stored two-channel recording, repeated without end.
#ifndef TM_SE_BF_BENCH_RECORDING_H
#define TM_SE_BF_BENCH_RECORDING_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

constexpr int32_t kRate = 16000;  // Hz
constexpr int32_t kRecordedChannels = 2;

struct recording {
  std::vector<int16_t> pcm;  // interleaved
  size_t position;           // next sample to be handed out, per channel
};

// Reads 16-bit little-endian PCM from the file that the environment variable RECORDING names; ends
// the process with a message when there is none.
inline recording open_recording() {
  const char *path = std::getenv("RECORDING");
  std::FILE *file = path == nullptr ? nullptr : std::fopen(path, "rb");
  recording result = {};
  uint8_t bytes[2];
  while (file != nullptr && std::fread(bytes, 1, 2, file) == 2) {
    result.pcm.push_back(static_cast<int16_t>(bytes[0] | bytes[1] << 8));
  }
  if (file != nullptr) {
    std::fclose(file);
  }
  if (result.pcm.size() < static_cast<size_t>(kRecordedChannels)) {
    std::fprintf(stderr, "set RECORDING to the path of src/conformance/pcm_in_multi.s16\n");
    std::exit(1);
  }
  return result;
}

// The next `samples` samples of the first one or two channels, interleaved.
inline void next_block(recording *from, int32_t samples, int32_t channels, int16_t *out) {
  const size_t frames = from->pcm.size() / kRecordedChannels;
  for (int32_t i = 0; i < samples; ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      out[i * channels + c] =
          from->pcm[from->position * kRecordedChannels + static_cast<size_t>(c)];
    }
    from->position = (from->position + 1) % frames;
  }
}

// The integer at argv[index], or `fallback` when there are fewer arguments.
inline int32_t argument(int argc, char **argv, int index, int32_t fallback) {
  return index < argc ? static_cast<int32_t>(std::strtol(argv[index], nullptr, 10)) : fallback;
}

#endif  // TM_SE_BF_BENCH_RECORDING_H
