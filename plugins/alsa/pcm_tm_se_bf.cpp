// ALSA PCM plug-in tm_se_bf: an external filter that records enhanced sound from two microphones.
//
// Capture only. The slave provides two channels, and a client gets one, in the same format (16 bits
// or float) and at the same rate. The client's samples equal those of the stream library to the
// bit, delayed by its latency, which the interface of ALSA's filters cannot report.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "direction.h"
#include "pieces.h"

namespace {

constexpr unsigned int kBitsPerByte = 8;

struct alsa_filter {
  snd_pcm_extplug_t ext;
  se_bf_stream_config config;
  se_bf_stream *stream;  // null until the rate is known
};

// The entries of a configuration.
struct settings {
  snd_config_t *slave;
  int32_t mode;       // SE_BF_STREAM_* or SE_BF_MODE_*
  float spacing;      // metres; 0: unknown
  float angle;        // degrees; below -kMaxAngle: unknown
  float attenuation;  // dB at most; 0: no limit
  bool plain;         // no shielding
};

struct mode_name {
  const char *name;
  int32_t mode;
};

constexpr mode_name kModes[] = {{"auto", SE_BF_STREAM_AUTO}, {"refined", SE_BF_STREAM_REFINED},
                                {"mean", SE_BF_MODE_MEAN},   {"omlsa", SE_BF_MODE_OMLSA},
                                {"mvdr", SE_BF_MODE_MVDR},   {"mono", SE_BF_MODE_MONO}};

// Samples of one channel, `step` bytes apart.
struct sample_row {
  char *first;
  size_t step;
};

sample_row row_of(const snd_pcm_channel_area_t *area, snd_pcm_uframes_t frame) {
  const size_t bits = area->first + static_cast<size_t>(frame) * area->step;
  return {static_cast<char *>(area->addr) + bits / kBitsPerByte, area->step / kBitsPerByte};
}

void copy_samples(sample_row to, sample_row from, size_t sample_size, size_t frames) {
  for (size_t n = 0; n < frames; ++n) {
    memcpy(to.first + n * to.step, from.first + n * from.step, sample_size);
  }
}

// Takes at most kPiece frames.
void transfer_piece(alsa_filter *filter, const snd_pcm_channel_area_t *to,
                    snd_pcm_uframes_t to_offset, const snd_pcm_channel_area_t *from,
                    snd_pcm_uframes_t from_offset, size_t frames) {
  union {
    int16_t words[kChannels * kPiece];
    float floats[kChannels * kPiece];
  } piece;
  const bool in_words = filter->ext.format == SND_PCM_FORMAT_S16;
  const size_t size = in_words ? sizeof(int16_t) : sizeof(float);
  char *bytes = reinterpret_cast<char *>(&piece);
  for (size_t m = 0; m < kChannels; ++m) {
    copy_samples({bytes + m * size, kChannels * size}, row_of(&from[m], from_offset), size, frames);
  }
  if (in_words) {
    se_bf_stream_process_s16(filter->stream, piece.words, frames, piece.words);
  } else {
    se_bf_stream_process_f32(filter->stream, piece.floats, frames, piece.floats);
  }
  copy_samples(row_of(&to[0], to_offset), {bytes, size}, size, frames);
}

// Takes everything that is offered: some slaves, such as files, do not offer a remainder again.
snd_pcm_sframes_t transfer(snd_pcm_extplug_t *ext, const snd_pcm_channel_area_t *to,
                           snd_pcm_uframes_t to_offset, const snd_pcm_channel_area_t *from,
                           snd_pcm_uframes_t from_offset, snd_pcm_uframes_t size) {
  alsa_filter *filter = static_cast<alsa_filter *>(ext->private_data);
  for (snd_pcm_uframes_t at = 0; at < size; at += kPiece) {
    const snd_pcm_uframes_t left = size - at;
    transfer_piece(filter, to, to_offset + at, from, from_offset + at,
                   left < kPiece ? left : kPiece);
  }
  return static_cast<snd_pcm_sframes_t>(size);
}

int release_stream(snd_pcm_extplug_t *ext) {
  alsa_filter *filter = static_cast<alsa_filter *>(ext->private_data);
  se_bf_stream_close(filter->stream);
  filter->stream = nullptr;
  return 0;
}

int open_stream(snd_pcm_extplug_t *ext, snd_pcm_hw_params_t *) {
  alsa_filter *filter = static_cast<alsa_filter *>(ext->private_data);
  release_stream(ext);  // parameters may be set twice
  const char *error = nullptr;
  filter->config.rate = static_cast<int32_t>(ext->rate);
  filter->stream = se_bf_stream_open(&filter->config, &error);
  if (filter->stream != nullptr) {
    return 0;
  }
  SNDERR("tm_se_bf at %u Hz: %s", ext->rate, error);
  return -EINVAL;
}

// Called before each recording.
int reset_stream(snd_pcm_extplug_t *ext) {
  se_bf_stream_reset(static_cast<alsa_filter *>(ext->private_data)->stream);
  return 0;
}

int close_filter(snd_pcm_extplug_t *ext) {
  release_stream(ext);
  free(ext->private_data);
  return 0;
}

constexpr snd_pcm_extplug_callback_t make_callbacks() {
  snd_pcm_extplug_callback_t callbacks = {};
  callbacks.transfer = transfer;
  callbacks.close = close_filter;
  callbacks.hw_params = open_stream;
  callbacks.hw_free = release_stream;
  callbacks.init = reset_stream;
  return callbacks;
}

constexpr snd_pcm_extplug_callback_t kCallbacks = make_callbacks();

int wrong(const char *key, const char *wanted) {
  SNDERR("tm_se_bf: %s must be %s", key, wanted);
  return -EINVAL;
}

int read_mode(const snd_config_t *entry, int32_t *mode) {
  const char *text = "";
  snd_config_get_string(entry, &text);
  for (const mode_name &known : kModes) {
    if (strcmp(text, known.name) == 0) {
      *mode = known.mode;
      return 0;
    }
  }
  return wrong("mode", "auto, refined, mean, omlsa, mvdr or mono");
}

int read_number(const snd_config_t *entry, float low, float high, const char *wanted,
                float *number) {
  const char *id = "";
  double value = 0.0;
  snd_config_get_id(entry, &id);
  const bool good = snd_config_get_ireal(entry, &value) == 0 && isfinite(value);
  if (!good || value < static_cast<double>(low) || value > static_cast<double>(high)) {
    return wrong(id, wanted);
  }
  *number = static_cast<float>(value);
  return 0;
}

int read_angle(const snd_config_t *entry, float *angle) {
  const char *const wanted = "from -180 to 180 degrees, or -200: unknown";
  const int error = read_number(entry, kNoAngle, kMaxAngle, wanted, angle);
  const bool between = *angle > kNoAngle && *angle < -kMaxAngle;
  return error == 0 && between ? wrong("doa", wanted) : error;
}

int read_shield(const snd_config_t *entry, bool *plain) {
  const int shield = snd_config_get_bool(entry);
  if (shield < 0) {
    return wrong("shield", "yes or no");
  }
  *plain = shield == 0;
  return 0;
}

int read_entry(snd_config_t *entry, const char *id, settings *found) {
  if (strcmp(id, "slave") == 0) {
    found->slave = entry;
    return 0;
  }
  if (strcmp(id, "mode") == 0) {
    return read_mode(entry, &found->mode);
  }
  if (strcmp(id, "mic_distance") == 0) {
    return read_number(entry, 0.0f, kMaxSpacing, "from 0 to 10 metres", &found->spacing);
  }
  if (strcmp(id, "doa") == 0) {
    return read_angle(entry, &found->angle);
  }
  if (strcmp(id, "max_attenuation") == 0) {
    return read_number(entry, 0.0f, kMaxAttenuation, "from 0 to 60 dB", &found->attenuation);
  }
  if (strcmp(id, "shield") == 0) {
    return read_shield(entry, &found->plain);
  }
  SNDERR(
      "tm_se_bf: unknown parameter %s; known are slave, mode, mic_distance, doa, "
      "max_attenuation, shield",
      id);
  return -EINVAL;
}

int read_settings(snd_config_t *conf, settings *found) {
  snd_config_iterator_t at = nullptr;
  snd_config_iterator_t next = nullptr;
  *found = {nullptr, SE_BF_STREAM_AUTO, 0.0f, kNoAngle, 0.0f, false};
  snd_config_for_each(at, next, conf) {
    snd_config_t *entry = snd_config_iterator_entry(at);
    const char *id = nullptr;
    const bool common = snd_config_get_id(entry, &id) < 0 || strcmp(id, "type") == 0 ||
                        strcmp(id, "comment") == 0 || strcmp(id, "hint") == 0;
    const int error = common ? 0 : read_entry(entry, id, found);
    if (error < 0) {
      return error;
    }
  }
  if (found->spacing > 0.0f && found->angle < -kMaxAngle) {
    return wrong("doa (DOA)",
                 "given with mic_distance (DISTANCE): the direction of the talker in degrees, 90 "
                 "for in front; leave out both where it is not known");
  }
  return found->slave != nullptr ? 0 : wrong("slave", "given: the two microphones");
}

int constrain(snd_pcm_extplug_t *ext) {
  const unsigned int formats[] = {SND_PCM_FORMAT_S16, SND_PCM_FORMAT_FLOAT};
  const int results[] = {
      snd_pcm_extplug_set_param_list(ext, SND_PCM_EXTPLUG_HW_FORMAT, 2, formats),
      snd_pcm_extplug_set_slave_param_list(ext, SND_PCM_EXTPLUG_HW_FORMAT, 2, formats),
      snd_pcm_extplug_set_param_link(ext, SND_PCM_EXTPLUG_HW_FORMAT, 1),
      snd_pcm_extplug_set_param(ext, SND_PCM_EXTPLUG_HW_CHANNELS, 1),
      snd_pcm_extplug_set_slave_param(ext, SND_PCM_EXTPLUG_HW_CHANNELS, kChannels)};
  int error = 0;
  for (const int result : results) {
    error = result < 0 ? result : error;
  }
  return error;
}

alsa_filter *make_filter(const settings *wanted) {
  alsa_filter *filter = static_cast<alsa_filter *>(calloc(1, sizeof(alsa_filter)));
  if (filter == nullptr) {
    return nullptr;
  }
  se_bf_stream_config_init(&filter->config);
  filter->config.mode = wanted->mode;
  filter->config.max_attenuation_db = wanted->attenuation;
  filter->config.plain = wanted->plain ? 1 : 0;
  set_direction(&filter->config, wanted->spacing, wanted->angle);
  filter->ext.version = SND_PCM_EXTPLUG_VERSION;
  filter->ext.name = "tm_se_bf speech enhancement";
  filter->ext.callback = &kCallbacks;
  filter->ext.private_data = filter;
  return filter;
}

}  // namespace

extern "C" SND_PCM_PLUGIN_DEFINE_FUNC(tm_se_bf) {
  settings wanted;
  if (stream != SND_PCM_STREAM_CAPTURE) {
    SNDERR("tm_se_bf enhances recordings only; play to another device");
    return -EINVAL;
  }
  int error = read_settings(conf, &wanted);
  if (error < 0) {
    return error;
  }
  alsa_filter *filter = make_filter(&wanted);
  if (filter == nullptr) {
    return -ENOMEM;
  }
  error = snd_pcm_extplug_create(&filter->ext, name, root, wanted.slave, stream, mode);
  if (error < 0) {
    free(filter);
    return error;
  }
  error = constrain(&filter->ext);
  if (error < 0) {
    snd_pcm_extplug_delete(&filter->ext);
    return error;
  }
  *pcmp = filter->ext.pcm;
  return 0;
}

extern "C" {
SND_PCM_PLUGIN_SYMBOL(tm_se_bf)
}
