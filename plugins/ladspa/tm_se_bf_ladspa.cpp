// LADSPA plug-in tm_se_bf: speech enhancement with two microphones for any LADSPA host.
//
// A stream is opened in activate, since hosts instantiate plug-ins that they never run. Controls
// may change at any time; after a new value processing starts again, which allocates memory and
// returns PLUGIN_LATENCY samples of silence.
#include <ladspa.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <new>

#include "plugin_stream.h"
#include "tm_se_bf.h"

static constexpr unsigned long UNIQUE_ID = 6209282;
static constexpr float FULL_SCALE = 32768.0f;  // 16-bit value of a float sample of 1
static constexpr int32_t LAST_MODE = SE_BF_MODE_MONO - SE_BF_MODE_MEAN;
static constexpr float DEFAULT_MODE = SE_BF_MODE_MVDR - SE_BF_MODE_MEAN;
static constexpr float MAX_SPACING_M = 1.0f;  // of the control's range

// Ports, in an order that configuration files rely on.
enum {
  PORT_INPUT_0,
  PORT_INPUT_1,
  PORT_OUTPUT,
  PORT_MODE,       // 0 mean, 1 omlsa, 2 mvdr, 3 mono
  PORT_SPACING,    // metres
  PORT_DIRECTION,  // degrees; below -PLUGIN_MAX_ANGLE: unknown
  PORT_LATENCY,    // samples
  PORT_COUNT
};

struct ladspa_instance {
  LADSPA_Data *ports[PORT_COUNT];
  plugin_stream stream;
};

// The value of a control, limited to its range; `standard` if it is not connected or not a number.
static float control(const ladspa_instance *instance, int port, float low, float high,
                     float standard) {
  const LADSPA_Data *value = instance->ports[port];
  const bool usable = value != nullptr && !isnan(*value);
  return usable ? fminf(fmaxf(*value, low), high) : standard;
}

static plugin_scene read_controls(const ladspa_instance *instance) {
  const float mode =
      control(instance, PORT_MODE, 0.0f, static_cast<float>(LAST_MODE), DEFAULT_MODE);
  plugin_scene scene = {};
  scene.mode = SE_BF_MODE_MEAN + static_cast<int32_t>(lrintf(mode));
  scene.mic_distance = control(instance, PORT_SPACING, 0.0f, PLUGIN_MAX_SPACING, 0.0f);
  scene.doa = control(instance, PORT_DIRECTION, PLUGIN_NO_ANGLE, PLUGIN_MAX_ANGLE, PLUGIN_NO_ANGLE);
  return scene;
}

static LADSPA_Handle instantiate(const LADSPA_Descriptor *, unsigned long rate_hz) {
  if (rate_hz != static_cast<unsigned long>(HOST_RATE_HZ)) {
    fprintf(stderr,
            "tm_se_bf: the plug-in runs at 16000 Hz only, not at %lu Hz; convert before it\n",
            rate_hz);
    return nullptr;
  }
  return new (std::nothrow) ladspa_instance();
}

static void connect_port(LADSPA_Handle handle, unsigned long port, LADSPA_Data *data) {
  ladspa_instance *instance = static_cast<ladspa_instance *>(handle);
  if (port < PORT_COUNT) {
    instance->ports[port] = data;
  }
}

static void activate(LADSPA_Handle handle) {
  ladspa_instance *instance = static_cast<ladspa_instance *>(handle);
  const plugin_scene scene = read_controls(instance);
  plugin_stream_close(&instance->stream);
  plugin_stream_open(&instance->stream, &scene);
}

static bool same_scene(const plugin_scene *a, const plugin_scene *b) {
  return a->mode == b->mode && !(a->mic_distance < b->mic_distance) &&
         !(a->mic_distance > b->mic_distance) && !(a->doa < b->doa) && !(a->doa > b->doa);
}

