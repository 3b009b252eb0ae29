// Fuzzes the public interface: any calls in any order on up to two handles, with any parameters and
// PCM. Caller's buffers and pool blocks lie between poisoned gaps; after every processed call all
// state vectors must be finite, and a refused instance must write silence.
#include <cmath>
#include <vector>

#include "interface/channel_fault.h"
#include "interface/se_bf_instance.h"
#include "script.h"

namespace {

// Longest call that is made; what an instance asks for beyond it, no caller could hold.
constexpr int32_t kMaxSamplesPerCall = 5120;

// Blocks of 320 samples processed per input, which bounds its time.
constexpr int32_t kMaxBlocks = 300;

constexpr int32_t kLevelDecayCalls = 1200;
constexpr int16_t kGuard = 0x5AC3;
constexpr size_t kGuardWords = 64;

struct fuzz_world {
  fuzz_script script;
  se_bf_inst *handles[2];  // kept after their release
  int32_t blocks_left;
  uint32_t noise;
  bool self_tested;
};

template <typename value, size_t kCount>
value pick(fuzz_script *script, const value (&usual)[kCount], size_t bytes) {
  const uint32_t choice = take(script, 1);
  return choice < kCount ? usual[choice] : static_cast<value>(take(script, bytes));
}

void check_finite(const float *values, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    require(std::isfinite(values[i]));
  }
}

void check_finite(const se_complex *values, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    require(std::isfinite(values[i].re) && std::isfinite(values[i].im));
  }
}

void check_noise_state(const se_bf_inst *inst) {
  const int32_t bins = inst->num_bins;
  const mcra_state *mcra = inst->mcra;
  const float *const vectors[] = {mcra->speech_prob,     mcra->lambdaD, mcra->smoothed_pwr,
                                  mcra->s_tmp,           mcra->s_min,   inst->omlsa->gain,
                                  inst->omlsa->eta2item, inst->bin_buf};
  for (const float *vector : vectors) {
    check_finite(vector, bins);
  }
  check_finite(mcra->min_buf->base, kCircularRows * bins);
}

void check_spatial_state(const se_bf_inst *inst) {
  const mvdr_evd_state *mvdr = inst->mvdr;
  const int32_t channels = mvdr->channels;
  check_finite(mvdr->weights, mvdr->bins * channels);
  check_finite(mvdr->steering, mvdr->bins * channels);
  check_finite(mvdr->speech_weight, mvdr->bins);
  check_finite(mvdr->noise_weight, mvdr->bins);
  for (int32_t k = 0; k < mvdr->bins; ++k) {
    check_finite(mvdr->noise_cov_inv[k].data, channels * channels);
    check_finite(mvdr->noise_cov[k].data, channels * channels);
    check_finite(mvdr->speech_cov[k].data, channels * channels);
  }
}

void check_signal_state(const se_bf_inst *inst) {
  const stft_buf *stft = inst->stft;
  check_finite(inst->frame, inst->num_ch_in * inst->hop_len);
  check_finite(inst->spectrum, inst->num_ch_in * stft->fft_len);
  check_finite(stft->window, 2 * stft->fft_len);
  check_finite(stft->history, inst->num_ch_in * stft->fft_len);
  check_finite(stft->ola_tail, stft->overlap);
  require(inst->cache->out_fill >= 0 && inst->cache->out_fill <= 2 * stft->fft_len);
  check_finite(inst->cache->out_store, inst->cache->out_fill);
}

// One block of interleaved samples of one of the kinds that have been trouble.
void fill_block(fuzz_world *world, int16_t *block, int32_t frames, int32_t channels) {
  const uint32_t kind = take(&world->script, 1);
  const int32_t level = static_cast<int16_t>(take(&world->script, 2));
  const int32_t ratio = static_cast<int16_t>(take(&world->script, 2));
  for (int32_t n = 0; n < frames; ++n) {
    world->noise = world->noise * 1664525 + 1013904223;
    const int32_t noise = static_cast<int16_t>(world->noise >> 16) * (level / 256) / 128;
    const int32_t other = static_cast<int16_t>(world->noise << 3 >> 16) * (ratio / 256) / 128;
    const int32_t values[] = {0,
                              level,
                              n % 2 == 0 ? level : -level,
                              noise,
                              n == (ratio & 255) ? level : 0,
                              static_cast<int16_t>(take(&world->script, 2)),
                              n % (1 + (ratio & 127)) < 8 ? noise : noise / 64};
    const int32_t first = values[kind % 7];
    const int32_t seconds[] = {first, first * ratio / 32768, -first, other, noise, 0, first + 1};
    block[n * channels] = static_cast<int16_t>(first);
    if (channels == 2) {
      block[2 * n + 1] = static_cast<int16_t>(seconds[kind / 7 % 7]);
    }
  }
}

struct guarded_buffer {
  std::vector<int16_t> words;

