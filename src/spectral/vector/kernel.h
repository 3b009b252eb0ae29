// Vector kernels: the block-scaled real transform of fftwrap_fixpoint on several values at a time.
//
// A kernel gives the bits of the scalar path. It exists for the two lengths that the library
// streams with. The parts, from here inwards:
//   kernel.cpp        picks the kernel that the processor can run
//   lanes_*.cpp       one kernel each: the vector operations of a processor, put into the templates
//   rfft.h, cfft.h    these templates: real transform, and the complex one inside it
//   lanes.h           what the templates ask of a processor
//   tables.h          factors in the order in which vectors take them
#ifndef TM_SE_BF_SPECTRAL_VECTOR_KERNEL_H
#define TM_SE_BF_SPECTRAL_VECTOR_KERNEL_H

#include <cstdint>

// Real lengths N of the kernels: those of the hops that can be streamed.
constexpr int32_t kVectorShortLength = 256;
constexpr int32_t kVectorLongLength = 512;

// Work space of a kernel for N points: `frame` of N words and `spectrum` of 2N words.
struct q31_vector_work {
  int32_t *frame;
  int32_t *spectrum;
};

// Both directions return false, with `out` untouched, when the peak of the block is too small for a
// finite scale.
//
// Forward: `in`, n time samples, to `out`, a packed spectrum (in may be out). With a window of n
// floats the samples are first multiplied by it, into `product`, n floats; null for none.
using q31_vector_forward = bool (*)(q31_vector_work work, int32_t n, const float *in,
                                    const float *window, float *product, float *out);

// Inverse: `in`, a packed spectrum, to `out`, n time samples (in may be out), multiplied by the
// window of n floats, or null for none.
using q31_vector_inverse = bool (*)(q31_vector_work work, int32_t n, const float *in,
                                    const float *window, float *out);

struct q31_vector_kernel {
  q31_vector_forward forward;
  q31_vector_inverse inverse;
};

// The fastest kernel that this processor can run for n points, or null when there is none.
const q31_vector_kernel *q31_vector_kernel_for(int32_t n);

// The kernel of each processor, empty where a build has none. Exposed so that tests can hold each
// against the scalar path; the AVX2 kernel must only run where the processor has AVX2.
extern const q31_vector_kernel q31_vector_sse2;
extern const q31_vector_kernel q31_vector_avx2;
extern const q31_vector_kernel q31_vector_neon;

#endif  // TM_SE_BF_SPECTRAL_VECTOR_KERNEL_H
