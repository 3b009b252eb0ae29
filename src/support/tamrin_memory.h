// The memory pool from which every object of the library is taken, and the diagnostic printers.
//
// A bump allocator hands out a fixed array: an allocation moves a position forward, and the release
// of any block moves it back to the start. Blocks carry no header, nothing is returned to the
// operating system, and the heap is never used. Not protected against concurrent use.
//
// Functions named _in take the core whose pool is meant; the others mean that of the process.
//
// Blocks start at multiples of 4 bytes, so a record with pointers may start at an address that is 4
// modulo 8 on a 64-bit machine. Records that live in the pool are therefore declared under
// `#pragma pack(push, 4)`, which also keeps them small.
#ifndef TM_SE_BF_SUPPORT_TAMRIN_MEMORY_H
#define TM_SE_BF_SUPPORT_TAMRIN_MEMORY_H

#include <cstdint>

#include "support/core_state.h"

// The pool of the process, and the bytes handed out of it so far.
extern uint8_t (&kStaticMemory)[kStaticMemorySize];
extern int32_t &kStaticMemoryPosition;

// Takes `size` bytes (rounded up to a multiple of 4), zero-filled, from the pool. The first request
// after start-up or after a release prints a note on standard output. Returns null, after a message
// on standard error, when the pool cannot hold the request or the size is negative.
void *tamrin_malloc_in(core_state *core, int32_t size);
void *tamrin_malloc(int32_t size);

// Returns `ptr` when the old size suffices, else a fresh zero-filled block, or null when the pool
// cannot hold it. Deliberately neither copies the old contents nor releases the old block: the
// caller copies what it needs. Only tests call it.
void *tamrin_realloc(void *ptr, int32_t old_size, int32_t new_size);

// Empties the whole pool, whatever the block: every block of every instance is released at once.
void tamrin_free_in(core_state *core, const void *block);
void tamrin_free(const void *block);

// Prints the message on standard output and ends the process with status 1. Only tests call it.
[[noreturn]] void tamrin_fatal(const char *msg);

// Print a warning, with an integer behind it in the second form, on standard error; return the
// number of characters printed. A quiet core prints none.
int tamrin_warning_in(const core_state *core, const char *msg);
int tamrin_warning_int_in(const core_state *core, const char *msg, int value);
int tamrin_warning(const char *msg);
int tamrin_warning_int(const char *msg, int value);

// Prints a line on standard output; a quiet core does not.
void tamrin_note(const core_state *core, const char *line);

#endif  // TM_SE_BF_SUPPORT_TAMRIN_MEMORY_H
