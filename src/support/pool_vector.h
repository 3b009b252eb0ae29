// Takes vectors from the pool of a core, copies them and releases them.
#ifndef TM_SE_BF_SUPPORT_POOL_VECTOR_H
#define TM_SE_BF_SUPPORT_POOL_VECTOR_H

#include <cstdint>
#include <cstring>

#include "support/se_maths.h"
#include "support/tamrin_memory.h"

// Takes `count` floats, all zero. Returns null when the pool is exhausted.
inline float *pool_floats(core_state *core, int32_t count) {
  return static_cast<float *>(tamrin_malloc_in(core, count * static_cast<int32_t>(sizeof(float))));
}

// Takes `count` complex numbers, all zero. Returns null when the pool is exhausted.
inline se_complex *pool_complex(core_state *core, int32_t count) {
  return static_cast<se_complex *>(
      tamrin_malloc_in(core, count * static_cast<int32_t>(sizeof(se_complex))));
}

// Copies `count` floats; the vectors must not overlap. Copies nothing for count <= 0.
inline void copy_floats(float *to, const float *from, int32_t count) {
  if (count > 0) {
    std::memcpy(to, from, static_cast<size_t>(count) * sizeof(float));
  }
}

// Releases a block of the process's pool, and with it the whole pool; null is accepted and releases
// nothing.
inline void pool_release(const void *block) {
  if (block != nullptr) {
    tamrin_free(block);
  }
}

#endif  // TM_SE_BF_SUPPORT_POOL_VECTOR_H
