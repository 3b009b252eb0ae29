// The count of a span.
#include "input_watch.h"

#include "sample_format.h"

namespace {

constexpr int32_t kSpansPerSecond = 50;

void note(input_watch *w, const float *in, int32_t found) {
  if (w->count == 0) {
    const int32_t first = first_not_finite(in);
    w->mic = first % w->channels;
    w->since = w->time + w->fill + first / w->channels;
  }
  w->count += found;
}

}  // namespace

void input_watch_init(input_watch *w, int32_t rate, int32_t channels) {
  *w = {channels, rate / kSpansPerSecond, 0, 0, 0, 0, 0};
}

int32_t input_watch_room(const input_watch *w) {
  return w->span - w->fill;
}

bool input_watch_advance(input_watch *w, const float *in, int32_t frames, int32_t found,
                         se_bf_stream_event *event) {
  if (found > 0) {
    note(w, in, found);
  }
  w->fill += frames;
  if (w->fill < w->span) {
    return false;
  }
  const bool news = w->count > 0;
  *event = {SE_BF_STREAM_NOT_FINITE, w->mic, w->time, w->since, 0, w->count};
  w->time += w->span;
  w->fill = 0;
  w->count = 0;
  return news;
}
