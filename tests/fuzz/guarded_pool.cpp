// The memory pool for address-sanitized programs: the same accounting and alignment as the
// library's, but with a poisoned gap behind every block. A run over the end of one array into the
// next is caught here, while the plain pool hides it. What an emptied pool held is poisoned with
// its next use.
#include <sanitizer/asan_interface.h>

#include <cstring>

#include "support/tamrin_memory.h"

core_state process_core;
uint8_t (&kStaticMemory)[kStaticMemorySize] = process_core.memory;
int32_t &kStaticMemoryPosition = process_core.position;

namespace {

// Gaps are four times as long as the blocks before them. Being odd, the spread keeps the alignment
// of the library's pool.
constexpr int32_t kSpread = 5;

alignas(8) uint8_t memory[kSpread * kStaticMemorySize];

}  // namespace

void *tamrin_malloc_in(core_state *core, int32_t size) {
  if (size < 0 || size > kStaticMemorySize - core->position) {
    return nullptr;
  }
  if (core->position == 0) {
    ASAN_POISON_MEMORY_REGION(memory, sizeof memory);
  }
  uint8_t *block = memory + kSpread * core->position;
  const int32_t rounded = (size + kPoolAlignment - 1) / kPoolAlignment * kPoolAlignment;
  ASAN_UNPOISON_MEMORY_REGION(block, static_cast<size_t>(rounded));
  std::memset(block, 0, static_cast<size_t>(rounded));
  core->position += rounded;
  return block;
}

void *tamrin_malloc(int32_t size) {
  return tamrin_malloc_in(&process_core, size);
}

void tamrin_free_in(core_state *core, const void *) {
  core->generation += core->position != 0 ? 1 : 0;
  core->position = 0;
}

void tamrin_free(const void *block) {
  tamrin_free_in(&process_core, block);
}

int tamrin_warning_in(const core_state *, const char *) {
  return 0;
}

int tamrin_warning_int_in(const core_state *, const char *, int) {
  return 0;
}

void tamrin_note(const core_state *, const char *) {
}
