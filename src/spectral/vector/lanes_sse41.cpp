// The kernel of x86-64 processors with SSE4.1. Compiled for it, called only where it exists.
#include "spectral/vector/kernel.h"

#if defined(__SSE4_1__)

#include "spectral/vector/lanes_sse41.h"
#include "spectral/vector/pairs_rfft.h"

const q31_vector_kernel q31_vector_sse41 = q31_pairs::make_kernel<sse41_lanes>();

#else

const q31_vector_kernel q31_vector_sse41 = {};

#endif
