// Streams at other rates than 16 kHz: only opening and closing use the heap, and opening survives a
// heap that is empty. This program brings its own heap functions, which sanitizers would not like.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <limits>
#include <vector>

#include "rate_path.h"

// The heap, counted, and refused from call `g_refused` on.
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *memory, size_t size);
extern "C" void *__libc_memalign(size_t alignment, size_t size);
extern "C" void __libc_free(void *memory);

namespace {

long g_calls = 0;
long g_live = 0;
size_t g_aligned = 0;  // bytes of the latest aligned piece
long g_refused = std::numeric_limits<long>::max();

void *counted(void *memory) {
  g_live += memory != nullptr ? 1 : 0;
  return memory;
}

bool refused() {
  return g_calls++ >= g_refused;
}

}  // namespace

extern "C" void *malloc(size_t size) {
  return refused() ? nullptr : counted(__libc_malloc(size));
}

extern "C" void *calloc(size_t count, size_t size) {
  return refused() ? nullptr : counted(__libc_calloc(count, size));
}

extern "C" void *realloc(void *memory, size_t size) {
  const bool fresh = memory == nullptr;
  if (refused()) {
    return nullptr;
  }
  return fresh ? counted(__libc_realloc(memory, size)) : __libc_realloc(memory, size);
}

extern "C" void *aligned_alloc(size_t alignment, size_t size) {
  g_aligned = size;
  return refused() ? nullptr : counted(__libc_memalign(alignment, size));
}

extern "C" void free(void *memory) {
  ++g_calls;
  g_live -= memory != nullptr ? 1 : 0;
  __libc_free(memory);
}

namespace {

constexpr int kDelay = 417;
constexpr size_t kMostBytes = 2000000;  // of a path; a table with all rows takes more
constexpr int kRates[] = {8000, 12345, 44100, 48000, 159999, 191999};

void silent_block(void *, const float *, float *out) {
  memset(out, 0, 320 * sizeof(float));
}

}  // namespace

TEST(RatesHeap, OnlyOpenAndCloseUseTheHeap) {
  for (const int rate : kRates) {
    const long live = g_live;
    const rate_path_config config = {rate, 2, kDelay, 1, silent_block, nullptr};
    rate_path *path = rate_path_open(&config, nullptr);
    ASSERT_NE(path, nullptr) << rate << " Hz";
    EXPECT_LT(g_aligned, kMostBytes) << rate << " Hz";
    std::vector<float> in(2 * 4096, 0.1f);
    std::vector<float> out(4096);
    const long calls = g_calls;
    for (int n = 0; n < 40; ++n) {
      rate_path_process(path, in.data(), out.size(), out.data());
    }
    rate_path_set_full_band(path, 0);
    rate_path_reset(path);
    EXPECT_EQ(g_calls, calls) << rate << " Hz: calls of the heap";
    rate_path_close(path);
    in = {};
    out = {};
    in.shrink_to_fit();
    out.shrink_to_fit();
    EXPECT_EQ(g_live, live) << rate << " Hz: pieces of memory left over";
  }
}

TEST(RatesHeap, OpenSurvivesEveryLackOfMemory) {
  for (const int rate : kRates) {
    const rate_path_config config = {rate, 2, kDelay, 1, silent_block, nullptr};
    const long live = g_live;
    rate_path *path = nullptr;
    int failures = 0;
    for (; path == nullptr && failures < 1000; ++failures) {
      const char *error = nullptr;
      g_refused = g_calls + failures;
      path = rate_path_open(&config, &error);
      g_refused = std::numeric_limits<long>::max();
      EXPECT_EQ(path == nullptr, error != nullptr) << rate << " Hz, allocation " << failures;
      EXPECT_EQ(g_live - live, path == nullptr ? 0 : failures) << rate << " Hz: leaks";
    }
    EXPECT_GT(failures, 1) << rate << " Hz: no allocation was refused";
    rate_path_close(path);
    EXPECT_EQ(g_live, live) << rate << " Hz";
  }
}
