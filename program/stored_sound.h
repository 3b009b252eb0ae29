// The recording and the reference of the library's self-test, embedded in the program as well.
#ifndef SE_BF_STORED_SOUND_H
#define SE_BF_STORED_SOUND_H

#include <stdint.h>

constexpr int32_t STORED_FRAMES = 32000;  // 2 s at 16 kHz
constexpr int16_t STORED_CHANNELS = 2;

// Interleaved, channel 0 first.
extern const int16_t g_stored_recording[STORED_FRAMES * STORED_CHANNELS];

// What SE_BF_MODE_MVDR at hop 192 makes of it, from the sample on that se_bf_init's latency names.
extern const int16_t g_stored_reference[STORED_FRAMES];

#endif  // SE_BF_STORED_SOUND_H
