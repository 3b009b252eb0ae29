// NEON forms of the loops over PCM. Vectors of 32-bit Arm flush denormal numbers, but floats that
// hold integers, or become integers, do not mind.
#ifndef TM_SE_BF_SUPPORT_PCM_NEON_H
#define TM_SE_BF_SUPPORT_PCM_NEON_H

#include <cstdint>

// Each does as many samples as fill vectors, and returns their number. The caller's own loop, which
// says what is computed, goes on from there. To be called only where has_neon says so.
struct pcm_neon_loops {
  int32_t (*to_floats)(const int16_t *in, float *samples, int32_t count);
  int32_t (*to_two_channels)(const int16_t *in, float *first, float *second, int32_t count);
  int32_t (*to_pcm)(const float *x, int16_t *out, int32_t count);
  // Of floats that are integers.
  int32_t (*mean_of_two)(const float *first, const float *second, float *mean, int32_t count);
  // Adds to the sums, which stay below 2^31.
  int32_t (*add_magnitudes)(const int16_t *in, int32_t count, int32_t *first, int32_t *second);
};

// Its pointers are null where the build has no NEON.
extern const pcm_neon_loops pcm_neon;

#endif  // TM_SE_BF_SUPPORT_PCM_NEON_H
