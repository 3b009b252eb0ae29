// Prints the bytes of the pool that each configuration takes, and the depth of the stack.
//
// The library runs on a stack of its own that is filled with a pattern. The part of the pattern
// that is overwritten is the depth, which includes what the C library needs for printing.
#include <ucontext.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "support/tamrin_memory.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kHops[] = {160, 192, 320};
constexpr int16_t kChannels[] = {1, 2};
constexpr int32_t kPerCall = 320;  // the pool holds no whole call: its size does not matter
constexpr int32_t kCalls = 100;    // with weight updates among them
constexpr int32_t kLargestHop = 320;
constexpr uint8_t kUntouched = 0xA5;

uint8_t painted[256 * 1024];
ucontext_t caller;

int32_t pool_bytes(int32_t hop, int16_t channels) {
  const se_bf_create_param sizes = {channels, kPerCall, hop};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  const int32_t used = kStaticMemoryPosition;
  se_bf_destroy(inst);
  return used;
}

// A stream from creation to release; a silent microphone 1 is repaired.
void stream() {
  static int16_t in[2 * kPerCall];
  static int16_t out[kPerCall];
  const se_bf_create_param sizes = {2, kPerCall, kLargestHop};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  for (int32_t call = 0; call < kCalls; ++call) {
    for (int32_t n = 0; n < kPerCall; ++n) {
      in[2 * n] = static_cast<int16_t>(1000 + n % 7);
      in[2 * n + 1] = static_cast<int16_t>(call < kCalls / 2 ? n % 11 * 100 : 0);
    }
    se_bf_do(inst, out, in);
  }
  se_bf_destroy(inst);
}

// A configuration that is refused with a warning.
void message() {
  const se_bf_create_param sizes = {2, kPerCall, kLargestHop - 1};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  se_bf_destroy(inst);
}

void self_test() {
  se_bf_conformance_test("bf_mvdr", kLargestHop);
}

void nothing() {
}

int32_t depth_of(void (*work)()) {
  std::fill(std::begin(painted), std::end(painted), kUntouched);
  ucontext_t inside;
  getcontext(&inside);
  inside.uc_stack.ss_sp = painted;
  inside.uc_stack.ss_size = sizeof painted;
  inside.uc_link = &caller;
  makecontext(&inside, work, 0);
  swapcontext(&caller, &inside);
  const auto *deepest = std::find_if(std::begin(painted), std::end(painted),
                                     [](uint8_t byte) { return byte != kUntouched; });
  return static_cast<int32_t>(std::end(painted) - deepest);
}

}  // namespace

int main() {
  for (const int32_t hop : kHops) {
    for (const int16_t channels : kChannels) {
      std::fprintf(stderr, "pool.hop%d.channels%d %d\n", hop, channels, pool_bytes(hop, channels));
    }
  }
  const int32_t frame = depth_of(nothing);
  std::fprintf(stderr, "stack.stream %d\n", depth_of(stream) - frame);
  std::fprintf(stderr, "stack.message %d\n", depth_of(message) - frame);
  std::fprintf(stderr, "stack.self_test %d\n", depth_of(self_test) - frame);
  return 0;
}
