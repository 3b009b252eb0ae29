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

struct scene_mode {
  const char *name;  // as --mode takes it
  int32_t value;     // SE_BF_MODE_*
  const char *what;  // it makes of the sound, for the help
};

constexpr scene_mode kModes[] = {{"mean", SE_BF_MODE_MEAN, "average of the channels"},
                                 {"omlsa", SE_BF_MODE_OMLSA, "noise suppression on it"},
                                 {"mvdr", SE_BF_MODE_MVDR, "two-microphone beamformer"},
                                 {"mono", SE_BF_MODE_MONO, "channel 0 as it is"}};
constexpr int32_t kModeByChannels = 0;  // mvdr for two, omlsa for one

// The mode of a name; kModeByChannels when there is none.
int32_t scene_mode_named(const std::string &name);

// The name of a mode, empty for kModeByChannels.
std::string scene_mode_name(int32_t mode);

#endif  // SE_BF_SCENE_H
