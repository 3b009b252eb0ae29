// Fuzzes the public interface: any calls in any order on up to two handles, with any parameters and
// PCM. The caller's buffers and the blocks of the pool lie between poisoned gaps; after every
// processed call all state vectors must be finite, and a refused instance must write silence.
#include <algorithm>
#include <iterator>
#include <memory>

#include "finite_state.h"
#include "interface/channel_fault.h"
#include "script.h"

namespace {

// Longest call that is made: an instance may ask for more samples than any caller could hold.
constexpr int32_t kMaxSamplesPerCall = 5120;

// Blocks of 320 samples processed per input, which bounds its time.
constexpr int32_t kMaxBlocks = 300;

constexpr int32_t kLevelDecayCalls = 1200;
constexpr int32_t kLossyHop = 159;  // sounds for a while and then stops
constexpr int16_t kUnwritten = 0x5AC3;

struct fuzz_world {
  fuzz_script script;
  se_bf_inst *handles[2];  // kept after their release, so that dead ones are used too
  int32_t blocks_left;
  uint32_t noise;
  bool self_tested;
};

// Fills one block of interleaved samples with a kind of signal that caused trouble before.
void fill_block(fuzz_world *world, int16_t *block, int32_t frames, int32_t channels) {
  const uint32_t kind = take(&world->script, 1);
  const int32_t level = static_cast<int16_t>(take(&world->script, 2));
  const int32_t ratio = static_cast<int16_t>(take(&world->script, 2));
  for (int32_t n = 0; n < frames; ++n) {
    world->noise = world->noise * 1664525 + 1013904223;
    const int32_t noise = static_cast<int16_t>(world->noise >> 16) * (level / 256) / 128;
    const int32_t other = static_cast<int16_t>(world->noise << 3 >> 16) * (ratio / 256) / 128;
    const int32_t any = static_cast<int16_t>(take(&world->script, 2));
    const int32_t alternating = n % 2 == 0 ? level : -level;
    const int32_t click = n == (ratio & 255) ? level : 0;
    const int32_t bursts = n % (1 + (ratio & 127)) < 8 ? noise : noise / 64;
    const int32_t firsts[] = {0, level, alternating, noise, click, any, bursts};
    const int32_t first = firsts[kind % 7];
    const int32_t seconds[] = {first, first * ratio / 32768, -first, other, noise, 0, first + 1};
    block[n * channels] = static_cast<int16_t>(first);
    if (channels == 2) {
      block[2 * n + 1] = static_cast<int16_t>(seconds[kind / 7 % 7]);
    }
  }
}

// A run of calls, all with the same description of their blocks.
void process(fuzz_world *world, se_bf_inst **handle) {
  se_bf_inst *inst = *handle;
  const bool alive = se_bf_instance_alive(&process_core, inst);
  const int32_t asked = alive ? inst->samples_per_call : 0;
  const int32_t samples = std::max(asked, 0);
  const int32_t channels = alive ? inst->num_ch_in : 2;
  const uint32_t calls = 1 + take(&world->script, 1) % 64;
  if (samples > kMaxSamplesPerCall) {
    return;
  }
  const auto in = std::make_unique<int16_t[]>(static_cast<size_t>(samples * channels));
  const auto out = std::make_unique<int16_t[]>(static_cast<size_t>(samples));
  const fuzz_script script = world->script;
  for (uint32_t call = 0; call < calls && world->blocks_left > 0; ++call) {
    world->script = script;
    world->blocks_left -= std::max(samples / kBlockLen, 1);
    fill_block(world, in.get(), samples, channels);
    std::fill_n(out.get(), samples, kUnwritten);
    const int32_t done = se_bf_do(inst, out.get(), in.get());
    assert(done == asked);
    const bool runs = alive && inst->stream_state == SE_BF_STREAM_READY && asked > 0;
    assert(!runs || inst->mode == SE_BF_MODE_MONO || not_finite(inst).empty());
    const bool silent = alive && !runs && inst->mode != SE_BF_MODE_MONO;
    assert(!silent || inst->hop_len == kLossyHop ||
           std::count(out.get(), out.get() + samples, 0) == samples);
  }
}

void create(fuzz_world *world, se_bf_inst **handle) {
  static const int16_t kChannels[] = {2, 2, 2, 2, 1};
  static const int32_t kSamples[] = {320, 320, 320, 320, 640, 960, 2560, 5120, 0, -1, 321, 319};
  static const int32_t kHops[] = {192, 160, 320, 0, 159, 20, 64, 106, 107, 161, 255, 256, 319, 321};
  fuzz_script *script = &world->script;
  const se_bf_create_param param = {pick(script, kChannels), pick(script, kSamples),
                                    pick(script, kHops)};
  *handle = se_bf_create(&param);
}

int32_t take_mode(fuzz_world *world) {
  static const int32_t kModes[] = {6002, 6001, 6000, 6003, 5999, 6004, 0, -1};
  return pick(&world->script, kModes);
}

void init(fuzz_world *world, se_bf_inst **handle) {
  static const uint8_t kGeometries[] = {0, 1, 2};
  const int32_t mode = take_mode(world);
  const uint8_t geometry = pick(&world->script, kGeometries);
  const se_bf_init_param param = {mode, geometry == 0 ? 0.05f : take_float(&world->script),
                                  geometry < 2 ? 90.0f : take_float(&world->script)};
  se_bf_init(*handle, &param);
}

void change_mode(fuzz_world *world, se_bf_inst **handle) {
  se_bf_change_mode(*handle, take_mode(world));
}

void destroy(fuzz_world *, se_bf_inst **handle) {
  se_bf_destroy(*handle);
}

void forget(fuzz_world *, se_bf_inst **handle) {
  *handle = nullptr;
}

void pass_nothing(fuzz_world *, se_bf_inst **handle) {
  int16_t sample = 0;
  se_bf_do(*handle, nullptr, &sample);
  se_bf_do(*handle, &sample, nullptr);
  se_bf_init(*handle, nullptr);
  se_bf_create(nullptr);
}

// At most once per input, because it takes long.
void self_test(fuzz_world *world, se_bf_inst **) {
  static const char *const kTypes[] = {"bf_mean", "bf_omlsa", "bf_mvdr", "bf_mono", "", nullptr};
  const char *type = kTypes[take(&world->script, 1) % 6];
  const int32_t hop = static_cast<int32_t>(take(&world->script, sizeof(int32_t)));
  if (!world->self_tested) {
    se_bf_conformance_test(type, hop);
  }
  world->self_tested = true;
}

// A call that is listed more often is made more often: most calls should process sound.
constexpr void (*kCalls[])(fuzz_world *, se_bf_inst **) = {
    create, create,    init,    init,    change_mode, destroy, pass_nothing, pass_nothing,
    forget, self_test, process, process, process,     process, process,      process};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // Pool and fault levels belong to the process: every input starts afresh.
  tamrin_free(nullptr);
  for (int32_t call = 0; call < kLevelDecayCalls; ++call) {
    int16_t none[2] = {};
    is_one_channel_brocken(0, none, 0);
  }
  fuzz_world world = {{data, size}, {nullptr, nullptr}, kMaxBlocks, 1, false};
  while (world.script.left > 0 && world.blocks_left > 0) {
    const uint32_t choice = take(&world.script, 1);
    kCalls[choice % std::size(kCalls)](&world, &world.handles[choice / 64 % 2]);
  }
  return 0;
}
