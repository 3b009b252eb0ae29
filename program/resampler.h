// Streaming sample-rate conversion with libsamplerate: aligned, in constant memory.
#ifndef SE_BF_RESAMPLER_H
#define SE_BF_RESAMPLER_H

#include <samplerate.h>

#include <cstddef>

struct resampler {
  SRC_STATE *state;  // null: rates are equal, nothing is converted
  double ratio;      // output rate / input rate
  size_t channels;
};

// Returns false when the rates are too far apart or memory is short. Equal rates need no state.
bool resampler_open(resampler *r, int rate_in_hz, int rate_out_hz, size_t channels);

// Converts up to `*frames_in` frames into at most `room` frames and returns their number; leaves in
// `*frames_in` how many were consumed. With `end` the input is the last there is: call until
// nothing is consumed and nothing comes out. Returns -1 on an internal error.
long resampler_run(resampler *r, const float *in, size_t *frames_in, float *out, size_t room,
                   bool end);

void resampler_close(resampler *r);

#endif  // SE_BF_RESAMPLER_H
