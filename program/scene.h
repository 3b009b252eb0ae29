// What the program accepts of a scene besides what streams fix: modes and ranges. They stand here
// alone; a test compares the completion and the man page with them.
#ifndef SE_BF_SCENE_H
#define SE_BF_SCENE_H

#include <cstdint>
#include <string>

#include "stream_format.h"
#include "tm_se_bf_stream.h"

constexpr int kRateHz = kCoreRateHz;  // of the enhancement, and of raw PCM unless told otherwise

constexpr double kMaxDistanceM = SE_BF_STREAM_MAX_DISTANCE;
constexpr double kMaxAngleDeg = static_cast<double>(kMaxAngle);  // to either side
constexpr double kMaxGainDb = 60.0;                              // up or down
constexpr double kMaxAttenuationDb = static_cast<double>(kMaxAttenuation);

struct scene_mode {
  const char *name;  // as --mode takes it
  int32_t value;     // SE_BF_STREAM_* or SE_BF_MODE_*
  const char *what;  // it makes of the sound, for the help
};

constexpr scene_mode kModes[] = {
    {"auto", SE_BF_STREAM_AUTO, "refined, or omlsa at hop 160 or 192"},
    {"refined", SE_BF_STREAM_REFINED, "the best quality; finds the talker with two microphones"},
    {"mean", SE_BF_MODE_MEAN, "average of the channels"},
    {"omlsa", SE_BF_MODE_OMLSA, "noise suppression on it"},
    {"mvdr", SE_BF_MODE_MVDR, "two-microphone beamformer"},
    {"mono", SE_BF_MODE_MONO, "channel 0 as it is"}};

// The mode of a name; SE_BF_STREAM_AUTO when there is none.
int32_t scene_mode_named(const std::string &name);

// The name of a mode.
std::string scene_mode_name(int32_t mode);

// The mode that SE_BF_STREAM_AUTO stands for at a hop; any other mode is itself.
int32_t scene_mode_chosen(int32_t mode, int hop);

#endif  // SE_BF_SCENE_H
