// What a stream refuses, and nothing at all as an argument.
#include <cmath>
#include <cstddef>
#include <string>

#include "stream_use.h"

namespace {

// Text of the refusal; empty when the stream opens.
std::string refusal(const se_bf_stream_config &config) {
  const char *error = "untouched";
  se_bf_stream *stream = se_bf_stream_open(&config, &error);
  EXPECT_EQ(stream == nullptr, error != nullptr);
  se_bf_stream_close(stream);
  return error == nullptr ? "" : error;
}

struct field_case {
  const char *field;
  std::function<void(se_bf_stream_config *)> set;
  bool taken = false;
};

TEST(StreamConfig, FieldsOutOfRangeAreNamedWithTheirRange) {
  const float nan = std::nanf("");
  const field_case cases[] = {
      {"config.rate must be 8000 to 192000 Hz", [](auto *c) { c->rate = 7999; }},
      {"config.rate must be 8000 to 192000 Hz", [](auto *c) { c->rate = 192001; }},
      {"config.channels must be 1 or 2", [](auto *c) { c->channels = 0; }},
      {"config.channels must be 1 or 2", [](auto *c) { c->channels = 3; }},
      {"config.mode must be", [](auto *c) { c->mode = 2; }},
      {"config.mode must be", [](auto *c) { c->mode = -1; }},
      {"config.mode must be", [](auto *c) { c->mode = SE_BF_MODE_MONO + 1; }},
      {"config.mode must be", [](auto *c) { c->mode = SE_BF_MODE_MEAN + 65536; }},
      {"config.hop must be 0, 160, 192 or 320", [](auto *c) { c->hop = 159; }},
      {"config.hop must be", [](auto *c) { c->hop = 65536 + 160; }},
      {"config.mic_distance must be 0 to 10 m", [](auto *c) { c->mic_distance = -0.01f; }},
      {"config.mic_distance must be", [](auto *c) { c->mic_distance = 10.01f; }},
      {"config.mic_distance must be", [nan](auto *c) { c->mic_distance = nan; }},
      {"config.doa must be a finite", [](auto *c) { c->mic_distance = 1, c->doa = HUGE_VALF; }},
      {"", [nan](auto *c) { c->mic_distance = 0, c->doa = nan; }},
      {"", [](auto *c) { c->mic_distance = 10, c->doa = -720; }},
      {"config.plain must be 0 or 1", [](auto *c) { c->plain = 2; }},
      {"config.full_band must be 0 or 1", [](auto *c) { c->full_band = -1; }},
      {"config.doa must be a finite",
       [nan](auto *c) { c->mode = SE_BF_MODE_MVDR, c->mic_distance = 1, c->doa = nan; }},
      {"", [nan](auto *c) { c->mode = SE_BF_STREAM_REFINED, c->mic_distance = 1, c->doa = nan; }},
      {"config.hop must be 0 or 320",
       [](auto *c) { c->mode = SE_BF_STREAM_REFINED, c->hop = 160; }},
      {"", [](auto *c) { c->mode = SE_BF_STREAM_AUTO, c->hop = 160; }},
      {"", [nan](auto *c) { c->mode = SE_BF_STREAM_AUTO, c->mic_distance = 1, c->doa = nan; }},
      {"config.doa must be a finite",
       [nan](auto *c) {
         c->mode = SE_BF_STREAM_AUTO, c->hop = 160, c->mic_distance = 1, c->doa = nan;
       }},
      {"config.max_attenuation_db must be 0 to 60",
       [nan](auto *c) { c->max_attenuation_db = nan; }},
      {"config.max_attenuation_db must be", [](auto *c) { c->max_attenuation_db = 60.1f; }},
      {"config.reserved must be 0", [](auto *c) { c->reserved = 1; }},
      // The first version ended behind `user`: what follows is not read.
      {"",
       [](auto *c) {
         c->size = offsetof(se_bf_stream_config, max_attenuation_db), c->reserved = 1;
       }},
      {"config.size must be sizeof",
       [](auto *c) { c->size = offsetof(se_bf_stream_config, max_attenuation_db) - 1; }},
      {"config.size must be sizeof", [](auto *c) { c->size = 0; }},
      {"config.size must be sizeof", [](auto *c) { c->size = UINT32_MAX; }},
  };
  se_bf_stream_config untouched;
  se_bf_stream_config_init(&untouched);
  EXPECT_EQ(refusal(untouched), "");
  for (const field_case &c : cases) {
    se_bf_stream_config config = untouched;
    c.set(&config);
    const std::string text = refusal(config);
    const std::string expected = c.field;
    EXPECT_EQ(text.substr(0, expected.empty() ? std::string::npos : expected.size()), expected)
        << "of " << text;
    se_bf_stream *untold = se_bf_stream_open(&config, nullptr);
    EXPECT_EQ(untold == nullptr, !expected.empty());
    se_bf_stream_close(untold);
  }
}

// Also with what only that mode reads.
TEST(StreamConfig, AutoIsTheBestThatTheHopAllows) {
  const pcm in = make_sound(kSecond, 2);
  for (const int32_t channels : {1, 2}) {
    for (const int32_t hop : {0, 160, 192, 320}) {
      const bool refined = hop == 0 || hop == 320;
      se_bf_stream_config chosen = make_config(channels, SE_BF_STREAM_AUTO, hop);
      chosen.max_attenuation_db = 3;
      se_bf_stream_config expected = chosen;
      expected.mode = refined ? static_cast<int32_t>(SE_BF_STREAM_REFINED)
                              : static_cast<int32_t>(SE_BF_MODE_OMLSA);
      EXPECT_TRUE(run_process(chosen, in) == run_process(expected, in))
          << channels << " channels, hop " << hop << (refined ? ", refined" : ", omlsa");
    }
  }
}

TEST(StreamConfig, ALaterConfigIsTakenWhileItAsksForNothingNew) {
  struct {
    se_bf_stream_config now;
    int32_t later[4];
  } config = {};
  se_bf_stream_config_init(&config.now);
  config.now.size = sizeof config;
  EXPECT_EQ(refusal(config.now), "");
  config.later[3] = 1;
  EXPECT_NE(refusal(config.now).find("config.size"), std::string::npos);
}

TEST(StreamConfig, EveryFunctionTakesNull) {
  const char *error = nullptr;
  EXPECT_EQ(se_bf_stream_open(nullptr, &error), nullptr);
  EXPECT_STREQ(error, "config must not be null");
  EXPECT_EQ(se_bf_stream_open(nullptr, nullptr), nullptr);
  EXPECT_EQ(se_bf_stream_latency(nullptr), 0);
  EXPECT_STREQ(se_bf_stream_version(), "2.0.0");
  se_bf_stream_config_init(nullptr);
  se_bf_stream_reset(nullptr);
  se_bf_stream_close(nullptr);
  se_bf_stream *stream = open_stream(make_config(1, SE_BF_STREAM_AUTO, 0));
  int16_t words[8] = {};
  float floats[8] = {};
  for (se_bf_stream *s : {stream, static_cast<se_bf_stream *>(nullptr)}) {
    se_bf_stream_process_s16(s, nullptr, 8, words);
    se_bf_stream_process_f32(s, nullptr, 8, floats);
    se_bf_stream_process_s16(s, words, 8, nullptr);
    se_bf_stream_process_f32(s, floats, 8, nullptr);
    EXPECT_EQ(se_bf_stream_push_s16(s, nullptr, 8, words), 0u);
    EXPECT_EQ(se_bf_stream_push_f32(s, floats, 8, nullptr), 0u);
    EXPECT_EQ(se_bf_stream_finish_s16(s, nullptr), 0u);
    EXPECT_EQ(se_bf_stream_finish_f32(s, nullptr), 0u);
  }
  se_bf_stream_process_s16(nullptr, words, 8, words);
  EXPECT_EQ(se_bf_stream_push_s16(nullptr, words, 8, words), 0u);
  EXPECT_EQ(se_bf_stream_finish_s16(nullptr, words), 0u);
  EXPECT_EQ(se_bf_stream_finish_s16(stream, words), 0u) << "nothing was taken";
  se_bf_stream_close(stream);
}

}  // namespace
