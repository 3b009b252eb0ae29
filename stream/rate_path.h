// A stream at a rate other than 16 kHz around a block function at 16 kHz: down, through the
// function, back up, with the band above 8 kHz where the rate has one.
//
// Output sample n belongs to input sample n - rate_path_latency(), exactly at every rate, and does
// not depend on how the caller cuts the stream. After rate_path_open no function but
// rate_path_close allocates, locks or calls the system.
#ifndef TM_SE_BF_STREAM_RATE_PATH_H
#define TM_SE_BF_STREAM_RATE_PATH_H

#include <stddef.h>
#include <stdint.h>

// Takes 320 frames at 16 kHz, interleaved, full scale 1, and gives 320 mono samples.
typedef void (*stream_block_fn)(void *user, const float *in, float *out);

struct rate_path_config {
  int32_t rate;           // Hz, SE_BF_STREAM_MIN_RATE .. SE_BF_STREAM_MAX_RATE, not 16000
  int32_t channels;       // 1 or 2
  int32_t delay_16k;      // samples at 16 kHz by which the block function is late, 0 .. 16000
  int32_t full_band;      // 1: keep what lies above 8 kHz; only matters at rates above 16 kHz
  stream_block_fn block;  // called within rate_path_process, once for every 20 ms
  void *user;             // handed to `block`
};

struct rate_path;

// Returns null when memory is short, the configuration is out of range, or the library was built
// without rates; `error`, which may be null, then names the reason (static text).
rate_path *rate_path_open(const rate_path_config *config, const char **error);

// Samples at the outer rate from input to output, constant.
int32_t rate_path_latency(const rate_path *path);

// Takes `frames` frames, interleaved, full scale 1; gives as many mono samples. `out` may be `in`
// where there is one channel.
void rate_path_process(rate_path *path, const float *in, size_t frames, float *out);

// Fades the band above 8 kHz in or out within 10 ms.
void rate_path_set_full_band(rate_path *path, int32_t full_band);

// The band above 8 kHz is that of one channel alone from the current block on, or of all with -1.
// May be called within the block function.
void rate_path_use(rate_path *path, int32_t alone);

// Leaves the path as it was when opened, with the present setting of the band above 8 kHz: the same
// input then gives the same bits. The block function's own state is the caller's.
void rate_path_reset(rate_path *path);

void rate_path_close(rate_path *path);  // null is allowed

#endif  // TM_SE_BF_STREAM_RATE_PATH_H
