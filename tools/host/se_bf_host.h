// Shared host layer: feeds audio in blocks of any length to the speech enhancer and gives it back
// aligned, and shields listeners from what the bare library does on silence and on microphone
// faults.
//
// Two ways to use a host, one of them for its whole life:
//   - aligned, host_push_s16 ... host_finish_s16: output sample i belongs to input sample i, and as
//     many samples come out as went in. For files and pipes.
//   - streaming, host_stream_s16: every call returns as many samples as it takes, at the constant
//     latency host_stream_latency(). For audio plug-ins.
//
// Shielding (two channels, every mode but SE_BF_MODE_MONO; host_config.plain turns it off)
//   - Nothing is handed to the library before the first block in which both microphones carry sound
//     at comparable levels; until then the output is silence. A microphone that stays dead does not
//     hold the other one up for more than HOST_START_WAIT_BLOCKS.
//   - During digital silence in both channels the library still gets the blocks that flush the
//     signal path; then it is not called, and the output is silence, until sound returns. So the
//     noise estimate and the covariances survive a pause, where zeros (or a substitute
//     dither) would pull the noise floor down and make all noise after the pause count as speech.
//     Whole blocks are left out of the input and of the output alike, so the alignment holds.
//   - After a microphone fault a beamforming instance changes to single-channel suppression. Once
//     both microphones have worked for HOST_HEAL_BLOCKS, a new instance is made, run over the last
//     HOST_HISTORY_BLOCKS of input, and faded in over one block. That block takes the time of
//     HOST_HISTORY_BLOCKS ordinary ones.
//
// The pool and the fault levels of the library belong to the process: one host lives at a time,
// nothing else in the process calls the library meanwhile, and all calls come from one thread. A
// host allocates at creation only.
#ifndef SE_BF_HOST_H
#define SE_BF_HOST_H

#include <stddef.h>
#include <stdint.h>

constexpr int32_t HOST_RATE_HZ = 16000;
constexpr int32_t HOST_BLOCK = 320;  // samples per channel of one library call
constexpr int32_t HOST_MAX_CHANNELS = 2;
// 0.2 s: more skew than two inputs of one device have.
constexpr int32_t HOST_START_WAIT_BLOCKS = 10;
// 2 s: a loose contact shows as dead within 44 to 88 blocks.
constexpr int32_t HOST_HEAL_BLOCKS = 100;
constexpr int32_t HOST_HISTORY_BLOCKS = 50;  // 1 s: noise tracking needs 15 frames, weights 10
constexpr size_t HOST_FINISH_MAX = 640;      // most samples that host_finish_s16 writes

enum host_event_kind {
  HOST_EVENT_DEAD,          // a microphone is silent, or 40 dB weaker than the other
  HOST_EVENT_IDENTICAL,     // both channels carry the same samples
  HOST_EVENT_EQUAL_LEVELS,  // different channels with the same level, which is a fault as well
  HOST_EVENT_SILENT,        // both channels are digital silence (plain only)
  HOST_EVENT_HEALED         // both microphones have been sound for HOST_HEAL_BLOCKS
};

// Times are in input samples per channel since creation.
struct host_event {
  host_event_kind kind;
  int32_t mic;       // DEAD: 0 or 1
  int64_t time;      // first sample of the block in which it was found
  int64_t since;     // when it began, as far as the blocks before tell; not after `time`
  bool beamforming;  // HEALED: the beamformer works again from `time` on
};

typedef void (*host_event_fn)(void *user, const host_event *event);

struct host_config {
  int32_t channels;        // 1 or 2, interleaved
  int32_t mode;            // SE_BF_MODE_*; one channel always runs SE_BF_MODE_OMLSA
  int32_t hop;             // 160, 192 or 320 samples
  float mic_distance;      // metres; 0: uniform steering
  float doa;               // degrees; 0: in line on the side of microphone 0, 90: broadside
  bool plain;              // true: no shielding
  host_event_fn on_event;  // called from within push, finish and stream; may be null
  void *user;              // handed to on_event
};

struct host;

// Makes a host and its library instance. Returns null when a value of `config` is out of range,
// when another host lives in this process, or without memory.
host *host_create(const host_config *config);

// Takes `frames` samples per channel, interleaved, and returns the number of aligned samples
// written to `out`, which has room for frames + HOST_BLOCK. The input is not changed.
size_t host_push_s16(host *h, const int16_t *in, size_t frames, int16_t *out);

// Ends an aligned stream: writes the samples still missing (at most HOST_FINISH_MAX), returns their
// number. Only host_destroy may follow.
size_t host_finish_s16(host *h, int16_t *out);

// Takes `frames` samples per channel and writes `frames` samples, host_stream_latency() samples
// late. With one channel `out` may be `in`.
void host_stream_s16(host *h, const int16_t *in, size_t frames, int16_t *out);

// Samples by which host_stream_s16 delays the signal.
int32_t host_stream_latency(const host *h);

// Samples by which the library delays the signal itself: overlap of the analysis frames plus the
// initial fill of its block buffer; 0 in SE_BF_MODE_MONO with two channels.
int32_t host_signal_delay(int32_t channels, int32_t mode, int32_t hop);

// Rounds a sample of full scale 1 to 16 bits, saturating; NaN gives 0. Exact for x = v / 32768.
int16_t host_sample_from_float(float x);

// Releases the host and the library instance. Null is accepted.
void host_destroy(host *h);

#endif  // SE_BF_HOST_H
