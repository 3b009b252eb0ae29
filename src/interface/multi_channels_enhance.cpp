// The processing call, the choice of the path, and the two paths.
#include "interface/multi_channels_enhance.h"

#include "interface/channel_fault.h"
#include "interface/multi_common.h"
#include "interface/se_bf_instance.h"
#include "interface/stream_check.h"

namespace {

// Modes 6000 and 6001, one frame: the mean of the channels, without or with noise suppression.
const float *bf_mono(se_bf_inst *inst, int32_t mode) {
  // If one channel is analysed, the mean is written straight to the input of the analysis. If two
  // are, it replaces channel 0 of the frame, and channel 1 is analysed too, so that its history is
  // up to date when the mode changes back to the beamformer.
  float *mean = inst->stft->chnl == 1 ? stft_input(inst->stft) : inst->frame;
  mean_of_channels(inst->frame, inst->num_ch_in, inst->hop_len, mean);
  stft_time_to_spectrum(inst->stft, mean, inst->spectrum);

  if (mode == SE_BF_MODE_OMLSA) {
    const int32_t bins = inst->num_bins;
    mean_bin_power(inst->spectrum, 1, bins, inst->bin_buf);
    const float *noise = mcra_do_mcra(inst->mcra, inst->bin_buf);
    const float *prob = mcra_get_speech_prob(inst->mcra);
    const float *gain = do_ss(inst->omlsa, inst->bin_buf, noise, prob);
    mul_amp_real_gain(inst->spectrum, gain, 1, 2 * (bins - 1));
  }
  return stft_spectrum_to_time(inst->stft, inst->spectrum, inst->frame);
}

// Mode 6002, one frame.
const float *bf_mvdr(se_bf_inst *inst) {
  const int32_t bins = inst->num_bins;
  const int32_t channels = inst->num_ch_in;
  const int16_t fft_len = static_cast<int16_t>(2 * (bins - 1));
  se_complex *spectrum = reinterpret_cast<se_complex *>(inst->spectrum);

  stft_time_to_spectrum(inst->stft, inst->frame, inst->spectrum);
  mean_bin_power(inst->spectrum, channels, bins, inst->bin_buf);
  const float *noise = mcra_do_mcra(inst->mcra, inst->bin_buf);
  mvdr_evd_psd_sta(inst->mvdr, spectrum, mcra_get_speech_prob(inst->mcra));
  mvdr_count_frame(inst->mvdr, inst->update_interval);
  mul_bf_gain(spectrum, inst->mvdr->weights, channels, fft_len);

  // The gain is deliberately computed from the power before beamforming.
  power_above_noise(inst->bin_buf, noise, bins);
  mul_amp_real_gain(inst->spectrum, inst->bin_buf, 1, fft_len);
  return stft_spectrum_to_time(inst->stft, inst->spectrum, inst->frame);
}

void copy_first_channel(int16_t *out, const int16_t *in, int32_t channels, int32_t samples) {
  for (int32_t i = 0; i < samples; ++i) {
    out[i] = in[i * channels];
  }
}

// Streams whole blocks; each block yields one or two frames and one output block.
void stream_blocks(se_bf_inst *inst, int32_t mode, int16_t *out, const int16_t *in) {
  const int32_t total = inst->samples_per_call;
  int32_t done = 0;
  while (done < total) {
    if (!se_catch_buf_has_room(inst->cache)) {
      stream_check_stop(inst);
      break;
    }
    const int16_t *block = in + done * inst->num_ch_in;
    const int32_t remaining = se_form_input_block(inst->cache, block, inst->frame);
    se_bf_core_frm_proc(inst, mode);
    se_buffer_output_block(inst->cache, inst->frame);
    if (remaining < inst->hop_len) {
      se_form_output_frame(inst->cache, out + done);
      done += inst->block_len;
    }
  }
  for (int32_t i = done; i < total; ++i) {
    out[i] = 0;
  }
}

}  // namespace

void se_bf_core_frm_proc(se_bf_inst *inst, int32_t mode) {
  switch (mode) {
    case SE_BF_MODE_MEAN:
    case SE_BF_MODE_OMLSA:
      bf_mono(inst, mode);
      break;
    case SE_BF_MODE_MVDR:
      bf_mvdr(inst);
      break;
    default:
      break;
  }
}

int32_t se_bf_instance_do(core_state *core, se_bf_inst *inst, int16_t *out, int16_t *in) {
  if (!se_bf_instance_alive(core, inst)) {
    stream_check_mistake(core, DO_WITHOUT_INSTANCE);
    return 0;
  }
  int32_t mode = inst->mode;
  const int32_t total = inst->samples_per_call;
  if (out == nullptr || in == nullptr) {
    stream_check_mistake(core, DO_WITHOUT_BUFFER);
    return total;
  }
  if (mode == SE_BF_MODE_MONO) {
    copy_first_channel(out, in, inst->num_ch_in, total);
    return total;
  }
  if (!stream_check_call(inst, out)) {
    return total;
  }

  // Deliberately nothing raises the channel count again: after one fault a two-channel instance
  // analyses channel 0 only, even when it beamforms again.
  if (inst->num_ch_in == 2 && channel_fault_check(core, in, total) != 0) {
    stft_set_chnl(inst->stft, 1);
    mode = SE_BF_MODE_OMLSA;
  }
  stream_blocks(inst, mode, out, in);
  return total;
}

int32_t se_bf_do(se_bf_inst *inst, int16_t *out, int16_t *in) {
  return se_bf_instance_do(&process_core, inst, out, in);
}
