// Vectors over frequency bins as the refined path keeps them: real and imaginary parts apart, so
// that loops over bins need no shuffles, and 256 bins, so that they leave no remainder.
#ifndef TM_SE_BF_STREAM_BIN_VECTOR_H
#define TM_SE_BF_STREAM_BIN_VECTOR_H

#include <cstdint>
#include <cstring>

// Hop and FFT length N of the refined path, in samples.
constexpr int32_t kRefinedHop = 320;
constexpr int32_t kRefinedFft = 512;

// Bins 0 .. N/2 - 1. The transform leaves the Nyquist bin out, and DC is set to 0.
constexpr int32_t kRefinedBins = kRefinedFft / 2;

struct bin_spectrum {
  float re[kRefinedBins];
  float im[kRefinedBins];
};

// Square of N: powers of spectra in units of (1/N)^2, which the transform yields, are this much
// smaller than those of an unscaled transform of 16-bit samples.
constexpr float kRefinedPowerScale =
    static_cast<float>(kRefinedFft) * static_cast<float>(kRefinedFft);

// Sums over a loop are taken in this many partial sums, value k in sum k modulo their number: an
// order that every vector width can keep.
constexpr int32_t kSumLanes = 8;

// A row of partial sums, or of the values that are added to them. The compiler keeps it in vectors
// of any width.
typedef float sum_row __attribute__((vector_size(kSumLanes * sizeof(float))));

inline void load_row(sum_row *row, const float *values) {
  std::memcpy(row, values, sizeof *row);
}

// Adds the partial sums up, always in the same order.
inline float add_lanes(const float *lanes) {
  const float first = (lanes[0] + lanes[4]) + (lanes[2] + lanes[6]);
  const float second = (lanes[1] + lanes[5]) + (lanes[3] + lanes[7]);
  return first + second;
}

inline float add_row(const sum_row *row) {
  float lanes[kSumLanes];
  std::memcpy(lanes, row, sizeof lanes);
  return add_lanes(lanes);
}

#endif  // TM_SE_BF_STREAM_BIN_VECTOR_H
