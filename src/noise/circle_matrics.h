// Sliding minimum over the last eight vectors: the long window of the noise estimator's minimum
// tracking (Martin, "Noise power spectral density estimation based on optimal smoothing and minimum
// statistics", 2001, keeps its sub-window minima in the same way).
//
// Functions that take a record or a vector do nothing when it is null.
#ifndef TM_SE_BF_NOISE_CIRCLE_MATRICS_H
#define TM_SE_BF_NOISE_CIRCLE_MATRICS_H

#include <cstdint>

#include "support/tamrin_memory.h"

// Vectors in the window.
constexpr int32_t kCircularRows = 8;

#pragma pack(push, 4)
struct circular_mat {
  int32_t n;                   // vector length
  float *rows[kCircularRows];  // the vectors from oldest to newest, a permutation of the slices
  float *base;                 // [kCircularRows][n] slices, one block
};
#pragma pack(pop)

// Makes a zeroed buffer for vectors of n floats from the pool. Returns null when the pool is
// exhausted.
circular_mat *initCircularMat_in(core_state *core, int32_t n);
inline circular_mat *initCircularMat(int32_t n) {
  return initCircularMat_in(&process_core, n);
}

// Releases the buffer through the pool.
void uinitCircularMat(circular_mat *mat);

// Copies `vec` (n floats) into every row.
void resetCircularMat(circular_mat *mat, const float *vec);

// Replaces the oldest row by `vec` (n floats), which becomes the newest; moves no other vector.
void shiftToPutCircularMat(circular_mat *mat, const float *vec);

// Writes the element-wise minimum of the rows to `out` (n floats). Slices are compared strictly and
// in storage order: a not-a-number in the first slice stays, in any other it is skipped.
void getMinFrmCircleMat(const circular_mat *mat, float *out);

// Smooths x (len floats) in place with the kernel (0.25, 0.5, 0.25). The ends deliberately differ:
// the first value becomes 0.75 x[0] + 0.25 x[1], the last 0.5 x[len-2] + 0.5 x[len-1]. Does nothing
// for len < 2. Only tests call it.
void b_spline(float *x, int32_t len);

#endif  // TM_SE_BF_NOISE_CIRCLE_MATRICS_H
