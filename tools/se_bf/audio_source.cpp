// Where the audio comes from: a sound file or raw PCM on standard input, as 16 kHz float frames.
#include "audio_source.h"

#include <errno.h>
#include <math.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "process.h"
#include "report.h"
#include "riff_header.h"
#include "sound_format.h"

static constexpr size_t CHUNK_SAMPLES = 8192;  // stored samples, all channels, read at a time
static constexpr size_t RAW_BYTES = 8192;      // raw bytes read at a time, at most
static constexpr size_t SAMPLE_BYTES = 2;
static constexpr size_t MAGIC_BYTES = 4;  // mark at the start of a sound file
static constexpr float FULL_SCALE = 32768.0f;
static constexpr size_t MAX_PICKS = 2;

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

// Without a choice all channels are used, of which there may be two.
static bool choose_channels(audio_source *src, const enhance_options *options) {
  const std::string count = std::to_string(src->stored_channels);
  src->picks = options->channels;
  for (const size_t pick : src->picks) {
    if (pick >= src->stored_channels) {
      return fail(src->name + " has " + count +
                  " channel(s), numbered from 0; there is no channel " + std::to_string(pick) +
                  " for --channels");
    }
  }
  if (!src->picks.empty()) {
    return true;
  }
  if (src->stored_channels > MAX_PICKS) {
    return fail(src->name + " has " + count +
                " channels; pick one or two microphones with --channels, for example "
                "--channels 0,1");
  }
  for (size_t m = 0; m < src->stored_channels; ++m) {
    src->picks.push_back(m);
  }
  return true;
}

static bool open_raw(audio_source *src, const enhance_options *options) {
  if (isatty(STDIN_FILENO) == 1) {
    return fail(
        "standard input is a terminal; pipe raw PCM into it, for example from "
        "arecord -t raw -f S16_LE -r 16000");
  }
  src->name = "standard input";
  src->rate_hz = ENHANCE_RATE_HZ;
  src->stored_channels = options->raw_channels;
  src->frames_total = -1;
  src->bytes.resize(RAW_BYTES);
  return true;
}

static bool open_file(audio_source *src, const std::string &path) {
  struct stat status = {};
  src->name = path;
  if (stat(path.c_str(), &status) != 0) {
    return fail("cannot open " + path + ": " + strerror(errno));
  }
  if (S_ISDIR(status.st_mode)) {
    return fail(path + " is a directory; name a sound file in it");
  }
  if (access(path.c_str(), R_OK) != 0) {
    return fail("cannot read " + path + ": " + strerror(errno));
  }
  SF_INFO info = {};
  src->file = sf_open(path.c_str(), SFM_READ, &info);
  if (src->file == nullptr) {
    return fail("cannot read " + path + " as sound (" + sound_reason(sf_strerror(nullptr)) +
                "); convert it to WAV or FLAC, or pipe raw PCM into se_bf enhance -");
  }
  src->rate_hz = info.samplerate;
  src->stored_channels = static_cast<size_t>(info.channels);
  const int64_t promised =
      S_ISREG(status.st_mode) ? riff_promised_frames(path, info.samplerate) : -1;
  src->frames_total = promised > info.frames       ? promised
                      : info.frames < SF_COUNT_MAX ? info.frames
                                                   : -1;
  return true;
}

bool source_open(audio_source *src, const enhance_options *options) {
  *src = {};
  const bool raw = options->in == "-";
  const bool opened = raw ? open_raw(src, options) : open_file(src, options->in);
  if (!opened || !choose_channels(src, options)) {
    return false;
  }
  if (!resampler_open(&src->convert, src->rate_hz, ENHANCE_RATE_HZ, src->picks.size())) {
    return fail("cannot convert " + src->name + " from " + std::to_string(src->rate_hz) +
                " Hz to 16000 Hz; convert it with another program first");
  }
  const bool wide = src->stored_channels > CHUNK_SAMPLES;
  const size_t frames = wide ? 1 : CHUNK_SAMPLES / src->stored_channels;
  src->stored.resize(frames * src->stored_channels);
  src->pending.resize(frames * src->picks.size());
  return true;
}

// Returns the frames now in `stored`, 0 at the end, -1 on an error.
static long read_file(audio_source *src, size_t frames) {
  const sf_count_t count =
      sf_readf_float(src->file, src->stored.data(), static_cast<sf_count_t>(frames));
  if (count <= 0 && sf_error(src->file) != SF_ERR_NO_ERROR) {
    report_line("reading " + src->name + " failed: " + sound_reason(sf_strerror(src->file)) +
                "; the file is damaged or cut off");
    return -1;
  }
  return static_cast<long>(count);
}

