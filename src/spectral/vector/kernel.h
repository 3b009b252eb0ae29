// Vector kernels of the block-scaled real transform, for the two lengths that the library streams
// with.
//
// A kernel does what the scalar path of fftwrap_fixpoint does, to the bit, on several values at a
// time: conversion, stages, split and conversion back, with real and imaginary parts in planes of
// their own. The bit reversal costs nothing: the last stage loads its groups in reversed order.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_KERNEL_H
#define TM_SE_BF_SPECTRAL_VECTOR_KERNEL_H

#include <cstdint>

// Work space of a kernel for N points: `frame` of N words and `spectrum` of 2N words.
struct q31_vector_work {
  int32_t *frame;
  int32_t *spectrum;
};

// n: 256 or 512. A block whose peak is too small to be scaled in single precision gives silence.
//
// Forward: `in`, n time samples, to `out`, a packed spectrum (in may be out). With a window of n
// floats the samples are first multiplied by it, into `product`, n floats; null for none.
using q31_vector_forward = void (*)(q31_vector_work work, int32_t n, const float *in,
                                    const float *window, float *product, float *out);

// Inverse: `in`, a packed spectrum, to `out`, n time samples (in may be out), multiplied by the
// window of n floats, or null for none.
using q31_vector_inverse = void (*)(q31_vector_work work, int32_t n, const float *in,
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
