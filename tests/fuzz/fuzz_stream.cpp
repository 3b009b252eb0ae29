// Fuzzes the stream library: any settings and changes, any sound in any pieces, words and floats in
// turn, ends and resets. A second stream judges: it takes the same sound as floats, each stretch in
// one call, and is opened anew where the first one is reset. Both must give the same samples and
// events, and as many samples as the header says. Where the beamformer has headroom, words and
// floats have their own level: both streams then take the same of them.
#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "script.h"
#include "tm_se_bf_stream.h"

namespace {

constexpr double kLongestSound_s = 3.5;  // of an input: a microphone can die and heal in it
constexpr size_t kMostPieces = 1000;     // about, of a stretch: bounds the time of an input
constexpr uint32_t kWordBits = 16;

using sound = std::vector<float>;

// A config, and the bytes that one of a later version would have behind it.
struct settings {
  se_bf_stream_config config;
  unsigned char beyond[4096 - sizeof(se_bf_stream_config)];
};

struct player {
  settings opened;
  settings now;
  std::vector<se_bf_stream_event> events;
  se_bf_stream *stream;
};

void hear(void *user, const se_bf_stream_event *event) {
  static_cast<player *>(user)->events.push_back(*event);
}

uint32_t next_random(uint32_t *seed) {
  *seed = *seed * 1664525 + 1013904223;
  return *seed >> kWordBits;
}

settings take_settings(fuzz_script *script) {
  static const int32_t kUsual[][8] = {{16000, 48000, 8000, 44100, 11025, 192000, 7999, 192001},
                                      {2, 2, 2, 2, 1, 1, 0, 3},
                                      {6002, 6001, 6000, 6003, 0, 1, 2, 5999},
                                      {0, 160, 192, 320, 0, 320, -1, 161},
                                      {0, 1, 0, 1, 0, 1, 0, 2},
                                      {0, 1, 0, 1, 0, 1, 1, -1}};
  static const float kDistances[] = {0.0f, 0.05f, 10.0f, -0.1f, 10.1f};
  static const float kDirections[] = {90.0f, 0.0f, -180.0f, 1e30f};
  settings s = {};
  se_bf_stream_config *c = &s.config;
  se_bf_stream_config_init(c);
  int32_t *const fields[] = {&c->rate, &c->channels, &c->mode, &c->hop, &c->plain, &c->full_band};
  for (size_t i = 0; i < std::size(fields); ++i) {
    *fields[i] = pick(script, kUsual[i]);
  }
  c->mic_distance = pick(script, kDistances);
  c->doa = pick(script, kDirections);
  const uint32_t choice = take(script, 1);
  c->on_event = choice / 64 == 3 ? nullptr : hear;
  if (choice == 255) {
    c->size = take(script, 2);
    s.beyond[take(script, 2) % sizeof s.beyond] = static_cast<unsigned char>(take(script, 1));
  }
  return s;
}

// As the header tells the ranges.
bool in_range(const se_bf_stream_config &c) {
  const auto flag = [](int32_t value) { return value == 0 || value == 1; };
  return c.rate >= 8000 && c.rate <= 192000 && (c.channels == 1 || c.channels == 2) &&
         (c.mode == 0 || c.mode == 1 || (c.mode >= 6000 && c.mode <= 6003)) &&
         (c.hop == 0 || c.hop == 320 || (c.mode != 1 && (c.hop == 160 || c.hop == 192))) &&
         c.mic_distance >= 0.0f && c.mic_distance <= 10.0f &&
         (c.mic_distance == 0.0f || std::isfinite(c.doa)) && flag(c.plain) && flag(c.full_band);
}

// Opens the stream as `opened`, and changes it to `now` before it hears anything.
bool open(player *p) {
  const char *error = nullptr;
  p->stream = se_bf_stream_open(&p->opened.config, &error);
  assert((p->stream == nullptr) == (error != nullptr));
  const bool has_size = p->opened.config.size == sizeof(se_bf_stream_config);
  assert(!has_size || (p->stream != nullptr) == in_range(p->opened.config));
  p->now.config.user = p;
  const int32_t refused = se_bf_stream_change(p->stream, &p->now.config);
  assert(refused == (p->stream == nullptr ? SE_BF_STREAM_ERROR_NULL : 0));
  return p->stream != nullptr;
}

// A stretch of sound in which something can happen; returns whether it has 16 bits.
bool take_sound(fuzz_script *script, uint32_t *seed, size_t channels, sound *x) {
  const uint32_t kind = take(script, 1) % 9;
  const int32_t level = static_cast<int32_t>(take(script, 1));
  const fuzz_script rest = *script;
  for (size_t i = 0; i < x->size(); ++i) {
    const int32_t noise = static_cast<int16_t>(next_random(seed)) * level / 256;
    const int32_t before =
        i % channels == 0 || kind > 6 ? noise : static_cast<int32_t>((*x)[i - 1] * 32768);
    const int32_t square = i / channels % 64 < 32 ? 32767 : -32768;
    const int32_t any = kind == 6 ? static_cast<int16_t>(take(script, 2)) : 0;
    const int32_t dead = i % channels == kind % 2 ? noise : 0;
    const int32_t kinds[] = {0, noise, dead, dead, before, square, any, noise, noise};
    (*x)[i] = static_cast<float>(kinds[kind]) / 32768.0f;
    if (kind > 6 && (kind == 8 || next_random(seed) % 64 == 0)) {
      (*x)[i] = take_float(script);
    }
    *script = script->left == 0 ? rest : *script;
  }
  return kind < 7;
}

// A sample as words hold it.
float rounded(float x) {
  return std::rint(std::clamp(x * 32768.0f, -32768.0f, 32767.0f)) / 32768.0f;
}

void expect_same(const sound &got, size_t from, const sound &expected, bool words) {
  assert(got.size() <= expected.size());
  for (size_t i = from; i < got.size(); ++i) {
    assert(std::isfinite(got[i]) && got[i] == (words ? rounded(expected[i]) : expected[i]));
  }
}

// Plays or pushes a piece as words or floats, in place where it asks so, and appends what comes.
size_t run(player *p, const float *x, size_t frames, bool aligned, bool words, sound *out) {
  const size_t channels = static_cast<size_t>(p->now.config.channels);
  size_t count = frames;
  if (words) {
    std::vector<int16_t> y(frames * channels);
    std::transform(x, x + y.size(), y.begin(),
                   [](float value) { return static_cast<int16_t>(value * 32768.0f); });
    if (aligned) {
      count = se_bf_stream_push_s16(p->stream, y.data(), frames, y.data());
    } else {
      se_bf_stream_process_s16(p->stream, y.data(), frames, y.data());
    }
    std::transform(y.begin(), y.begin() + static_cast<ptrdiff_t>(count), std::back_inserter(*out),
                   [](int16_t word) { return static_cast<float>(word) / 32768.0f; });
    return count;
  }
  const sound in(x, x + frames * channels);
  sound y(frames);
  if (aligned) {
    count = se_bf_stream_push_f32(p->stream, in.data(), frames, y.data());
  } else {
    se_bf_stream_process_f32(p->stream, in.data(), frames, y.data());
  }
  out->insert(out->end(), y.begin(), y.begin() + static_cast<ptrdiff_t>(count));
  return count;
}

struct session {
  fuzz_script script;
  player heard;
  player judge;
  uint32_t noise;
  size_t taken;  // samples per channel since the start of the sound
  size_t frames_left;
  bool headroom;  // some setting had it
};

bool has_headroom(const settings &s) {
  return s.config.channels == 2 && s.config.mode == SE_BF_MODE_MVDR && s.config.plain == 0;
}

void start_sound(session *s) {
  s->taken = 0;
  se_bf_stream_close(s->judge.stream);
  const bool opened = open(&s->judge);
  assert(opened);
  assert(se_bf_stream_latency(s->heard.stream) == se_bf_stream_latency(s->judge.stream));
}

void play(session *s) {
  static const uint32_t kPieces[] = {1, 7, 160, 320, 333, 480, 4096, 65536};
  const size_t channels = static_cast<size_t>(s->heard.now.config.channels);
  const size_t latency = static_cast<size_t>(se_bf_stream_latency(s->heard.stream));
  const uint32_t how = take(&s->script, 1);
  const size_t frames = std::min<size_t>(s->frames_left, take(&s->script, 2) << (how / 64));
  const size_t longest =
      std::max<size_t>(pick(&s->script, kPieces) % 65537, frames / kMostPieces + 1);
  const bool aligned = how % 2 == 1;
  sound x(frames * channels);
  const bool has_words = take_sound(&s->script, &s->noise, channels, &x);
  sound expected;
  sound got;
  const bool all_words = has_words && how / 2 % 4 == 0;
  const bool some_words = has_words && how / 2 % 4 == 1 && !s->headroom;
  run(&s->judge, x.data(), frames, aligned, all_words && s->headroom, &expected);
  for (size_t at = 0, n = 0; at < frames; at += n) {
    n = std::min(1 + next_random(&s->noise) % longest, frames - at);
    const bool words = all_words || (some_words && n % 2 == 0);
    const size_t from = got.size();
    const size_t count = run(&s->heard, &x[at * channels], n, aligned, words, &got);
    s->taken += n;
    assert(count == (aligned ? std::min(n, s->taken - std::min(s->taken, latency)) : n));
    expect_same(got, from, expected, words);
  }
  assert(got.size() == expected.size());
  s->frames_left -= frames;
}

void finish(session *s) {
  const size_t latency = static_cast<size_t>(se_bf_stream_latency(s->heard.stream));
  const size_t inside = std::min(s->taken, latency);
  std::vector<int16_t> got(inside);
  assert(se_bf_stream_finish_s16(s->heard.stream, got.data()) == inside);
  if (s->headroom) {
    std::vector<int16_t> expected(inside);
    assert(se_bf_stream_finish_s16(s->judge.stream, expected.data()) == inside && got == expected);
  } else {
    sound expected(inside);
    const size_t count = se_bf_stream_finish_f32(s->judge.stream, expected.data());
    assert(count == inside);
    for (size_t i = 0; i < inside; ++i) {
      assert(static_cast<float>(got[i]) / 32768.0f == rounded(expected[i]));
    }
  }
  start_sound(s);
}

void reset(session *s) {
  se_bf_stream_reset(s->heard.stream);
  start_sound(s);
}

void change(session *s) {
  settings wanted = take_settings(&s->script);
  const se_bf_stream_config before = s->heard.now.config;
  if (take(&s->script, 1) % 8 != 7) {  // else most would be refused
    wanted.config.rate = before.rate;
    wanted.config.channels = before.channels;
    wanted.config.hop = before.hop;
  }
  const int32_t latency = se_bf_stream_latency(s->heard.stream);
  int32_t results[2];
  for (player *p : {&s->heard, &s->judge}) {
    wanted.config.user = p;
    results[p == &s->judge] = se_bf_stream_change(p->stream, &wanted.config);
    p->now = results[0] == 0 ? wanted : p->now;
  }
  s->headroom = s->headroom || has_headroom(s->heard.now);
  assert(results[0] == results[1] && (results[0] != 0 || in_range(wanted.config)));
  const auto hop = [](int32_t value) { return value == 0 ? 320 : value; };
  assert(results[0] != 0 || hop(wanted.config.hop) == hop(before.hop));
  assert(se_bf_stream_latency(s->heard.stream) == latency);
}

// A call that is listed more often is made more often.
constexpr void (*kCalls[])(session *) = {play, play, play, play, change, change, finish, reset};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  session s = {{data, size}, {}, {}, 1, 0, 0, false};
  s.heard.opened = take_settings(&s.script);
  s.heard.opened.config.user = &s.heard;
  s.heard.now = s.heard.opened;
  s.judge = s.heard;
  s.judge.opened.config.user = &s.judge;
  if (!open(&s.heard)) {
    return 0;
  }
  s.headroom = has_headroom(s.heard.now);
  s.frames_left = static_cast<size_t>(kLongestSound_s * s.heard.now.config.rate);
  start_sound(&s);
  while (s.script.left > 0 && s.frames_left > 0) {
    kCalls[take(&s.script, 1) % std::size(kCalls)](&s);
  }
  finish(&s);
  assert(s.heard.events.size() == s.judge.events.size());
  for (size_t i = 0; i < s.heard.events.size(); ++i) {
    assert(std::memcmp(&s.heard.events[i], &s.judge.events[i], sizeof(se_bf_stream_event)) == 0);
  }
  se_bf_stream_close(s.heard.stream);
  se_bf_stream_close(s.judge.stream);
  return 0;
}
