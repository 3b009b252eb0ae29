// What a stream takes, through its public interface.
//
// stream_use: prints latency and memory by rate. stream_use MODE SECONDS [RATE [CHANNELS [MS]]]:
// passes sound in blocks of MS milliseconds (10), for callgrind; RECORDING in the environment names
// it, and it is played at any rate.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "recording.h"
#include "tm_se_bf_stream.h"

// The C library's own allocator.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
void *__libc_calloc(size_t count, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

constexpr int32_t kRates[] = {8000,  11025, 16000, 22050,  24000,  32000, 44100,
                              48000, 88200, 96000, 159999, 176400, 192000};

size_t requested;  // bytes, by the functions that the library calls

constexpr int32_t kDefaultBlockMs = 10;

se_bf_stream *open_stream(int32_t mode, int32_t rate, int32_t channels) {
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.rate = rate;
  config.channels = channels;
  config.mode = mode;
  const char *error = nullptr;
  se_bf_stream *stream = se_bf_stream_open(&config, &error);
  if (stream == nullptr) {
    std::fprintf(stderr, "%s\n", error);
    std::exit(1);
  }
  return stream;
}

void print_rates() {
  for (const int32_t rate : kRates) {
    const size_t before = requested;
    se_bf_stream *stream = open_stream(SE_BF_STREAM_AUTO, rate, kRecordedChannels);
    std::fprintf(stderr, "stream.latency.%d %d\n", rate, se_bf_stream_latency(stream));
    std::fprintf(stderr, "stream.memory.%d %zu\n", rate, requested - before);
    se_bf_stream_close(stream);
  }
}

void play(int32_t mode, int32_t seconds, int32_t rate, int32_t channels, int32_t block_ms) {
  const int32_t frames = rate * block_ms / 1000;
  std::vector<int16_t> in(static_cast<size_t>(frames * channels));
  std::vector<int16_t> out(static_cast<size_t>(frames));
  recording speech = open_recording();
  se_bf_stream *stream = open_stream(mode, rate, channels);
  for (int32_t call = 0; call < seconds * 1000 / block_ms; ++call) {
    next_block(&speech, frames, channels, in.data());
    se_bf_stream_process_s16(stream, in.data(), static_cast<size_t>(frames), out.data());
  }
  se_bf_stream_close(stream);
}

}  // namespace

extern "C" void *calloc(size_t count, size_t size) {
  requested += count * size;
  return __libc_calloc(count, size);
}

extern "C" void *aligned_alloc(size_t alignment, size_t size) {
  requested += size;
  return __libc_memalign(alignment, size);
}

int main(int argc, char **argv) {
  if (argc < 3) {
    print_rates();
  } else {
    play(argument(argc, argv, 1, 0), argument(argc, argv, 2, 0), argument(argc, argv, 3, kRate),
         argument(argc, argv, 4, kRecordedChannels), argument(argc, argv, 5, kDefaultBlockMs));
  }
  return 0;
}
