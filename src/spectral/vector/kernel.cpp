// Choice of the vector kernel by what the processor can run.
#include "spectral/vector/kernel.h"

#include "support/has_neon.h"

namespace {

#if defined(TM_SE_BF_CHECK_Q31)
constexpr bool kUseVectors = false;  // only the scalar path has checking twins
#else
constexpr bool kUseVectors = true;
#endif

#if defined(TM_SE_BF_USE_AVX2)
bool has_avx2() {
  return __builtin_cpu_supports("avx2") != 0;
}
#else
bool has_avx2() {
  return false;
}
#endif

}  // namespace

const q31_vector_kernel *q31_vector_kernel_for(int32_t n) {
  if (!kUseVectors || (n != kVectorShortLength && n != kVectorLongLength)) {
    return nullptr;
  }
  if (q31_vector_avx2.forward != nullptr && has_avx2()) {
    return &q31_vector_avx2;
  }
  if (q31_vector_sse2.forward != nullptr) {
    return &q31_vector_sse2;
  }
  return q31_vector_neon.forward != nullptr && has_neon() ? &q31_vector_neon : nullptr;
}
