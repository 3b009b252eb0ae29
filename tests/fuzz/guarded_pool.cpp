// The memory pool for address-sanitized programs: the same accounting and alignment as the
// library's, but with a poisoned gap behind every block. A run over the end of one array into the
// next is caught here, while the plain pool hides it. What an emptied pool held is poisoned with
// its next use.
#include <sanitizer/asan_interface.h>

#include <cstring>

#include "support/tamrin_memory.h"

int32_t kStaticMemoryPosition = 0;

namespace {

// A block starts at kSpread times its offset in the library's pool, so the gap behind it is four
// times as long as the block. The factor is odd, so that blocks are not aligned better than there.
constexpr int32_t kSpread = 5;

alignas(8) uint8_t memory[kSpread * kStaticMemorySize];
uint32_t generation = 1;

}  // namespace

void *tamrin_malloc(int32_t size) {
  if (size < 0 || size > kStaticMemorySize - kStaticMemoryPosition) {
    return nullptr;
  }
  if (kStaticMemoryPosition == 0) {
    ASAN_POISON_MEMORY_REGION(memory, sizeof memory);
  }
  uint8_t *block = memory + kSpread * kStaticMemoryPosition;
  const int32_t rounded = (size + kPoolAlignment - 1) / kPoolAlignment * kPoolAlignment;
  ASAN_UNPOISON_MEMORY_REGION(block, static_cast<size_t>(rounded));
  std::memset(block, 0, static_cast<size_t>(rounded));
  kStaticMemoryPosition += rounded;
  return block;
}

void tamrin_free(const void *) {
  generation += kStaticMemoryPosition != 0 ? 1 : 0;
  kStaticMemoryPosition = 0;
}

uint32_t tamrin_generation() {
  return generation;
}

int tamrin_warning(const char *) {
  return 0;
}

int tamrin_warning_int(const char *, int) {
  return 0;
}
