// The checking twins of the operations in q31_arith.h: the same words, and a log of the range used.
//
// Every result is formed exactly in 64 bits. The log keeps the largest magnitude per operation and
// stage, and counts the results that do not fit in 32 bits. If an operation that must not wrap has
// such a result, the process aborts at its end, so that no program of a checked build hides it. Not
// protected against concurrent use. Only q31_arith.h includes this header.
#ifndef TM_SE_BF_SPECTRAL_Q31_CHECKED_ARITH_H
#define TM_SE_BF_SPECTRAL_Q31_CHECKED_ARITH_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

enum q31_operation : int32_t {
  Q31_ADD,
  Q31_SUB,
  Q31_SHIFT_UP,
  Q31_SHIFT_DOWN,
  Q31_MUL_HIGH,
  Q31_MUL_HIGH_ROUND,
  Q31_MAC_ROUND,
  Q31_MSUB_ROUND,
  Q31_ADD_WRAP,
  Q31_SUB_WRAP,
  kQ31Operations,
};

constexpr int32_t kQ31Stages = 16;

// Range that the operations of one stage used.
struct q31_stage_log {
  const char *name;
  int64_t peak[kQ31Operations];      // largest magnitude of an exact result
  int64_t overflow[kQ31Operations];  // results beyond 32 bits; intended ones for the two wraps
};

// Everything since the start or the last q31_log_clear. Operations before the first q31_stage count
// as the stage "unmarked". When kQ31Stages entries are in use, further stages share the last one.
struct q31_range_log {
  q31_stage_log stages[kQ31Stages] = {{"unmarked", {}, {}}};
  int32_t used = 1;
  int32_t current = 0;

  ~q31_range_log();
};

inline q31_range_log g_q31_log;

// Number of results that did not fit in 32 bits, without those of the wrapping operations.
inline int64_t q31_log_overflows() {
  int64_t sum = 0;
  for (const q31_stage_log &stage : g_q31_log.stages) {
    for (int32_t operation = 0; operation < Q31_ADD_WRAP; ++operation) {
      sum += stage.overflow[operation];
    }
  }
  return sum;
}

inline void q31_log_clear() {
  std::memset(g_q31_log.stages, 0, sizeof g_q31_log.stages);
  g_q31_log.stages[0].name = "unmarked";
  g_q31_log.used = 1;
  g_q31_log.current = 0;
}

inline q31_range_log::~q31_range_log() {
  if (q31_log_overflows() != 0) {
    std::fputs("q31: a fixed-point operation left the 32-bit range\n", stderr);
    std::abort();
  }
}

inline void q31_stage(const char *name) {
  q31_range_log *log = &g_q31_log;
  int32_t i = 0;
  while (i < log->used && std::strcmp(log->stages[i].name, name) != 0) {
    ++i;
  }
  if (i == log->used && i < kQ31Stages) {
    log->stages[i].name = name;
    log->used += 1;
  }
  log->current = i < kQ31Stages ? i : kQ31Stages - 1;
}

// Records the exact result and returns its low word.
inline int32_t q31_log_result(q31_operation operation, int64_t exact) {
  q31_stage_log *stage = &g_q31_log.stages[g_q31_log.current];
  const int64_t magnitude = exact < 0 ? -exact : exact;
  stage->peak[operation] = magnitude > stage->peak[operation] ? magnitude : stage->peak[operation];
  stage->overflow[operation] += exact < INT32_MIN || exact > INT32_MAX ? 1 : 0;
  return static_cast<int32_t>(static_cast<uint32_t>(exact));
}

inline int32_t q31_add_wrap(int32_t x, int32_t y) {
  return q31_log_result(Q31_ADD_WRAP, static_cast<int64_t>(x) + y);
}

inline int32_t q31_sub_wrap(int32_t x, int32_t y) {
  return q31_log_result(Q31_SUB_WRAP, static_cast<int64_t>(x) - y);
}

inline int32_t q31_add(int32_t x, int32_t y) {
  return q31_log_result(Q31_ADD, static_cast<int64_t>(x) + y);
}

inline int32_t q31_sub(int32_t x, int32_t y) {
  return q31_log_result(Q31_SUB, static_cast<int64_t>(x) - y);
}

inline int32_t q31_shift_up(int32_t x, int bits) {
  return q31_log_result(Q31_SHIFT_UP, static_cast<int64_t>(x) * (int64_t{1} << bits));
}

inline int32_t q31_shift_down(int32_t x, int bits) {
  return q31_log_result(Q31_SHIFT_DOWN, static_cast<int64_t>(x) >> bits);
}

inline int32_t q31_mul_high(int32_t x, int32_t y) {
  return q31_log_result(Q31_MUL_HIGH, (static_cast<int64_t>(x) * y) >> 32);
}

inline int64_t q31_rounded_high_word(int64_t product) {
  return (product + kQ31RoundHalf) >> 32;
}

inline int32_t q31_mul_high_round(int32_t x, int32_t y) {
  return q31_log_result(Q31_MUL_HIGH_ROUND, q31_rounded_high_word(static_cast<int64_t>(x) * y));
}

inline int32_t q31_mac_round(int32_t acc, int32_t x, int32_t y) {
  return q31_log_result(Q31_MAC_ROUND, acc + q31_rounded_high_word(static_cast<int64_t>(x) * y));
}

inline int32_t q31_msub_round(int32_t acc, int32_t x, int32_t y) {
  return q31_log_result(Q31_MSUB_ROUND, acc + q31_rounded_high_word(-static_cast<int64_t>(x) * y));
}

#endif  // TM_SE_BF_SPECTRAL_Q31_CHECKED_ARITH_H
