// Runs a stream of a given length through one mode: the workload of all instruction counts.
//
// run_stream MODE SECONDS [HOP [CHANNELS [SAMPLES_PER_CALL]]]. MODE 0 makes the blocks without
// processing them. Its count is the share of the caller, to be subtracted from counts that include
// it. RECORDING in the environment names the recording, which holds speech and noise.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "recording.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kCallerAlone = 0;
constexpr int32_t kDefaultSeconds = 60;
constexpr int32_t kDefaultHop = 192;
constexpr int32_t kDefaultPerCall = 960;

}  // namespace

int main(int argc, char **argv) {
  const int32_t mode = argument(argc, argv, 1, SE_BF_MODE_MVDR);
  const int32_t seconds = argument(argc, argv, 2, kDefaultSeconds);
  const int32_t hop = argument(argc, argv, 3, kDefaultHop);
  const int32_t channels = argument(argc, argv, 4, kRecordedChannels);
  const int32_t per_call = argument(argc, argv, 5, kDefaultPerCall);
  recording speech = open_recording();

  const se_bf_create_param sizes = {static_cast<int16_t>(channels), per_call, hop};
  const se_bf_init_param scene = {mode, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  if (inst == nullptr) {
    return 1;
  }
  se_bf_init(inst, &scene);

  std::vector<int16_t> in(static_cast<size_t>(per_call * channels));
  std::vector<int16_t> out(static_cast<size_t>(per_call));
  uint32_t sum = 0;
  for (int32_t call = 0; call < seconds * kRate / per_call; ++call) {
    next_block(&speech, per_call, channels, in.data());
    if (mode != kCallerAlone) {
      se_bf_do(inst, out.data(), in.data());
    }
    sum += static_cast<uint16_t>(out[0]);
  }
  se_bf_destroy(inst);
  std::fprintf(stderr, "sum %u\n", sum);
  return 0;
}
