// Runs the stored recording through the library that is loaded and compares every sample of the
// output with the stored reference. The recording and the reference are the program's own, so that
// neither the report of the library's self-test nor its copy of the samples has to be trusted.
#ifndef SE_BF_BIT_CHECK_H
#define SE_BF_BIT_CHECK_H

#include <cstdint>

#include "tm_se_bf.h"

// What the stored reference was made with.
constexpr int32_t kBitCheckMode = SE_BF_MODE_MVDR;
constexpr int kBitCheckHop = 192;  // samples

struct bit_check_result {
  bool complete;      // every call gave its samples, at a latency that leaves enough of them
  int32_t compared;   // samples of the reference
  int32_t differing;  // of them
  int32_t first;      // the first that differs, counted from 0; -1: none
  int32_t largest;    // difference
  double similarity;  // normalised cross-correlation, 1 for equal samples; NaN for silence
  double power;       // ratio of the output's power to the reference's
};

// Fills `result`. Makes and destroys an instance: needs a process that has not used the library
// yet, because its pool and its microphone levels belong to the process.
void bit_check_run(bit_check_result *result);

#endif  // SE_BF_BIT_CHECK_H
