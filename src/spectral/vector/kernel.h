// Vector kernels: the block-scaled real transform of fftwrap_fixpoint on several values at a time.
//
// A kernel gives the bits of the scalar path. There are kernels for the two lengths that the
// library streams with. The parts, from the outside in:
//   kernel.cpp        picks the kernel that the processor can run
//   lanes_*.cpp       one kernel each: the vector operations of a processor, given to the templates
//   rfft.h, cfft.h    these templates: the real transform, and the complex one inside it
//   pairs_rfft.h, pairs_cfft.h
//                     templates for multipliers that take the even lanes of signed words: x86-64
//                     from SSE4.1 on
//   lanes.h           the operations that the templates need from a processor
//   tables.h          twiddle and split factors in the order in which vectors load them
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

// Both directions return false, with `out` untouched, for a block that they leave to the scalar
// path: one whose peak is not between 2^-60 and 2^60, for some kernels one that holds values that
// are not finite, and with the vectors of 32-bit Arm one with denormal numbers that count.
//
// Forward: transforms `in`, n time samples, to `out`, a packed spectrum (in may be out). With a
// window of n floats the samples are first multiplied by it, into `product`, n floats. A null
// window means none; `product` is then not used.
using q31_vector_forward = bool (*)(q31_vector_work work, int32_t n, const float *in,
                                    const float *window, float *product, float *out);

// Inverse: transforms `in`, a packed spectrum, to `out`, n time samples (in may be out), and
// multiplies them by the window of n floats; a null window means none.
using q31_vector_inverse = bool (*)(q31_vector_work work, int32_t n, const float *in,
                                    const float *window, float *out);

struct q31_vector_kernel {
  q31_vector_forward forward;
  q31_vector_inverse inverse;
};

// The fastest kernel that this processor can run for n points, or null when there is none.
const q31_vector_kernel *q31_vector_kernel_for(int32_t n);

// The kernel of each processor; its pointers are null where the build has none. Exposed so that
// tests can compare each with the scalar path.
extern const q31_vector_kernel q31_vector_sse2;
extern const q31_vector_kernel q31_vector_sse41;
extern const q31_vector_kernel q31_vector_avx;
extern const q31_vector_kernel q31_vector_avx2;
extern const q31_vector_kernel q31_vector_neon;

// Whether the build has the kernel and this processor can run it.
bool q31_vector_runs(const q31_vector_kernel *kernel);

#endif  // TM_SE_BF_SPECTRAL_VECTOR_KERNEL_H
