// Where the audio comes from: the channels in use of a sound, as 16 kHz float frames.
#include "audio_source.h"

#include <cmath>

#include "report.h"
#include "sound_open.h"

namespace {

constexpr size_t kMaxPicks = 2;

// Without a choice all channels are used; there may be two at most.
bool choose_channels(audio_source *src, const enhance_options *options) {
  const std::string count = std::to_string(src->input.channels);
  src->picks = options->channels;
  for (const size_t pick : src->picks) {
    if (pick >= src->input.channels) {
      return report_failure(src->input.name + " has " + count +
                            " channel(s), numbered from 0; there is no channel " +
                            std::to_string(pick) + " for --channels");
    }
  }
  if (!src->picks.empty()) {
    return true;
  }
  if (src->input.channels > kMaxPicks) {
    return report_failure(src->input.name + " has " + count +
                          " channels; pick one or two microphones with --channels, for example "
                          "--channels 0,1");
  }
  for (size_t m = 0; m < src->input.channels; ++m) {
    src->picks.push_back(m);
  }
  return true;
}

// Reads up to `frames` frames and writes the picked channels to `out`, without non-finite samples.
size_t read_picked(audio_source *src, float *out, size_t frames) {
  const size_t limit = src->stored.size() / src->input.channels;
  const size_t wanted = frames < limit ? frames : limit;
  const size_t count = input_read(&src->input, src->stored.data(), wanted);
  for (size_t t = 0; t < count; ++t) {
    const float *frame = src->stored.data() + t * src->input.channels;
    for (const size_t pick : src->picks) {
      const bool good = std::isfinite(frame[pick]);
      src->not_finite += good ? 0 : 1;
      *out++ = good ? frame[pick] : 0.0f;
    }
  }
  return count;
}

long read_converted(audio_source *src, float *out, size_t room) {
  const size_t channels = src->picks.size();
  for (;;) {
    if (src->pending_frames == 0 && !src->input.ended) {
      src->pending_at = 0;
      src->pending_frames = read_picked(src, src->pending.data(), src->pending.size() / channels);
    }
    const bool end = src->input.ended && src->pending_frames == 0;
    size_t used = src->pending_frames;
    const float *next = src->pending.data() + src->pending_at * channels;
    const long made = resampler_run(&src->convert, next, &used, out, room, end);
    src->pending_at += used;
    src->pending_frames -= used;
    if (made < 0) {
      report_line("converting the sample rate of " + src->input.name + " failed");
    }
    if (made != 0 || end) {
      return made;
    }
  }
}

}  // namespace

bool source_open(audio_source *src, const enhance_options *options) {
  *src = {};
  if (!sound_open(&src->input, options) || !choose_channels(src, options)) {
    return false;
  }
  if (!resampler_open(&src->convert, src->input.rate_hz, kRateHz, src->picks.size())) {
    return report_failure("cannot convert " + src->input.name + " from " +
                          std::to_string(src->input.rate_hz) + " Hz to " + std::to_string(kRateHz) +
                          " Hz; convert it with another program first");
  }
  const size_t frames = input_chunk(&src->input);
  src->stored.resize(frames * src->input.channels);
  src->pending.resize(frames * src->picks.size());
  return true;
}

long source_read(audio_source *src, float *out, size_t room) {
  if (src->convert.state != nullptr) {
    return read_converted(src, out, room);
  }
  return static_cast<long>(read_picked(src, out, room));
}

void source_close(audio_source *src) {
  sound_close(&src->input);
  resampler_close(&src->convert);
}
