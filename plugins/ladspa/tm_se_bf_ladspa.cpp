// LADSPA plug-in tm_se_bf: speech enhancement with two microphones for any LADSPA host.
//
// An instance is a stream of the stream library, at the rate of the host. Its latency is the same
// in every mode, and controls may change while the sound goes on.
#include <ladspa.h>
#include <math.h>
#include <stdlib.h>

#include "direction.h"
#include "pieces.h"

namespace {

constexpr unsigned long kUniqueId = 6209282;
constexpr int32_t kRefinedMode = 4;  // of the mode control, and its default

// Ports, in an order that configuration files rely on.
enum {
  PORT_INPUT_0,
  PORT_INPUT_1,
  PORT_OUTPUT,
  PORT_MODE,         // 0 mean, 1 omlsa, 2 mvdr, 3 mono, 4 refined
  PORT_SPACING,      // metres
  PORT_DIRECTION,    // degrees; below -kMaxAngle: unknown
  PORT_LATENCY,      // samples
  PORT_ATTENUATION,  // dB at most; 0: no limit
  PORT_COUNT
};

struct ladspa_instance {
  LADSPA_Data *ports[PORT_COUNT];
  se_bf_stream_config config;
  se_bf_stream *stream;
};

// The value of a control, limited to its range; `standard` if it is not connected or not a number.
float control(const ladspa_instance *instance, int port, float low, float high, float standard) {
  const LADSPA_Data *value = instance->ports[port];
  const bool usable = value != nullptr && !isnan(*value);
  return usable ? fminf(fmaxf(*value, low), high) : standard;
}

int32_t mode_of_control(const ladspa_instance *instance) {
  const int32_t value =
      static_cast<int32_t>(lrintf(control(instance, PORT_MODE, 0.0f, kRefinedMode, kRefinedMode)));
  return value == kRefinedMode ? static_cast<int32_t>(SE_BF_STREAM_REFINED)
                               : SE_BF_MODE_MEAN + value;
}

// Passes on what the controls say if they have changed.
void follow_controls(ladspa_instance *instance) {
  se_bf_stream_config *now = &instance->config;
  se_bf_stream_config wanted = *now;
  wanted.mode = mode_of_control(instance);
  set_direction(&wanted, control(instance, PORT_SPACING, 0.0f, kMaxSpacing, 0.0f),
                control(instance, PORT_DIRECTION, kNoAngle, kMaxAngle, kNoAngle));
  wanted.max_attenuation_db = control(instance, PORT_ATTENUATION, 0.0f, kMaxAttenuation, 0.0f);
  const bool same = wanted.mode == now->mode && wanted.mic_distance == now->mic_distance &&
                    wanted.doa == now->doa && wanted.max_attenuation_db == now->max_attenuation_db;
  if (!same && se_bf_stream_change(instance->stream, &wanted) == 0) {
    *now = wanted;
  }
}

void cleanup(LADSPA_Handle handle) {
  // A host that got no instance may still release it.
  if (handle != nullptr) {
    se_bf_stream_close(static_cast<ladspa_instance *>(handle)->stream);
    free(handle);
  }
}

LADSPA_Handle instantiate(const LADSPA_Descriptor *, unsigned long rate_hz) {
  ladspa_instance *instance = static_cast<ladspa_instance *>(calloc(1, sizeof(ladspa_instance)));
  if (instance == nullptr) {
    return nullptr;
  }
  se_bf_stream_config_init(&instance->config);
  instance->config.rate = rate_hz > INT32_MAX ? INT32_MAX : static_cast<int32_t>(rate_hz);
  instance->config.mode = SE_BF_STREAM_REFINED;
  set_direction(&instance->config, 0.0f, kNoAngle);
  instance->stream = se_bf_stream_open(&instance->config, nullptr);
  if (instance->stream == nullptr) {
    cleanup(instance);
    return nullptr;
  }
  return instance;
}

void connect_port(LADSPA_Handle handle, unsigned long port, LADSPA_Data *data) {
  if (port < PORT_COUNT) {
    static_cast<ladspa_instance *>(handle)->ports[port] = data;
  }
}

void activate(LADSPA_Handle handle) {
  ladspa_instance *instance = static_cast<ladspa_instance *>(handle);
  follow_controls(instance);
  se_bf_stream_reset(instance->stream);
}

// Takes at most kPiece samples from `at` on. Inputs are read before the output is written: hosts
// may connect one buffer to both.
void run_piece(ladspa_instance *instance, size_t at, size_t frames) {
  float in[kChannels * kPiece];
  for (size_t n = 0; n < frames; ++n) {
    in[2 * n] = instance->ports[PORT_INPUT_0][at + n];
    in[2 * n + 1] = instance->ports[PORT_INPUT_1][at + n];
  }
  se_bf_stream_process_f32(instance->stream, in, frames, instance->ports[PORT_OUTPUT] + at);
}

void run(LADSPA_Handle handle, unsigned long frames) {
  ladspa_instance *instance = static_cast<ladspa_instance *>(handle);
  follow_controls(instance);
  if (instance->ports[PORT_LATENCY] != nullptr) {
    *instance->ports[PORT_LATENCY] = static_cast<float>(se_bf_stream_latency(instance->stream));
  }
  for (size_t at = 0; at < frames; at += kPiece) {
    const size_t left = frames - at;
    run_piece(instance, at, left < kPiece ? left : kPiece);
  }
}

constexpr LADSPA_PortDescriptor kPorts[PORT_COUNT] = {
    LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,    LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,
    LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO,   LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL,
    LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL,  LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL,
    LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL, LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL};

constexpr const char *kPortNames[PORT_COUNT] = {"Microphone 0",
                                                "Microphone 1",
                                                "Output",
                                                "Mode (0 mean, 1 omlsa, 2 mvdr, 3 mono, 4 refined)",
                                                "Microphone spacing (m)",
                                                "Direction (degrees)",
                                                "latency",
                                                "Max attenuation (dB, 0 no limit)"};

constexpr LADSPA_PortRangeHintDescriptor kBounded =
    LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE;

constexpr LADSPA_PortRangeHint kHints[PORT_COUNT] = {
    {0, 0.0f, 0.0f},
    {0, 0.0f, 0.0f},
    {0, 0.0f, 0.0f},
    {kBounded | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_MAXIMUM, 0.0f, kRefinedMode},
    {kBounded | LADSPA_HINT_DEFAULT_0, 0.0f, kMaxSpacing},
    {kBounded | LADSPA_HINT_DEFAULT_MINIMUM, kNoAngle, kMaxAngle},
    // SoX asks for the default of an output as well.
    {LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_0, 0.0f, 0.0f},
    {kBounded | LADSPA_HINT_DEFAULT_0, 0.0f, kMaxAttenuation}};

// No property is claimed, not even that of hard real time: run keeps off the heap and the operating
// system, but its work comes in blocks of 20 ms and grows after a change.
constexpr LADSPA_Descriptor kDescriptor = {kUniqueId,
                                           "tm_se_bf",
                                           0,
                                           "Speech enhancement with two microphones",
                                           "The tm_se_bf developers",
                                           "MIT",
                                           PORT_COUNT,
                                           kPorts,
                                           kPortNames,
                                           kHints,
                                           nullptr,
                                           instantiate,
                                           connect_port,
                                           activate,
                                           run,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           cleanup};

}  // namespace

extern "C" const LADSPA_Descriptor *ladspa_descriptor(unsigned long index) {
  return index == 0 ? &kDescriptor : nullptr;
}
