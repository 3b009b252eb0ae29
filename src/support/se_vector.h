// Attributes for code in and beside per-frame loops.
//
// SE_BF_VECTOR_CLONES: loops that the compiler also compiles for wider vectors. On x86-64 the
// loader picks the AVX2 form where the processor has it. Both forms give the same bits: the loops
// hold independent lanes in single precision, and products are never contracted into sums.
#ifndef TM_SE_BF_SUPPORT_SE_VECTOR_H
#define TM_SE_BF_SUPPORT_SE_VECTOR_H

#if defined(TM_SE_BF_USE_AVX2) && !defined(__AVX2__)
#define SE_BF_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define SE_BF_VECTOR_CLONES __attribute__((noinline))
#endif

// Before a loop whose rounds are independent of each other although its pointers cannot say so.
// clang compares the pointers at run time instead: its pragma warns where it cannot vectorise.
#if defined(__clang__)
#define SE_BF_INDEPENDENT_ROUNDS
#else
#define SE_BF_INDEPENDENT_ROUNDS _Pragma("GCC ivdep")
#endif

// Attribute of functions that do not work on the bins of every frame: small code beside hot loops.
#define SE_BF_RARELY_RUN __attribute__((cold, noinline))

#endif  // TM_SE_BF_SUPPORT_SE_VECTOR_H
