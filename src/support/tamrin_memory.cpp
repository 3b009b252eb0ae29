// Bump allocator over one array, and the diagnostic printers.
#include "support/tamrin_memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

core_state process_core;
uint8_t (&kStaticMemory)[kStaticMemorySize] = process_core.memory;
int32_t &kStaticMemoryPosition = process_core.position;

void *tamrin_malloc_in(core_state *core, int32_t size) {
  if (core->position == 0) {
    tamrin_note(core, "using static buffer for malloc");
  }

  // Unsigned, because position and size may add up to more than INT32_MAX. A negative size would
  // wrap around and move the position backwards: it is refused on its own.
  const uint32_t sum = static_cast<uint32_t>(core->position) + static_cast<uint32_t>(size);
  if (size < 0 || sum > static_cast<uint32_t>(kStaticMemorySize)) {
    if (core->quiet == 0) {
      std::fprintf(stderr, "[ ERROR! ]:Capacity: %d, Added:%d (%d + %d).\n", kStaticMemorySize,
                   static_cast<int32_t>(sum), core->position, size);
    }
    return nullptr;
  }

  // Position and capacity are multiples of the alignment, so the rounded block still fits.
  const int32_t remainder = size % kPoolAlignment;
  const int32_t rounded = remainder == 0 ? size : size + kPoolAlignment - remainder;

  uint8_t *block = core->memory + core->position;
  std::memset(block, 0, static_cast<size_t>(rounded));
  core->position += rounded;
  return block;
}

void *tamrin_malloc(int32_t size) {
  return tamrin_malloc_in(&process_core, size);
}

void *tamrin_realloc(void *ptr, int32_t old_size, int32_t new_size) {
  if (old_size >= new_size) {
    return ptr;
  }
  return tamrin_malloc(new_size);
}

void tamrin_free_in(core_state *core, const void *) {
  if (core->position != 0) {
    core->position = 0;
    core->generation += 1;
  }
}

void tamrin_free(const void *block) {
  tamrin_free_in(&process_core, block);
}

void tamrin_fatal(const char *msg) {
  std::printf("Fatal (internal) error  %s\n", msg);
  std::exit(EXIT_FAILURE);
}

int tamrin_warning_in(const core_state *core, const char *msg) {
  return core->quiet == 0 ? std::fprintf(stderr, "warning: %s\n", msg) : 0;
}

int tamrin_warning_int_in(const core_state *core, const char *msg, int value) {
  return core->quiet == 0 ? std::fprintf(stderr, "warning: %s %d\n", msg, value) : 0;
}

int tamrin_warning(const char *msg) {
  return tamrin_warning_in(&process_core, msg);
}

int tamrin_warning_int(const char *msg, int value) {
  return tamrin_warning_int_in(&process_core, msg, value);
}

void tamrin_note(const core_state *core, const char *line) {
  if (core->quiet == 0) {
    std::puts(line);
  }
}
