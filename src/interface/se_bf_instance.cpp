// Creation fixes the sizes and allocates; initialisation builds what depends on mode and geometry.
#include "interface/se_bf_instance.h"

#include <cmath>
#include <cstdio>

#include "interface/stream_check.h"
#include "spatial/array_util.h"
#include "support/pool_vector.h"

namespace {

constexpr char kVersion[] = "1.3.5";
constexpr int32_t kMaxChannels = 2;
constexpr int32_t kDefaultHop = 192;
constexpr int32_t kSmallestFft = 64;

// Weight update every tenth frame: 8 to 20 updates a second at the supported hops.
constexpr int16_t kUpdateInterval = 10;

// Arguments of omlsa_init: nothing reads the mode code, and only the log-spectral rule reads the
// minimum gain in dB.
constexpr int32_t kGainModeCode = 2001;
constexpr float kGainMinDb = -20.0f;

constexpr int32_t kCoordinates = 3;

se_bf_inst *live_instances(const core_state *core) {
  return core->newest_generation == core->generation ? core->newest : nullptr;
}

// Smallest power of two above the hop, at least kSmallestFft.
int32_t fft_length(int32_t hop_len) {
  int32_t length = kSmallestFft;
  while (length <= hop_len) {
    length *= 2;
  }
  return length;
}

void create_members(se_bf_inst *inst, int32_t fft_len) {
  const int32_t channels = inst->num_ch_in;
  const int32_t hop = inst->hop_len;
  const int32_t bins = inst->num_bins;
  inst->fft = spx_fft_init_in(inst->core, fft_len);
  inst->stft = stft_buf_create_in(inst->core, fft_len, hop, inst->fft, channels);
  inst->frame = pool_floats(inst->core, channels * hop);
  inst->spectrum = pool_floats(inst->core, channels * fft_len);
  inst->steering = pool_complex(inst->core, channels * bins);
  inst->bin_buf = pool_floats(inst->core, bins);
}

// The mono modes average the channels before analysis, so only channel 0 is analysed. The count is
// never raised again: an instance initialised in a mono mode cannot beamform later.
void init_mode(se_bf_inst *inst, int32_t mode) {
  if (inst->num_ch_in == 1) {
    inst->mode = SE_BF_MODE_OMLSA;
    stft_set_chnl(inst->stft, 1);
    return;
  }
  inst->mode = static_cast<int16_t>(mode);
  if (inst->mode == SE_BF_MODE_MEAN || inst->mode == SE_BF_MODE_OMLSA) {
    stft_set_chnl(inst->stft, 1);
  }
}

bool finite_steering(const se_bf_inst *inst) {
  for (int32_t i = 0; i < inst->num_bins * inst->num_ch_in; ++i) {
    if (!std::isfinite(inst->steering[i].re) || !std::isfinite(inst->steering[i].im)) {
      return false;
    }
  }
  return true;
}

void init_steering(se_bf_inst *inst, const se_bf_init_param *param) {
  if (inst->steering == nullptr) {
    return;
  }
  const int32_t channels = inst->num_ch_in;
  if (param->mic_distance > 0.0f) {
    float geometry[kMaxChannels * kCoordinates];
    get_ULA_geometry(channels, param->mic_distance, geometry);
    get_steering_vector_by_doa(param->doa, geometry, channels, inst->steering, inst->num_bins);
    if (finite_steering(inst)) {
      return;
    }
    tamrin_warning_in(
        inst->core,
        "se_bf_init: mic_distance and doa give no direction, so none is preferred; pass metres and "
        "degrees");
  }
  const float uniform = uniform_steering(channels);
  for (int32_t i = 0; i < inst->num_bins * channels; ++i) {
    inst->steering[i] = {uniform, 0.0f};
  }
}

}  // namespace

bool se_bf_instance_alive(const core_state *core, const se_bf_inst *inst) {
  const se_bf_inst *live = live_instances(core);
  while (live != nullptr && live != inst) {
    live = live->older;
  }
  return live != nullptr;
}

