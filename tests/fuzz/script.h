// Reading of fuzzer input as a script: little-endian numbers from the front, zeros past the end.
#ifndef TM_SE_BF_TESTS_FUZZ_SCRIPT_H
#define TM_SE_BF_TESTS_FUZZ_SCRIPT_H

#include <cassert>  // on in every build of the targets: a failure is a finding
#include <cstdint>
#include <cstring>

struct fuzz_script {
  const uint8_t *next;
  size_t left;
};

inline uint32_t take(fuzz_script *script, size_t bytes) {
  uint32_t value = 0;
  for (size_t i = 0; i < bytes && script->left > 0; ++i) {
    value |= static_cast<uint32_t>(*script->next) << (8 * i);
    script->next += 1;
    script->left -= 1;
  }
  return value;
}

// Any bit pattern, not-a-number and denormals included.
inline float take_float(fuzz_script *script) {
  const uint32_t bits = take(script, sizeof(float));
  float value = 0.0f;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// One of the usual values, or any value.
template <typename value, size_t kCount>
value pick(fuzz_script *script, const value (&usual)[kCount]) {
  const uint32_t choice = take(script, 1);
  if (choice < kCount) {
    return usual[choice];
  }
  const uint32_t bits = take(script, sizeof(value));
  value any;
  std::memcpy(&any, &bits, sizeof any);  // on machines whose low bytes come first
  return any;
}

#endif  // TM_SE_BF_TESTS_FUZZ_SCRIPT_H
