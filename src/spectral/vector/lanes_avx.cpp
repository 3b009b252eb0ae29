// The kernel of x86-64 processors with AVX. Compiled for it, called only where it exists.
#include "spectral/vector/kernel.h"

#if defined(__AVX__)

#include "spectral/vector/lanes_sse41.h"
#include "spectral/vector/pairs_rfft.h"

const q31_vector_kernel q31_vector_avx = q31_pairs::make_kernel<sse41_lanes>();

#else

const q31_vector_kernel q31_vector_avx = {};

#endif
