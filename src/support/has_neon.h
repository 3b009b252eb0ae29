// Whether the processor has NEON. All 64-bit Arm processors have it, and most of 32 bits.
#ifndef TM_SE_BF_SUPPORT_HAS_NEON_H
#define TM_SE_BF_SUPPORT_HAS_NEON_H

#if defined(__arm__) && defined(__linux__)

#include <asm/hwcap.h>
#include <sys/auxv.h>

inline bool has_neon() {
  return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
}

#elif defined(__aarch64__)

inline bool has_neon() {
  return true;
}

#else

inline bool has_neon() {
  return false;
}

#endif

#endif  // TM_SE_BF_SUPPORT_HAS_NEON_H
