// Attributes that tell the compiler which functions and loops decide the speed, and which do not.
//
// SE_BF_VECTOR_CLONES: a function whose loops are also compiled for wider vectors. On x86-64 the
// loader picks the AVX2 form where the processor has it. Both forms give the same bits: iterations
// in single precision are independent of each other, sums over a loop are integers, and
// multiplications and additions are never fused.
#ifndef TM_SE_BF_SUPPORT_SE_VECTOR_H
#define TM_SE_BF_SUPPORT_SE_VECTOR_H

#if defined(TM_SE_BF_USE_AVX2) && !defined(__AVX2__)
#define SE_BF_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define SE_BF_VECTOR_CLONES __attribute__((noinline))
#endif

// Stands before a loop whose iterations are independent although the compiler cannot conclude that
// from its pointers. For clang it is empty: clang checks the pointers at run time, and its own
// pragma would warn about each loop that it cannot vectorise.
#if defined(__clang__)
#define SE_BF_INDEPENDENT_ROUNDS
#else
#define SE_BF_INDEPENDENT_ROUNDS _Pragma("GCC ivdep")
#endif

// A function with little or no work per frame: compiled for size, and kept out of hot loops.
#define SE_BF_RARELY_RUN __attribute__((cold, noinline))

#endif  // TM_SE_BF_SUPPORT_SE_VECTOR_H
