// Instructions of the rate path alone, for callgrind: `rate_cost path|libsamplerate RATE` takes
// four seconds of stereo at RATE Hz down to 16 kHz, and one channel of it back up. The conversion
// by libsamplerate is that of the program se_bf before version 2. A third argument stops after the
// opening.
#include <samplerate.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <vector>

#include "rate_path.h"

namespace {

constexpr int kSeconds = 4;
constexpr int kFrames = 480;
constexpr int kRoom = 4 * kFrames;

void first_channel(void *, const float *in, float *out) {
  for (int n = 0; n < 320; ++n) {
    out[n] = in[2 * n];
  }
}

long convert(SRC_STATE *state, double ratio, const float *in, long frames, float *out) {
  SRC_DATA data = {};
  data.data_in = in;
  data.input_frames = frames;
  data.data_out = out;
  data.output_frames = kRoom;
  data.src_ratio = ratio;
  return src_process(state, &data) == 0 ? data.output_frames_gen : 0;
}

}  // namespace

int main(int argc, char **argv) {
  const int rate = argc > 2 ? atoi(argv[2]) : 0;
  const bool path_wanted = argc > 2 && strcmp(argv[1], "path") == 0;
  const rate_path_config config = {rate, 2, 0, 1, first_channel, nullptr};
  const char *error = "usage: rate_cost path|libsamplerate RATE [x]";
  int failed = 0;
  rate_path *path = path_wanted ? rate_path_open(&config, &error) : nullptr;
  SRC_STATE *down = path_wanted ? nullptr : src_new(SRC_SINC_MEDIUM_QUALITY, 2, &failed);
  SRC_STATE *up = path_wanted ? nullptr : src_new(SRC_SINC_MEDIUM_QUALITY, 1, &failed);
  if (argc < 3 || (path == nullptr && (down == nullptr || up == nullptr))) {
    fprintf(stderr, "%s\n", error);
    return 1;
  }
  std::minstd_rand random(1);
  std::vector<float> in(2 * kFrames);
  std::vector<float> core(2 * kRoom);
  std::vector<float> out(kRoom);
  for (float &sample : in) {
    sample = static_cast<float>(random()) * 0x1p-31f - 0.5f;
  }
  const int calls = argc > 3 ? 0 : kSeconds * rate / kFrames;
  for (int n = 0; n < calls; ++n) {
    if (path_wanted) {
      rate_path_process(path, in.data(), kFrames, out.data());
    } else {
      const long frames = convert(down, 16000.0 / rate, in.data(), kFrames, core.data());
      convert(up, rate / 16000.0, core.data(), frames, out.data());
    }
  }
  rate_path_close(path);
  if (!path_wanted) {
    src_delete(down);
    src_delete(up);
  }
  return 0;
}
