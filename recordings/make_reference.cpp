// Makes the self-test's reference: what mode MVDR at hop 192 makes of a two-channel recording.
//
// make_reference RECORDING REFERENCE: reads 32000 interleaved two-channel frames and writes 32000
// mono samples, both raw 16-bit little-endian PCM. The output is cut at the latency that se_bf_init
// returns, as the self-test compares it. Run it after every change of the recording or of the
// processing.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "tm_se_bf.h"

namespace {

constexpr size_t kFrames = 32000;
constexpr size_t kChannels = 2;
constexpr int32_t kSamplesPerCall = 2560;
constexpr int32_t kHop = 192;

int fail(const char *what, const char *path) {
  std::fprintf(stderr, "make_reference: cannot %s %s\n", what, path);
  return 1;
}

// Samples from pairs of bytes, low byte first.
bool read_pcm(const char *path, std::vector<int16_t> *samples) {
  std::FILE *file = std::fopen(path, "rb");
  if (file == nullptr) {
    return false;
  }
  std::vector<uint8_t> bytes(2 * samples->size());
  const size_t got = std::fread(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
  for (size_t i = 0; i < samples->size(); ++i) {
    (*samples)[i] = static_cast<int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  return got == bytes.size();
}

bool write_pcm(const char *path, const int16_t *samples, size_t count) {
  std::FILE *file = std::fopen(path, "wb");
  if (file == nullptr) {
    return false;
  }
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < count; ++i) {
    const uint16_t word = static_cast<uint16_t>(samples[i]);
    bytes.push_back(static_cast<uint8_t>(word & 0xFF));
    bytes.push_back(static_cast<uint8_t>(word >> 8));
  }
  const size_t put = std::fwrite(bytes.data(), 1, bytes.size(), file);
  return std::fclose(file) == 0 && put == bytes.size();
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_reference RECORDING REFERENCE\n");
    return 2;
  }
  std::vector<int16_t> recording(kFrames * kChannels);
  if (!read_pcm(argv[1], &recording)) {
    return fail("read 128000 bytes from", argv[1]);
  }

  const se_bf_create_param sizes = {static_cast<int16_t>(kChannels), kSamplesPerCall, kHop};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.0f, 0.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  const int32_t delay = se_bf_init(inst, &scene);

  // The recording padded with silence to whole calls, the last of them half silent.
  const size_t calls = (kFrames + kSamplesPerCall - 1) / kSamplesPerCall;
  recording.resize(calls * kSamplesPerCall * kChannels);
  std::vector<int16_t> output(calls * kSamplesPerCall);
  for (size_t call = 0; call < calls; ++call) {
    const size_t first = call * kSamplesPerCall;
    se_bf_do(inst, output.data() + first, recording.data() + first * kChannels);
  }
  se_bf_destroy(inst);

  if (!write_pcm(argv[2], output.data() + delay, kFrames)) {
    return fail("write", argv[2]);
  }
  return 0;
}
