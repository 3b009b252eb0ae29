// Reading of fuzzer input as a script: little-endian numbers from the front, zeros past the end.
#ifndef TM_SE_BF_TESTS_FUZZ_SCRIPT_H
#define TM_SE_BF_TESTS_FUZZ_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

struct fuzz_script {
  const uint8_t *next;
  size_t left;
};

inline uint32_t take(fuzz_script *script, size_t bytes) {
  uint32_t value = 0;
  const size_t held = bytes < script->left ? bytes : script->left;
  for (size_t i = 0; i < held; ++i) {
    value |= static_cast<uint32_t>(script->next[i]) << (8 * i);
  }
  script->next += held;
  script->left -= held;
  return value;
}

// Any bit pattern, not-a-number and denormals included.
inline float take_float(fuzz_script *script) {
  const uint32_t bits = take(script, sizeof(float));
  float value = 0.0f;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// Ends the run as a finding.
inline void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

#endif  // TM_SE_BF_TESTS_FUZZ_SCRIPT_H
