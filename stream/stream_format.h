// What all parts of a stream agree on, and what program and plug-ins tell of it.
#ifndef TM_SE_BF_STREAM_STREAM_FORMAT_H
#define TM_SE_BF_STREAM_STREAM_FORMAT_H

#include <cstdint>

constexpr int32_t kCoreRateHz = 16000;              // the only rate of the core
constexpr int32_t kStreamBlock = 320;               // samples per channel at kCoreRateHz: 20 ms
constexpr int32_t kStreamHops[] = {160, 192, 320};  // samples per analysis step
constexpr int32_t kStreamDefaultHop = 320;
constexpr int32_t kStreamMaxChannels = 2;

// Degrees to either side that program and plug-ins take; a stream takes any finite angle.
constexpr float kMaxAngle = 180.0f;

// Largest se_bf_stream_config.max_attenuation_db.
constexpr float kMaxAttenuation = 60.0f;

#endif  // TM_SE_BF_STREAM_STREAM_FORMAT_H
