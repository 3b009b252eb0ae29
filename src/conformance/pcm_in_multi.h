// The stored two-channel recording of the self-test.
#ifndef TM_SE_BF_CONFORMANCE_PCM_IN_MULTI_H
#define TM_SE_BF_CONFORMANCE_PCM_IN_MULTI_H

#include <cstdint>

constexpr int32_t kRecordingFrames = 32000;
constexpr int32_t kRecordingChannels = 2;

// 2.0 s at 16 kHz, interleaved, channel 0 first: a talker in a room with point and diffuse noise.
// The build embeds pcm_in_multi.s16 (16-bit little-endian), which recordings/ makes.
extern const int16_t g_buf_multi_in[kRecordingFrames * kRecordingChannels];

#endif  // TM_SE_BF_CONFORMANCE_PCM_IN_MULTI_H
