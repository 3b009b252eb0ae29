// Prints the bytes of the pool that each configuration takes.
#include <cstdint>
#include <cstdio>

#include "support/tamrin_memory.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kHops[] = {160, 192, 320};
constexpr int16_t kChannels[] = {1, 2};
constexpr int32_t kPerCall = 320;  // the pool holds no whole call: its size does not matter

int32_t pool_bytes(int32_t hop, int16_t channels) {
  const se_bf_create_param sizes = {channels, kPerCall, hop};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  const int32_t used = kStaticMemoryPosition;
  se_bf_destroy(inst);
  return used;
}

}  // namespace

int main() {
  for (const int32_t hop : kHops) {
    for (const int16_t channels : kChannels) {
      std::fprintf(stderr, "hop %d channels %d: %d of %d bytes\n", hop, channels,
                   pool_bytes(hop, channels), kStaticMemorySize);
    }
  }
  return 0;
}