se_bf_inst *se_bf_instance_create(core_state *core, const se_bf_create_param *param) {
  if (param == nullptr) {
    tamrin_warning_in(core, "se_bf_create: param is null, no instance was made; pass the sizes");
    return nullptr;
  }
  se_bf_inst *inst = static_cast<se_bf_inst *>(tamrin_malloc_in(core, sizeof(se_bf_inst)));
  if (param->num_ch_in < 1 || param->num_ch_in > kMaxChannels) {
    if (core->quiet == 0) {
      std::printf("ERROR: _num_ch_in=%d, which must no more than %d\n ", param->num_ch_in,
                  kMaxChannels);
    }
    // Like any release, this empties the pool, for every instance in it.
    tamrin_free_in(core, inst);
    return nullptr;
  }
  if (inst == nullptr) {
    return nullptr;
  }

  inst->core = core;
  inst->older = live_instances(core);
  core->newest = inst;
  core->newest_generation = core->generation;
  inst->samples_per_call = param->samples_per_call;
  inst->block_len = kBlockLen;
  inst->hop_len = static_cast<int16_t>(param->hop_len < 1 ? kDefaultHop : param->hop_len);
  const int32_t fft_len = fft_length(inst->hop_len);
  inst->num_bins = static_cast<int16_t>(fft_len / 2 + 1);
  inst->num_ch_in = param->num_ch_in;
  inst->update_interval = kUpdateInterval;
  create_members(inst, fft_len);
  stream_check_new_instance(core);
  return inst;
}

int32_t se_bf_instance_init(core_state *core, se_bf_inst *inst, const se_bf_init_param *param) {
  if (param == nullptr) {
    tamrin_warning_in(core,
                      "se_bf_init: param is null, nothing was changed; pass mode and geometry");
    return 0;
  }
  if (!se_bf_instance_alive(core, inst)) {
    tamrin_warning_in(core,
                      "se_bf_init: no such instance; call se_bf_create first and check its result");
    return 0;
  }
  const int32_t bins = inst->num_bins;
  init_mode(inst, param->mode);
  for (int32_t k = 0; inst->bin_buf != nullptr && k < bins; ++k) {
    inst->bin_buf[k] = 0.0f;
  }
  inst->mcra = mcra_init_in(core, bins);
  init_steering(inst, param);
  inst->omlsa = omlsa_init_in(core, bins, kGainModeCode, kGainMinDb);
  inst->mvdr = mvdr_evd_init_in(core, inst->num_ch_in, inst->steering, bins);
  inst->cache = se_catch_buf_init_in(core, 2 * (bins - 1), inst->hop_len, inst->block_len,
                                     inst->num_ch_in, 1);
  inst->stream_state = stream_check_config(inst);
  inst->refusal_reported = inst->stream_state == SE_BF_STREAM_REFUSED ? 1 : 0;
  return (bins - 1) + se_catch_buf_get_offset(inst->cache);
}

void se_bf_instance_change_mode(core_state *core, se_bf_inst *inst, int32_t mode) {
  if (!se_bf_instance_alive(core, inst)) {
    stream_check_mistake(core, CHANGE_MODE_WITHOUT_INSTANCE);
    return;
  }
  // The STFT's channel count stays as it is, deliberately: see init_mode.
  if (inst->num_ch_in != 1) {
    inst->mode = static_cast<int16_t>(mode);
  }
}

se_bf_inst *se_bf_create(const se_bf_create_param *param) {
  return se_bf_instance_create(&process_core, param);
}

int32_t se_bf_init(se_bf_inst *inst, const se_bf_init_param *param) {
  return se_bf_instance_init(&process_core, inst, param);
}

void se_bf_change_mode(se_bf_inst *inst, int32_t mode) {
  se_bf_instance_change_mode(&process_core, inst, mode);
}

void se_bf_destroy(se_bf_inst *inst) {
  if (inst == nullptr) {
    return;
  }
  if (se_bf_instance_alive(&process_core, inst)) {
    pool_release(inst->bin_buf);
    pool_release(inst->steering);
    pool_release(inst->spectrum);
    pool_release(inst->frame);
    spx_fft_destroy(inst->fft);
    stft_buf_destroy(inst->stft);
    se_catch_buff_uninit(inst->cache);
    mcra_uninit(inst->mcra);
  }
  // The gain and beamformer states go with the pool, which any release empties as a whole.
  tamrin_free(inst);
}

const char *se_bf_get_version(void) {
  return kVersion;
}
