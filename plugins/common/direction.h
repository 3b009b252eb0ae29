// Spacing of the microphones and direction of the talker as plug-ins are told them: only both
// together mean something.
#ifndef TM_SE_BF_PLUGINS_DIRECTION_H
#define TM_SE_BF_PLUGINS_DIRECTION_H

#include "stream_format.h"
#include "tm_se_bf_stream.h"

constexpr float kMaxSpacing = SE_BF_STREAM_MAX_DISTANCE;  // metres
constexpr float kNoAngle = -200.0f;  // degrees; stands for an unknown direction

// spacing: metres, 0: unknown; angle: degrees, below -kMaxAngle: unknown.
inline void set_direction(se_bf_stream_config *config, float spacing, float angle) {
  const bool known = spacing > 0.0f && angle >= -kMaxAngle;
  config->mic_distance = known ? spacing : 0.0f;
  config->doa = known ? angle : 0.0f;
}

#endif  // TM_SE_BF_PLUGINS_DIRECTION_H
