// ALSA PCM plug-in tm_se_bf: an external filter that records enhanced sound from two microphones.
//
// Capture only. The slave provides two channels, and a client gets one, both with 16 bits at 16
// kHz. The client's samples equal the library's to the bit, PLUGIN_LATENCY samples later.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <errno.h>
#include <math.h>
#include <string.h>

#include <new>

#include "plugin_stream.h"
#include "tm_se_bf.h"

static constexpr unsigned int BITS_PER_BYTE = 8;

struct alsa_filter {
  snd_pcm_extplug_t ext;
  plugin_scene scene;
  plugin_stream stream;
};

struct mode_name {
  const char *name;
  int32_t mode;
};

static const mode_name MODES[] = {{"mean", SE_BF_MODE_MEAN},
                                  {"omlsa", SE_BF_MODE_OMLSA},
                                  {"mvdr", SE_BF_MODE_MVDR},
                                  {"mono", SE_BF_MODE_MONO}};

static int16_t *sample_at(const snd_pcm_channel_area_t *area, snd_pcm_uframes_t frame) {
  const size_t bits = area->first + static_cast<size_t>(frame) * area->step;
  return reinterpret_cast<int16_t *>(static_cast<char *>(area->addr) + bits / BITS_PER_BYTE);
}

// Takes at most HOST_BLOCK frames.
static void transfer_piece(alsa_filter *filter, const snd_pcm_channel_area_t *to,
                           snd_pcm_uframes_t to_offset, const snd_pcm_channel_area_t *from,
                           snd_pcm_uframes_t from_offset, snd_pcm_uframes_t size) {
  int16_t in[PLUGIN_CHANNELS * HOST_BLOCK];
  int16_t out[HOST_BLOCK];
  for (size_t n = 0; n < size; ++n) {
    in[2 * n] = *sample_at(&from[0], from_offset + n);
    in[2 * n + 1] = *sample_at(&from[1], from_offset + n);
  }
  plugin_stream_run(&filter->stream, in, size, out);
  for (size_t n = 0; n < size; ++n) {
    *sample_at(&to[0], to_offset + n) = out[n];
  }
}

// Takes everything that is offered: some slaves, such as files, do not offer a remainder again.
static snd_pcm_sframes_t transfer(snd_pcm_extplug_t *ext, const snd_pcm_channel_area_t *to,
                                  snd_pcm_uframes_t to_offset, const snd_pcm_channel_area_t *from,
                                  snd_pcm_uframes_t from_offset, snd_pcm_uframes_t size) {
  alsa_filter *filter = static_cast<alsa_filter *>(ext->private_data);
  for (snd_pcm_uframes_t at = 0; at < size; at += HOST_BLOCK) {
    const snd_pcm_uframes_t left = size - at;
    transfer_piece(filter, to, to_offset + at, from, from_offset + at,
                   left < HOST_BLOCK ? left : HOST_BLOCK);
  }
  return static_cast<snd_pcm_sframes_t>(size);
}

static int set_hw_params(snd_pcm_extplug_t *ext, snd_pcm_hw_params_t *) {
  if (ext->rate == static_cast<unsigned int>(HOST_RATE_HZ)) {
    return 0;
  }
  SNDERR(
      "tm_se_bf runs at 16000 Hz, not at %u Hz; put a plug before it that asks for 16000 Hz: "
      "type plug, slave { pcm NAME, rate 16000 }",
      ext->rate);
  return -EINVAL;
}

// Called before each recording: the processing starts again.
static int start(snd_pcm_extplug_t *ext) {
  alsa_filter *filter = static_cast<alsa_filter *>(ext->private_data);
  plugin_stream_close(&filter->stream);
  plugin_stream_open(&filter->stream, &filter->scene);
  return 0;
}

static int release_stream(snd_pcm_extplug_t *ext) {
  plugin_stream_close(&static_cast<alsa_filter *>(ext->private_data)->stream);
  return 0;
}

static int close_filter(snd_pcm_extplug_t *ext) {
  alsa_filter *filter = static_cast<alsa_filter *>(ext->private_data);
  plugin_stream_close(&filter->stream);
  delete filter;
  return 0;
}

static snd_pcm_extplug_callback_t make_callbacks() {
  snd_pcm_extplug_callback_t callbacks = {};
  callbacks.transfer = transfer;
  callbacks.close = close_filter;
  callbacks.hw_params = set_hw_params;
  callbacks.hw_free = release_stream;
  callbacks.init = start;
  return callbacks;
}

static const snd_pcm_extplug_callback_t CALLBACKS = make_callbacks();

static int wrong(const char *key, const char *wanted) {
  SNDERR("tm_se_bf: %s must be %s", key, wanted);
  return -EINVAL;
}

static int read_mode(const snd_config_t *entry, int32_t *mode) {
  const char *text = "";
  snd_config_get_string(entry, &text);
  for (const mode_name &known : MODES) {
    if (strcmp(text, known.name) == 0) {
      *mode = known.mode;
      return 0;
    }
  }
  return wrong("mode", "mean, omlsa, mvdr or mono");
}

