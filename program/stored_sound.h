// The recording and the reference of the library's self-test, embedded in the program as well.
#ifndef SE_BF_STORED_SOUND_H
#define SE_BF_STORED_SOUND_H

#include <cstdint>

constexpr int32_t kStoredFrames = 32000;  // 2 s at 16 kHz
constexpr int16_t kStoredChannels = 2;

// Interleaved, channel 0 first.
extern const int16_t g_stored_recording[kStoredFrames * kStoredChannels];

// What SE_BF_MODE_MVDR at hop 192 makes of it, from the sample on that se_bf_init's latency names.
extern const int16_t g_stored_reference[kStoredFrames];

#endif  // SE_BF_STORED_SOUND_H
