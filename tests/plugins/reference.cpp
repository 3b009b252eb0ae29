// What a plug-in must give, from a stream of the stream library.
//
// plugin_reference RATE MODE DISTANCE DOA PLAIN LIMIT: 16-bit samples of two channels in, of one
// channel out, sample for sample; the latency goes to standard error. MODE: 0 mean ... 3 mono, 4
// refined. LIMIT: of the attenuation in dB.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tm_se_bf_stream.h"

int main(int argc, char **argv) {
  if (argc != 7) {
    return EXIT_FAILURE;
  }
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.rate = std::atoi(argv[1]);
  const int32_t mode = std::atoi(argv[2]);
  config.mode = mode == 4 ? static_cast<int32_t>(SE_BF_STREAM_REFINED) : SE_BF_MODE_MEAN + mode;
  config.mic_distance = std::strtof(argv[3], nullptr);
  config.doa = std::strtof(argv[4], nullptr);
  config.plain = std::atoi(argv[5]);
  config.max_attenuation_db = std::strtof(argv[6], nullptr);
  se_bf_stream *stream = se_bf_stream_open(&config, nullptr);
  std::vector<int16_t> in;
  int16_t pair[2];
  while (std::fread(pair, sizeof pair, 1, stdin) == 1) {
    in.insert(in.end(), pair, pair + 2);
  }
  const int32_t latency = se_bf_stream_latency(stream);
  std::vector<int16_t> out(in.size() / 2 + static_cast<size_t>(latency));
  size_t count = se_bf_stream_push_s16(stream, in.data(), in.size() / 2, out.data());
  count += se_bf_stream_finish_s16(stream, &out[count]);
  std::fprintf(stderr, "%d\n", latency);
  se_bf_stream_close(stream);
  return std::fwrite(out.data(), sizeof(int16_t), count, stdout) == count ? EXIT_SUCCESS
                                                                          : EXIT_FAILURE;
}