static bool is_sound_file(const uint8_t *bytes) {
  return memcmp(bytes, "RIFF", MAGIC_BYTES) == 0 || memcmp(bytes, "fLaC", MAGIC_BYTES) == 0 ||
         memcmp(bytes, "OggS", MAGIC_BYTES) == 0;
}

// Fills `bytes` with at least one frame and enough to tell a sound file; false at the end.
static bool fetch_bytes(audio_source *src, size_t wanted, size_t needed) {
  while (src->bytes_held < needed) {
    const ssize_t count =
        read(STDIN_FILENO, src->bytes.data() + src->bytes_held, wanted - src->bytes_held);
    const bool interrupted = count < 0 && errno == EINTR;
    if (interrupted && !process_stopped()) {
      continue;
    }
    if (count <= 0) {
      return count == 0 || interrupted;
    }
    src->bytes_held += static_cast<size_t>(count);
  }
  return true;
}

static void decode(audio_source *src, size_t samples) {
  for (size_t n = 0; n < samples; ++n) {
    const uint8_t *bytes = src->bytes.data() + SAMPLE_BYTES * n;
    const uint16_t word = static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
    src->stored[n] = static_cast<float>(static_cast<int16_t>(word)) / FULL_SCALE;
  }
}

static long read_raw(audio_source *src, size_t frames) {
  const size_t frame_bytes = SAMPLE_BYTES * src->stored_channels;
  const bool first = src->frames_read == 0;
  const size_t room = frames * frame_bytes;
  const size_t needed = first && room >= MAGIC_BYTES ? MAGIC_BYTES : frame_bytes;
  if (!fetch_bytes(src, room < RAW_BYTES ? room : RAW_BYTES, needed)) {
    report_line("reading standard input failed: " + std::string(strerror(errno)));
    return -1;
  }
  if (first && src->bytes_held >= MAGIC_BYTES && is_sound_file(src->bytes.data())) {
    report_line(
        "standard input carries a sound file with a header, not raw PCM; give the file as "
        "IN, or record with arecord -t raw");
    return -1;
  }
  const size_t whole = src->bytes_held / frame_bytes;
  decode(src, whole * src->stored_channels);
  src->bytes_held -= whole * frame_bytes;
  memmove(src->bytes.data(), src->bytes.data() + whole * frame_bytes, src->bytes_held);
  if (whole == 0 && src->bytes_held > 0 && !process_stopped()) {
    report_line("warning: standard input ended within a frame of " + std::to_string(frame_bytes) +
                " bytes; the last " + std::to_string(src->bytes_held) +
                " byte(s) are left out (is --raw-channels right?)");
  }
  return static_cast<long>(whole);
}

// Reads up to `frames` frames, picks channels and puts them, cleaned, to `out`.
static long read_picked(audio_source *src, float *out, size_t frames) {
  const size_t limit = src->stored.size() / src->stored_channels;
  const size_t wanted = frames < limit ? frames : limit;
  const long count = src->file != nullptr ? read_file(src, wanted) : read_raw(src, wanted);
  src->ended = count <= 0;
  for (long t = 0; t < count; ++t) {
    const float *frame = src->stored.data() + static_cast<size_t>(t) * src->stored_channels;
    for (const size_t pick : src->picks) {
      const bool good = isfinite(frame[pick]);
      src->not_finite += good ? 0 : 1;
      *out++ = good ? frame[pick] : 0.0f;
    }
  }
  src->frames_read += count > 0 ? count : 0;
  return count;
}

static long read_converted(audio_source *src, float *out, size_t room) {
  const size_t channels = src->picks.size();
  for (;;) {
    if (src->pending_frames == 0 && !src->ended) {
      const long count = read_picked(src, src->pending.data(), src->pending.size() / channels);
      if (count < 0) {
        return -1;
      }
      src->pending_at = 0;
      src->pending_frames = static_cast<size_t>(count);
    }
    size_t used = src->pending_frames;
    const float *next = src->pending.data() + src->pending_at * channels;
    const long made = resampler_run(&src->convert, next, &used, out, room, src->ended);
    src->pending_at += used;
    src->pending_frames -= used;
    if (made < 0) {
      report_line("converting the sample rate of " + src->name + " failed");
    }
    if (made != 0 || src->ended) {
      return made;
    }
  }
}

long source_read(audio_source *src, float *out, size_t room) {
  if (src->convert.state != nullptr) {
    return read_converted(src, out, room);
  }
  return src->ended ? 0 : read_picked(src, out, room);
}

void source_close(audio_source *src) {
  if (src->file != nullptr) {
    sf_close(src->file);
    src->file = nullptr;
  }
  resampler_close(&src->convert);
}
