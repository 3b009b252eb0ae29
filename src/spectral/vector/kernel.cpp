// Choice of the vector kernel by what the processor can run.
#include "spectral/vector/kernel.h"

#include "support/has_neon.h"

namespace {

#if defined(TM_SE_BF_CHECK_Q31) || defined(TM_SE_BF_SMALL)
constexpr bool kUseVectors = false;  // only the scalar path has checking twins, and is small
#else
constexpr bool kUseVectors = true;
#endif

// Whether the processor has what the kernel is compiled for. A build for one processor does without
// the compiler's 4.6 kB that ask it.
bool has_instructions(const q31_vector_kernel *kernel) {
#if defined(TM_SE_BF_PICK_X86)
  if (kernel == &q31_vector_avx2) {
    return __builtin_cpu_supports("avx2") != 0;
  }
  if (kernel == &q31_vector_avx) {
    return __builtin_cpu_supports("avx") != 0;
  }
  if (kernel == &q31_vector_sse41) {
    return __builtin_cpu_supports("sse4.1") != 0;
  }
#endif
  return kernel != &q31_vector_neon || has_neon();
}

}  // namespace

bool q31_vector_runs(const q31_vector_kernel *kernel) {
  return kernel->forward != nullptr && has_instructions(kernel);
}

const q31_vector_kernel *q31_vector_kernel_for(int32_t n) {
  if (!kUseVectors || (n != kVectorShortLength && n != kVectorLongLength)) {
    return nullptr;
  }
  const q31_vector_kernel *const fastest_first[] = {
      &q31_vector_avx2, &q31_vector_avx, &q31_vector_sse41, &q31_vector_sse2, &q31_vector_neon};
  for (const q31_vector_kernel *const kernel : fastest_first) {
    if (q31_vector_runs(kernel)) {
      return kernel;
    }
  }
  return nullptr;
}