  explicit guarded_buffer(size_t samples) : words(samples + 2 * kGuardWords, kGuard) {
  }
  int16_t *data() {
    return words.data() + kGuardWords;
  }
  bool intact() const {
    for (size_t i = 0; i < kGuardWords; ++i) {
      if (words[i] != kGuard || words[words.size() - 1 - i] != kGuard) {
        return false;
      }
    }
    return true;
  }
};

void check_silence(const int16_t *out, int32_t samples) {
  for (int32_t i = 0; i < samples; ++i) {
    require(out[i] == 0);
  }
}

void process(fuzz_world *world, se_bf_inst *inst) {
  const bool alive = se_bf_instance_alive(inst);
  const int32_t asked = alive ? inst->samples_per_call : 0;
  const int32_t samples = asked > 0 ? asked : 0;
  const int32_t channels = alive ? inst->num_ch_in : 2;
  if (samples > kMaxSamplesPerCall) {
    return;
  }
  guarded_buffer in(static_cast<size_t>(samples) * static_cast<size_t>(channels));
  guarded_buffer out(static_cast<size_t>(samples));
  fill_block(world, in.data(), samples, channels);
  require(se_bf_do(inst, out.data(), in.data()) == asked);
  require(in.intact() && out.intact());
  if (!alive || inst->mode == SE_BF_MODE_MONO) {
    return;
  }
  if (inst->stream_state == SE_BF_STREAM_READY && asked > 0) {
    check_noise_state(inst);
    check_spatial_state(inst);
    check_signal_state(inst);
  } else if (inst->hop_len != 159) {
    check_silence(out.data(), samples);
  }
}

void process_repeatedly(fuzz_world *world, se_bf_inst *inst) {
  const int32_t calls = 1 + static_cast<int32_t>(take(&world->script, 1)) % 64;
  // Every call of a run gets the same description of its block.
  const fuzz_script script = world->script;
  for (int32_t call = 0; call < calls && world->blocks_left > 0; ++call) {
    const int32_t samples = se_bf_instance_alive(inst) ? inst->samples_per_call : 0;
    world->blocks_left -= samples / kBlockLen > 0 ? samples / kBlockLen : 1;
    world->script = script;
    process(world, inst);
  }
}

se_bf_inst *create(fuzz_script *script) {
  static const int16_t kChannels[] = {2, 2, 2, 2, 1};
  static const int32_t kSamples[] = {320, 320, 320, 320, 640, 960, 2560, 5120, 0, -1, 321, 319};
  static const int32_t kHops[] = {192, 160, 320, 0, 159, 20, 64, 106, 107, 161, 255, 256, 319, 321};
  se_bf_create_param param = {};
  param.num_ch_in = pick(script, kChannels, sizeof(int16_t));
  param.samples_per_call = pick(script, kSamples, sizeof(int32_t));
  param.hop_len = pick(script, kHops, sizeof(int32_t));
  return se_bf_create(&param);
}

int32_t take_mode(fuzz_script *script) {
  static const int32_t kModes[] = {6002, 6001, 6000, 6003, 5999, 6004, 0, -1};
  return pick(script, kModes, sizeof(int32_t));
}

void init(fuzz_script *script, se_bf_inst *inst) {
  static const int16_t kGeometries[] = {0, 1, 2};
  se_bf_init_param param = {};
  param.mode = take_mode(script);
  const int16_t geometry = pick(script, kGeometries, 1);
  param.mic_distance = geometry == 0 ? 0.05f : take_float(script);
  param.doa = geometry < 2 ? 90.0f : take_float(script);
  se_bf_init(inst, &param);
}

void self_test(fuzz_world *world) {
  static const char *const kTypes[] = {"bf_mean", "bf_omlsa", "bf_mvdr", "bf_mono", "", nullptr};
  const char *type = kTypes[take(&world->script, 1) % 6];
  const int32_t hop = static_cast<int32_t>(take(&world->script, sizeof(int32_t)));
  if (!world->self_tested) {
    se_bf_conformance_test(type, hop);
  }
  world->self_tested = true;
}

void run_call(fuzz_world *world) {
  fuzz_script *script = &world->script;
  const uint32_t call = take(script, 1);
  se_bf_inst **handle = &world->handles[call / 64 % 2];
  int16_t sample = 0;
  switch (call % 16) {
    case 0:
    case 1:
      *handle = create(script);
      break;
    case 2:
    case 3:
      init(script, *handle);
      break;
    case 4:
      se_bf_change_mode(*handle, take_mode(script));
      break;
    case 5:
      se_bf_destroy(*handle);
      break;
    case 6:
      se_bf_do(*handle, nullptr, &sample);
      se_bf_do(*handle, &sample, nullptr);
      break;
    case 7:
      require(se_bf_init(*handle, nullptr) == 0 && se_bf_create(nullptr) == nullptr);
      break;
    case 8:
      *handle = nullptr;
      break;
    case 9:
      self_test(world);
      break;
    default:
      process_repeatedly(world, *handle);
      break;
  }
}

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
    run_call(&world);
  }
  return 0;
}
