// Runs the stored recording through the library that is loaded and compares every sample of the
// output with the stored reference.
#include "bit_check.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include "stored_sound.h"
#include "tm_se_bf.h"

static constexpr int32_t CALL_FRAMES = 2560;  // 160 ms, as the library's own self-test

// The output of the recording and of enough silence behind it to complete the reference in spite of
// the latency. Returns false if a call did not return all its samples.
static bool run_recording(se_bf_inst *inst, size_t calls, std::vector<int16_t> *out) {
  constexpr size_t call_samples = static_cast<size_t>(CALL_FRAMES) * STORED_CHANNELS;
  std::vector<int16_t> in(calls * call_samples);
  std::copy_n(g_stored_recording, STORED_FRAMES * STORED_CHANNELS, in.begin());
  out->assign(calls * CALL_FRAMES, 0);
  for (size_t call = 0; call < calls; ++call) {
    if (se_bf_do(inst, out->data() + call * CALL_FRAMES, in.data() + call * call_samples) !=
        CALL_FRAMES) {
      return false;
    }
  }
  return true;
}

static void compare(const int16_t *out, bit_check_result *result) {
  double cross = 0.0;
  double energy = 0.0;
  double stored_energy = 0.0;
  for (int32_t i = 0; i < STORED_FRAMES; ++i) {
    const double sample = out[i];
    const double stored = g_stored_reference[i];
    const int32_t difference = abs(out[i] - g_stored_reference[i]);
    cross += sample * stored;
    energy += sample * sample;
    stored_energy += stored * stored;
    result->first = difference != 0 && result->first == -1 ? i : result->first;
    result->differing += difference != 0 ? 1 : 0;
    result->largest = std::max(result->largest, difference);
  }
  result->compared = STORED_FRAMES;
  result->similarity = cross / sqrt(energy * stored_energy);
  result->power = energy / stored_energy;
}

void bit_check_run(bit_check_result *result) {
  const se_bf_create_param sizes = {STORED_CHANNELS, CALL_FRAMES, BIT_CHECK_HOP};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.0f, 0.0f};
  std::vector<int16_t> out;
  *result = {};
  result->first = -1;
  se_bf_inst *inst = se_bf_create(&sizes);
  if (inst == nullptr) {
    return;
  }
  const int32_t latency = se_bf_init(inst, &scene);
  if (latency >= 0 && latency <= CALL_FRAMES) {
    const int32_t calls = (STORED_FRAMES + latency + CALL_FRAMES - 1) / CALL_FRAMES;
    result->complete = run_recording(inst, static_cast<size_t>(calls), &out);
  }
  se_bf_destroy(inst);
  if (result->complete) {
    compare(out.data() + latency, result);
  }
}
