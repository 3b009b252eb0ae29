// Fuzzes what the program reads: sound files, on disk or in a pipe, and raw PCM, taken to 16 kHz as
// raw output is. Every frame must be finite, and none may be lost.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "audio_source.h"
#include "finite_state.h"
#include "rate_change.h"
#include "script.h"

namespace {

constexpr size_t kChunkFrames = 4096;

// Small files can announce hours of sound.
constexpr size_t kMaxFrames = 32000;

enhance_options take_options(fuzz_script *script, const std::string &path) {
  const uint32_t choice = take(script, 1);
  const uint32_t picks = take(script, 1);
  enhance_options options;
  options.in = choice % 2 == 0 ? path : "-";
  options.raw_channels = choice / 2 % 8;
  options.hop = choice / 16 % 3 == 0 ? 160 : 320;
  options.plain = choice >= 128;
  for (uint32_t i = 0; i < picks % 3; ++i) {
    options.channels.push_back((picks / 3 + i) % 5);
  }
  return options;
}

// Reads all of the sound, and takes its first channel to 16 kHz.
void read_all(audio_source *source) {
  const size_t channels = source->picks.size();
  const size_t rate = static_cast<size_t>(source->input.rate_hz);
  rate_change change;
  rate_change_open(&change, source->input.rate_hz, kRateHz);
  std::vector<float> in(kChunkFrames * channels);
  std::vector<float> changed;
  size_t taken = 0;
  size_t frames = source_read(source, in.data(), kChunkFrames);
  while (frames > 0 && taken < kMaxFrames) {
    assert(frames <= kChunkFrames && is_finite(in.data(), static_cast<int32_t>(frames * channels)));
    taken += frames;
    for (size_t t = 0; t < frames; ++t) {
      in[t] = in[t * channels];
    }
    rate_change_push(&change, in.data(), frames, &changed);
    frames = source_read(source, in.data(), kChunkFrames);
  }
  rate_change_finish(&change, &changed);
  assert(changed.size() == (taken * kRateHz + rate - 1) / rate);
  assert(is_finite(changed.data(), static_cast<int32_t>(changed.size())));
}

// Puts the bytes into a pipe on standard input, as far as it holds them.
void fill_pipe(const fuzz_script *script) {
  int ends[2];
  const int made = pipe(ends);
  assert(made == 0);
  fcntl(ends[1], F_SETPIPE_SZ, 1 << 20);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const ssize_t written = write(ends[1], script->next, script->left);
  assert(written >= 0);
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  close(ends[0]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const int fd = memfd_create("input", MFD_CLOEXEC);
  fuzz_script script = {data, size};
  const enhance_options options = take_options(&script, "/proc/self/fd/" + std::to_string(fd));
  const ssize_t written = write(fd, script.next, script.left);
  assert(written == static_cast<ssize_t>(script.left));
  if (options.in == "-") {
    fill_pipe(&script);
  }

  audio_source source = {};
  if (source_open(&source, &options)) {
    read_all(&source);
  }
  source_close(&source);
  close(fd);
  return 0;
}
