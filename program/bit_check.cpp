// Runs the stored recording through the library that is loaded and compares every sample of the
// output with the stored reference.
#include "bit_check.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "stored_sound.h"

namespace {

constexpr int32_t kCallFrames = 2560;  // 160 ms, as the library's own self-test

// The output of the recording and of enough silence behind it to complete the reference in spite of
// the latency. Returns false if a call did not return all its samples.
bool run_recording(se_bf_inst *inst, size_t calls, std::vector<int16_t> *out) {
  constexpr size_t call_samples = static_cast<size_t>(kCallFrames) * kStoredChannels;
  std::vector<int16_t> in(calls * call_samples);
  std::copy_n(g_stored_recording, kStoredFrames * kStoredChannels, in.begin());
  out->assign(calls * kCallFrames, 0);
  for (size_t call = 0; call < calls; ++call) {
    if (se_bf_do(inst, out->data() + call * kCallFrames, in.data() + call * call_samples) !=
        kCallFrames) {
      return false;
    }
  }
  return true;
}

void compare(const int16_t *out, bit_check_result *result) {
  double cross = 0.0;
  double energy = 0.0;
  double stored_energy = 0.0;
  for (int32_t i = 0; i < kStoredFrames; ++i) {
    const double sample = out[i];
    const double stored = g_stored_reference[i];
    const int32_t difference = std::abs(out[i] - g_stored_reference[i]);
    cross += sample * stored;
    energy += sample * sample;
    stored_energy += stored * stored;
    result->first = difference != 0 && result->first == -1 ? i : result->first;
    result->differing += difference != 0 ? 1 : 0;
    result->largest = std::max(result->largest, difference);
  }
  result->compared = kStoredFrames;
  result->similarity = cross / std::sqrt(energy * stored_energy);
  result->power = energy / stored_energy;
}

}  // namespace

void bit_check_run(bit_check_result *result) {
  const se_bf_create_param sizes = {kStoredChannels, kCallFrames, kBitCheckHop};
  const se_bf_init_param scene = {kBitCheckMode, 0.0f, 0.0f};
  std::vector<int16_t> out;
  *result = {};
  result->first = -1;
  se_bf_inst *inst = se_bf_create(&sizes);
  if (inst == nullptr) {
    return;
  }
  const int32_t latency = se_bf_init(inst, &scene);
  if (latency >= 0 && latency <= kCallFrames) {
    const int32_t calls = (kStoredFrames + latency + kCallFrames - 1) / kCallFrames;
    result->complete = run_recording(inst, static_cast<size_t>(calls), &out);
  }
  se_bf_destroy(inst);
  if (result->complete) {
    compare(out.data() + latency, result);
  }
}
