// Fuzzes what the program reads: sound files, on disk or in a pipe, and raw PCM, taken through a
// stream as `se_bf enhance` does, and to 16 kHz as raw PCM is. Every frame must be finite, and as
// many samples must come out as went in.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "audio_source.h"
#include "finite_state.h"
#include "rate_change.h"
#include "script.h"
#include "tm_se_bf_stream.h"

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

void enhance(audio_source *source, const enhance_options &options) {
  const size_t channels = source->picks.size();
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.rate = source->input.rate_hz;
  config.channels = static_cast<int32_t>(channels);
  config.mode = channels == 2 ? SE_BF_MODE_MVDR : SE_BF_MODE_OMLSA;
  config.hop = options.hop;
  config.plain = options.plain ? 1 : 0;
  se_bf_stream *stream = se_bf_stream_open(&config, nullptr);
  assert(stream != nullptr);
  rate_change change;
  rate_change_open(&change, config.rate, kRateHz);

  std::vector<float> in(kChunkFrames * channels);
  std::vector<float> out(std::max(kChunkFrames, static_cast<size_t>(se_bf_stream_latency(stream))));
  std::vector<float> changed;
  size_t taken = 0;
  size_t made = 0;
  size_t frames = source_read(source, in.data(), kChunkFrames);
  while (frames > 0 && taken < kMaxFrames) {
    assert(frames <= kChunkFrames && is_finite(in.data(), static_cast<int32_t>(frames * channels)));
    taken += frames;
    const size_t count = se_bf_stream_push_f32(stream, in.data(), frames, out.data());
    rate_change_push(&change, out.data(), count, &changed);
    made += count;
    assert(made <= taken);
    frames = source_read(source, in.data(), kChunkFrames);
  }
  const size_t rest = se_bf_stream_finish_f32(stream, out.data());
  rate_change_push(&change, out.data(), rest, &changed);
  rate_change_finish(&change, &changed);
  assert(made + rest == taken);
  const size_t rate = static_cast<size_t>(config.rate);
  assert(changed.size() == (taken * kRateHz + rate - 1) / rate);
  assert(is_finite(changed.data(), static_cast<int32_t>(changed.size())));
  se_bf_stream_close(stream);
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
    enhance(&source, options);
  }
  source_close(&source);
  close(fd);
  return 0;
}
