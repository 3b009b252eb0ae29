// Bump allocator over one static array, and the diagnostic printers.
#include "support/tamrin_memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

alignas(kPoolAlignment) uint8_t kStaticMemory[kStaticMemorySize];
int32_t kStaticMemoryPosition = 0;

namespace {

uint32_t generation = 1;

}  // namespace

void *tamrin_malloc(int32_t size) {
  if (kStaticMemoryPosition == 0) {
    std::puts("using static buffer for malloc");
  }

  // Unsigned, because position and size may add up to more than INT32_MAX. A negative size would
  // wrap around and move the position backwards: it is refused on its own.
  const uint32_t position = static_cast<uint32_t>(kStaticMemoryPosition);
  const uint32_t sum = position + static_cast<uint32_t>(size);
  if (size < 0 || sum > static_cast<uint32_t>(kStaticMemorySize)) {
    std::fprintf(stderr, "[ ERROR! ]:Capacity: %d, Added:%d (%d + %d).\n", kStaticMemorySize,
                 static_cast<int32_t>(sum), kStaticMemoryPosition, size);
    return nullptr;
  }

  // Position and capacity are multiples of the alignment, so the rounded block still fits.
  const int32_t remainder = size % kPoolAlignment;
  const int32_t rounded = remainder == 0 ? size : size + kPoolAlignment - remainder;

  uint8_t *block = kStaticMemory + kStaticMemoryPosition;
  std::memset(block, 0, static_cast<size_t>(rounded));
  kStaticMemoryPosition += rounded;
  return block;
}

void *tamrin_realloc(void *ptr, int32_t old_size, int32_t new_size) {
  if (old_size >= new_size) {
    return ptr;
  }
  return tamrin_malloc(new_size);
}

void tamrin_free(const void *) {
  if (kStaticMemoryPosition != 0) {
    kStaticMemoryPosition = 0;
    generation += 1;
  }
}

uint32_t tamrin_generation() {
  return generation;
}

void tamrin_fatal(const char *msg) {
  std::printf("Fatal (internal) error  %s\n", msg);
  std::exit(EXIT_FAILURE);
}

int tamrin_warning(const char *msg) {
  return std::fprintf(stderr, "warning: %s\n", msg);
}

int tamrin_warning_int(const char *msg, int value) {
  return std::fprintf(stderr, "warning: %s %d\n", msg, value);
}
