// Follows the input of a stream and reports samples that are no numbers, at most once in 20 ms.
//
// The spans of 20 ms are counted from the start of the stream, so that the reports are the same for
// any length of the caller's blocks.
#ifndef TM_SE_BF_STREAM_INPUT_WATCH_H
#define TM_SE_BF_STREAM_INPUT_WATCH_H

#include <cstdint>

#include "tm_se_bf_stream.h"

struct input_watch {
  int32_t channels;
  int32_t span;   // samples per channel of 20 ms
  int32_t fill;   // of these, seen
  int64_t time;   // first sample of the span
  int32_t count;  // samples that are not finite in it, of all channels
  int32_t mic;    // channel of the first one
  int64_t since;  // its time
};

void input_watch_init(input_watch *w, int32_t rate, int32_t channels);

// Samples per channel up to the end of the span: the most that the next call takes.
int32_t input_watch_room(const input_watch *w);

// Counts in `frames` samples per channel, interleaved, of which `found` are not finite; `in` is not
// read when there are none. Returns true and fills `event` at the end of a span with something to
// report.
bool input_watch_advance(input_watch *w, const float *in, int32_t frames, int32_t found,
                         se_bf_stream_event *event);

#endif  // TM_SE_BF_STREAM_INPUT_WATCH_H