// Takes at most HOST_BLOCK samples from `at` on. Inputs are read before the output is written:
// hosts may connect one buffer to both.
static void run_piece(ladspa_instance *instance, size_t at, size_t frames) {
  int16_t in[PLUGIN_CHANNELS * HOST_BLOCK];
  int16_t out[HOST_BLOCK];
  for (size_t n = 0; n < frames; ++n) {
    in[2 * n] = host_sample_from_float(instance->ports[PORT_INPUT_0][at + n]);
    in[2 * n + 1] = host_sample_from_float(instance->ports[PORT_INPUT_1][at + n]);
  }
  plugin_stream_run(&instance->stream, in, frames, out);
  for (size_t n = 0; n < frames; ++n) {
    instance->ports[PORT_OUTPUT][at + n] = static_cast<float>(out[n]) / FULL_SCALE;
  }
}

static void run(LADSPA_Handle handle, unsigned long frames) {
  ladspa_instance *instance = static_cast<ladspa_instance *>(handle);
  const plugin_scene scene = read_controls(instance);
  if (!same_scene(&scene, &instance->stream.scene)) {
    activate(handle);
  }
  if (instance->ports[PORT_LATENCY] != nullptr) {
    *instance->ports[PORT_LATENCY] = static_cast<float>(PLUGIN_LATENCY);
  }
  for (size_t at = 0; at < frames; at += static_cast<size_t>(HOST_BLOCK)) {
    const size_t left = frames - at;
    run_piece(instance, at, left < static_cast<size_t>(HOST_BLOCK) ? left : HOST_BLOCK);
  }
}

// A host that got no instance may still release it.
static void deactivate(LADSPA_Handle handle) {
  if (handle != nullptr) {
    plugin_stream_close(&static_cast<ladspa_instance *>(handle)->stream);
  }
}

static void cleanup(LADSPA_Handle handle) {
  deactivate(handle);
  delete static_cast<ladspa_instance *>(handle);
}

static const LADSPA_PortDescriptor PORTS[PORT_COUNT] = {
    LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,   LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,
    LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO,  LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL,
    LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL, LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL,
    LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL};

static const char *const PORT_NAMES[PORT_COUNT] = {"Microphone 0",
                                                   "Microphone 1",
                                                   "Output",
                                                   "Mode (0 mean, 1 omlsa, 2 mvdr, 3 mono)",
                                                   "Microphone spacing (m)",
                                                   "Direction (degrees)",
                                                   "latency"};

static constexpr LADSPA_PortRangeHintDescriptor BOUNDED =
    LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE;

static const LADSPA_PortRangeHint HINTS[PORT_COUNT] = {
    {0, 0.0f, 0.0f},
    {0, 0.0f, 0.0f},
    {0, 0.0f, 0.0f},
    {BOUNDED | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_HIGH, 0.0f, static_cast<float>(LAST_MODE)},
    {BOUNDED | LADSPA_HINT_DEFAULT_0, 0.0f, MAX_SPACING_M},
    {BOUNDED | LADSPA_HINT_DEFAULT_MINIMUM, PLUGIN_NO_ANGLE, PLUGIN_MAX_ANGLE},
    {LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_0, 0.0f,
     0.0f}};  // SoX asks for the default of an output as well

static const LADSPA_Descriptor DESCRIPTOR = {UNIQUE_ID,
                                             "tm_se_bf",
                                             0,
                                             "Speech enhancement with two microphones",
                                             "The tm_se_bf developers",
                                             "MIT",
                                             PORT_COUNT,
                                             PORTS,
                                             PORT_NAMES,
                                             HINTS,
                                             nullptr,
                                             instantiate,
                                             connect_port,
                                             activate,
                                             run,
                                             nullptr,
                                             nullptr,
                                             deactivate,
                                             cleanup};

extern "C" const LADSPA_Descriptor *ladspa_descriptor(unsigned long index) {
  return index == 0 ? &DESCRIPTOR : nullptr;
}