static int read_number(const snd_config_t *entry, float low, float high, const char *wanted,
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

static int read_direction(const snd_config_t *entry, float *doa) {
  const char *const wanted = "from -180 to 180 degrees, or -200: unknown";
  const int error = read_number(entry, PLUGIN_NO_ANGLE, PLUGIN_MAX_ANGLE, wanted, doa);
  const bool between = *doa > PLUGIN_NO_ANGLE && *doa < -PLUGIN_MAX_ANGLE;
  return error == 0 && between ? wrong("doa", wanted) : error;
}

static int read_shield(const snd_config_t *entry, bool *plain) {
  const int shield = snd_config_get_bool(entry);
  if (shield < 0) {
    return wrong("shield", "yes or no");
  }
  *plain = shield == 0;
  return 0;
}

static int read_entry(snd_config_t *entry, const char *id, plugin_scene *scene,
                      snd_config_t **slave) {
  if (strcmp(id, "slave") == 0) {
    *slave = entry;
    return 0;
  }
  if (strcmp(id, "mode") == 0) {
    return read_mode(entry, &scene->mode);
  }
  if (strcmp(id, "mic_distance") == 0) {
    return read_number(entry, 0.0f, PLUGIN_MAX_SPACING, "from 0 to 10 metres",
                       &scene->mic_distance);
  }
  if (strcmp(id, "doa") == 0) {
    return read_direction(entry, &scene->doa);
  }
  if (strcmp(id, "shield") == 0) {
    return read_shield(entry, &scene->plain);
  }
  SNDERR("tm_se_bf: unknown parameter %s; known are slave, mode, mic_distance, doa, shield", id);
  return -EINVAL;
}

static int read_config(snd_config_t *conf, plugin_scene *scene, snd_config_t **slave) {
  snd_config_iterator_t at = nullptr;
  snd_config_iterator_t next = nullptr;
  *scene = {SE_BF_MODE_MVDR, 0.0f, PLUGIN_NO_ANGLE, true};
  *slave = nullptr;
  snd_config_for_each(at, next, conf) {
    snd_config_t *entry = snd_config_iterator_entry(at);
    const char *id = nullptr;
    const bool common = snd_config_get_id(entry, &id) < 0 || strcmp(id, "type") == 0 ||
                        strcmp(id, "comment") == 0 || strcmp(id, "hint") == 0;
    const int error = common ? 0 : read_entry(entry, id, scene, slave);
    if (error < 0) {
      return error;
    }
  }
  if (scene->mic_distance > 0.0f && scene->doa < -PLUGIN_MAX_ANGLE) {
    return wrong("doa (DOA)",
                 "given with mic_distance (DISTANCE): the direction of the talker in degrees, 90 "
                 "for in front");
  }
  return *slave != nullptr ? 0 : wrong("slave", "given: the two microphones");
}

static int constrain(snd_pcm_extplug_t *ext) {
  const int settings[] = {
      snd_pcm_extplug_set_param(ext, SND_PCM_EXTPLUG_HW_FORMAT, SND_PCM_FORMAT_S16),
      snd_pcm_extplug_set_slave_param(ext, SND_PCM_EXTPLUG_HW_FORMAT, SND_PCM_FORMAT_S16),
      snd_pcm_extplug_set_param(ext, SND_PCM_EXTPLUG_HW_CHANNELS, 1),
      snd_pcm_extplug_set_slave_param(ext, SND_PCM_EXTPLUG_HW_CHANNELS, PLUGIN_CHANNELS)};
  int error = 0;
  for (const int setting : settings) {
    error = setting < 0 ? setting : error;
  }
  return error;
}

static int create(alsa_filter *filter, const char *name, snd_config_t *root, snd_config_t *slave,
                  snd_pcm_stream_t direction, int mode) {
  filter->ext.version = SND_PCM_EXTPLUG_VERSION;
  filter->ext.name = "tm_se_bf speech enhancement";
  filter->ext.callback = &CALLBACKS;
  filter->ext.private_data = filter;
  return snd_pcm_extplug_create(&filter->ext, name, root, slave, direction, mode);
}

extern "C" SND_PCM_PLUGIN_DEFINE_FUNC(tm_se_bf) {
  plugin_scene scene;
  snd_config_t *slave = nullptr;
  if (stream != SND_PCM_STREAM_CAPTURE) {
    SNDERR("tm_se_bf enhances recordings only; play to another device");
    return -EINVAL;
  }
  int error = read_config(conf, &scene, &slave);
  if (error < 0) {
    return error;
  }
  alsa_filter *filter = new (std::nothrow) alsa_filter();
  if (filter == nullptr) {
    return -ENOMEM;
  }
  filter->scene = scene;
  error = create(filter, name, root, slave, stream, mode);
  if (error < 0) {
    delete filter;
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
