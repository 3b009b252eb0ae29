// Mono path, beamformer path, dispatch and the processing call.
#include "interface/multi_channels_enhance.h"

#include <cstring>

#include "interface/channel_fault.h"
#include "interface/multi_common.h"
#include "interface/stream_check.h"

namespace {

bool works_on_mean(int32_t mode) {
  return mode == SE_BF_MODE_MEAN || mode == SE_BF_MODE_OMLSA;
}

// The mean counts every channel, also one that has just died: until the fault detector notices and
// copies the good channel over it, the level is halved. Channel 1 is analysed besides where a
// change back to the beamformer would need its history.
frame_content content_for(const se_bf_inst *inst, int32_t mode) {
  if (!works_on_mean(mode)) {
    return FRAME_CHANNELS;
  }
  return inst->stft->chnl == 1 ? FRAME_MEAN : FRAME_MEAN_AND_SECOND;
}

void bf_mono(se_bf_inst *inst, int32_t mode, float *out) {
  stft_time_to_spectrum(inst->stft, inst->spectrum);

  if (mode == SE_BF_MODE_OMLSA) {
    const int32_t bins = inst->num_bins;
    mean_bin_power(inst->spectrum, 1, bins, inst->bin_buf);
    const float *noise = mcra_do_mcra(inst->mcra, inst->bin_buf);
    const float *prob = mcra_get_speech_prob(inst->mcra);
    const float *gain = do_ss(inst->omlsa, inst->bin_buf, noise, prob);
    mul_amp_real_gain(inst->spectrum, gain, 1, 2 * (bins - 1));
  }
  stft_spectrum_to_time(inst->stft, inst->spectrum, out);
}

void bf_mvdr(se_bf_inst *inst, float *out) {
  mvdr_evd_state *mvdr = inst->mvdr;
  const int32_t bins = inst->num_bins;
  const int32_t channels = inst->num_ch_in;
  const int16_t fft_len = static_cast<int16_t>(2 * (bins - 1));
  se_complex *spectrum = reinterpret_cast<se_complex *>(inst->spectrum);

  stft_time_to_spectrum(inst->stft, inst->spectrum);
  mvdr->update_count += 1;
  mean_bin_power(inst->spectrum, channels, bins, inst->bin_buf);
  const float *noise = mcra_do_mcra(inst->mcra, inst->bin_buf);
  mvdr_evd_psd_sta(mvdr, spectrum, mcra_get_speech_prob(inst->mcra));

  if (mvdr->update_count == inst->update_interval) {
    mvdr_update_param(mvdr);
    mvdr->update_count = 0;
  }
  mvdr->rescale_count += 1;
  if (mvdr->rescale_count >= mvdr->rescale_limit) {
    mvdr_evd_reset(mvdr);
  }

  mul_bf_gain(spectrum, mvdr->blocks, channels, fft_len);
  // Of the power before beamforming, deliberately.
  power_above_noise(inst->bin_buf, noise, bins);
  mul_amp_real_gain(inst->spectrum, inst->bin_buf, 1, fft_len);
  stft_spectrum_to_time(inst->stft, inst->spectrum, out);
}

void copy_first_channel(int16_t *out, const int16_t *in, int32_t channels, int32_t samples) {
  for (int32_t i = 0; i < samples; ++i) {
    out[i] = in[i * channels];
  }
}

// Streams whole blocks; each one gives a frame or two and one output block.
void stream_blocks(se_bf_inst *inst, int32_t mode, int16_t *out, const int16_t *in) {
  const int32_t total = inst->samples_per_call;
  int32_t done = 0;
  while (done < total) {
    const int16_t *block = in + done * inst->num_ch_in;
    const frame_content content = content_for(inst, mode);
    const int32_t remaining =
        se_form_input_block(inst->cache, block, content, inst->frame, inst->stft->fft_len);
    float *hop = se_catch_buf_next_hop(inst->cache);
    if (hop == nullptr) {
      stream_check_stop(inst);
      break;
    }
    se_bf_core_frm_proc(inst, mode, hop);
    se_buffer_output_block(inst->cache);
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

void se_bf_core_frm_proc(se_bf_inst *inst, int32_t mode, float *out) {
  if (works_on_mean(mode)) {
    bf_mono(inst, mode, out);
  } else if (mode == SE_BF_MODE_MVDR) {
    bf_mvdr(inst, out);
  } else {
    std::memcpy(out, inst->frame, static_cast<size_t>(inst->hop_len) * sizeof(float));
  }
}

int32_t se_bf_do(se_bf_inst *inst, int16_t *out, int16_t *in) {
  if (!se_bf_instance_alive(inst)) {
    stream_check_mistake(DO_WITHOUT_INSTANCE);
    return 0;
  }
  int32_t mode = inst->mode;
  const int32_t total = inst->samples_per_call;
  if (out == nullptr || in == nullptr) {
    stream_check_mistake(DO_WITHOUT_BUFFER);
    return total;
  }
  if (mode == SE_BF_MODE_MONO) {
    copy_first_channel(out, in, inst->num_ch_in, total);
    return total;
  }
  if (!stream_check_call(inst, out)) {
    return total;
  }

  // For good: nothing raises the channel count again, so a two-channel instance that has seen one
  // fault goes on to analyse channel 0 only, also once it beamforms again.
  if (inst->num_ch_in == 2 && is_one_channel_brocken(0, in, total) != 0) {
    stft_set_chnl(inst->stft, 1);
    mode = SE_BF_MODE_OMLSA;
  }
  stream_blocks(inst, mode, out, in);
  return total;
}
