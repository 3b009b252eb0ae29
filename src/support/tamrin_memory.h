// The static memory pool from which every object of the library is taken, and the diagnostic
// printers.
//
// A bump allocator hands out one process-wide array: an allocation moves a position forward, and
// the release of any block moves it back to the start. Blocks carry no header, nothing is returned
// to the operating system, and the heap is never used. Not protected against concurrent use.
//
// Blocks start at multiples of 4 bytes, so a record with pointers may start at an address that is 4
// modulo 8 on a 64-bit machine. Records that live in the pool are therefore declared under
// `#pragma pack(push, 4)`, which also keeps them small.
#ifndef TM_SE_BF_SUPPORT_TAMRIN_MEMORY_H
#define TM_SE_BF_SUPPORT_TAMRIN_MEMORY_H

#include <cstdint>

// Size of the pool in bytes: 100 KiB, which holds any supported configuration.
constexpr int32_t kStaticMemorySize = 102400;

// Granule and alignment of blocks in bytes.
constexpr int32_t kPoolAlignment = 4;

// The pool itself, aligned to kPoolAlignment and zero at start-up.
extern uint8_t kStaticMemory[kStaticMemorySize];

// Bytes handed out so far, that is the offset of the next block; always a multiple of 4.
extern int32_t kStaticMemoryPosition;

// Takes `size` bytes (rounded up to a multiple of 4), zero-filled, from the pool. The first request
// after start-up or after a release prints a note on standard output. Returns null, after a message
// on standard error, when the pool cannot hold the request or the size is negative.
void *tamrin_malloc(int32_t size);

// Returns `ptr` when the old size suffices, else a fresh zero-filled block, or null when the pool
// cannot hold it. Deliberately neither copies the old contents nor releases the old block: the
// caller copies what it needs. Only tests call it.
void *tamrin_realloc(void *ptr, int32_t old_size, int32_t new_size);

// Empties the whole pool, whatever the argument: every block of every instance is released at once.
void tamrin_free(const void *ptr);

// Generation of the pool, from 1. It grows by one whenever a release empties a pool that is in use.
// A block is live only as long as the generation is still the one in which the block was taken.
uint32_t tamrin_generation();

// Prints the message on standard output and ends the process with status 1. Only tests call it.
[[noreturn]] void tamrin_fatal(const char *msg);

// Print a warning on standard error, in the second form followed by an integer; return the number
// of characters printed.
int tamrin_warning(const char *msg);
int tamrin_warning_int(const char *msg, int value);

#endif  // TM_SE_BF_SUPPORT_TAMRIN_MEMORY_H
