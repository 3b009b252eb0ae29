// Where the audio comes from: the channels in use of a sound, as float frames.
#include "audio_source.h"

#include <algorithm>

#include "report.h"
#include "sample_words.h"
#include "sound_open.h"
#include "tm_se_bf_stream.h"

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

bool check_rate(const sound_input *in) {
  return (in->rate_hz >= SE_BF_STREAM_MIN_RATE && in->rate_hz <= SE_BF_STREAM_MAX_RATE) ||
         report_failure(in->name + " has a sampling rate of " + std::to_string(in->rate_hz) +
                        " Hz; the enhancer takes " + std::to_string(SE_BF_STREAM_MIN_RATE) +
                        " to " + std::to_string(SE_BF_STREAM_MAX_RATE) +
                        " Hz; convert it with another program first");
}

}  // namespace

bool source_open(audio_source *src, const enhance_options *options) {
  *src = {};
  if (!sound_open(&src->input, options) || !check_rate(&src->input) ||
      !choose_channels(src, options)) {
    return false;
  }
  src->stored.resize(input_chunk(&src->input) * src->input.channels);
  return true;
}

size_t source_read(audio_source *src, float *out, size_t room) {
  const size_t limit = src->stored.size() / src->input.channels;
  const size_t wanted = room < limit ? room : limit;
  const size_t count = input_read(&src->input, src->stored.data(), wanted);
  const float *in = src->stored.data();
  const size_t all = src->input.channels;
  const size_t picked = src->picks.size();
  if (picked == all && src->picks.front() == 0 && src->picks.back() == all - 1) {
    std::copy_n(in, count * all, out);
  } else {
    for (size_t t = 0; t < count; ++t) {
      for (size_t m = 0; m < picked; ++m) {
        out[t * picked + m] = in[t * all + src->picks[m]];
      }
    }
  }
  src->not_finite += samples_make_finite(out, count * picked);
  return count;
}

void source_close(audio_source *src) {
  sound_close(&src->input);
}
