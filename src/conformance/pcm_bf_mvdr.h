// The stored reference output of the self-test.
#ifndef TM_SE_BF_CONFORMANCE_PCM_BF_MVDR_H
#define TM_SE_BF_CONFORMANCE_PCM_BF_MVDR_H

#include <cstdint>

constexpr int32_t kReferenceSamples = 32000;

// Output of type "bf_mvdr" at hop 192 for the stored recording, without its first 256 samples, the
// latency that se_bf_init returns. 2.0 s at 16 kHz, mono. The build embeds pcm_bf_mvdr.s16 (16-bit
// little-endian), which recordings/ makes.
extern const int16_t g_buf_bf_mvdr[kReferenceSamples];

#endif  // TM_SE_BF_CONFORMANCE_PCM_BF_MVDR_H
