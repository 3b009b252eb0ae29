// How sound is written at another rate, and where a format ends, and read where a header does:
// limits that no test can reach with whole files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>

#include "plain_header.h"
#include "promised_length.h"
#include "rate_change.h"
#include "sound_bytes.h"
#include "sound_writer.h"

namespace {

constexpr int kRateHz = 16000;

std::vector<int16_t> ramp(int64_t frames) {
  std::vector<int16_t> pcm(static_cast<size_t>(frames));
  for (size_t n = 0; n < pcm.size(); ++n) {
    pcm[n] = static_cast<int16_t>(n);
  }
  return pcm;
}

struct scratch_file {
  std::FILE *file = std::tmpfile();
  int fd = fileno(file);
  ~scratch_file() {
    std::fclose(file);
  }
};

sound_writer make_writer(const char *name, const sound_format *format, int fd) {
  sound_writer writer;
  writer.name = name;
  writer.format = format;
  writer.fd = fd;
  writer.seekable = true;
  writer.rate_hz = kRateHz;
  return writer;
}

// The samples of a file as libsndfile reads it.
std::vector<int16_t> read_back(int fd, int64_t *frames) {
  SF_INFO info = {};
  lseek(fd, 0, SEEK_SET);
  SNDFILE *file = sf_open_fd(fd, SFM_READ, &info, SF_FALSE);
  *frames = info.frames;
  std::vector<int16_t> pcm(static_cast<size_t>(std::min<int64_t>(info.frames, 5000)));
  sf_readf_short(file, pcm.data(), static_cast<sf_count_t>(pcm.size()));
  sf_close(file);
  return pcm;
}

}  // namespace

TEST(Sound, AFileThatIsFullHoldsWhatFits) {
  for (const char *name : {"aiff", "au", "flac"}) {
    const scratch_file file;
    sound_format format = *sound_format_named(name);
    format.most_frames = 1000;
    sound_writer writer = make_writer(name, &format, file.fd);
    const std::vector<int16_t> pcm = ramp(1500);
    ASSERT_TRUE(writer_open(&writer));
    EXPECT_TRUE(writer_write(&writer, pcm.data(), 700)) << name;
    EXPECT_FALSE(writer.full) << name;
    EXPECT_TRUE(writer_write(&writer, pcm.data() + 700, 800)) << name;
    EXPECT_TRUE(writer.full) << name;
    EXPECT_TRUE(writer_write(&writer, pcm.data(), 800)) << name << ", which is full";
    EXPECT_TRUE(writer_finish(&writer)) << name;
    int64_t frames = 0;
    EXPECT_EQ(read_back(file.fd, &frames), ramp(1000)) << name;
    writer_abort(&writer);
  }
}

TEST(Sound, WavHasSizesOf64BitsBeyondThoseOf32) {
  for (const int64_t frames : {INT64_C(1000), kMostFrames32, kMostFrames32 + 1000}) {
    const scratch_file file;
    const std::vector<uint8_t> header =
        plain_header(sound_format_named("wav"), kRateHz, frames, true);
    ASSERT_EQ(write(file.fd, header.data(), header.size()), static_cast<ssize_t>(header.size()));
    ASSERT_EQ(ftruncate(file.fd, static_cast<off_t>(header.size()) + 2 * frames), 0);
    int64_t found = 0;
    read_back(file.fd, &found);
    EXPECT_EQ(found, frames);
    EXPECT_EQ(header[1], frames > kMostFrames32 ? 'F' : 'I') << "RF64 or RIFF";
  }
}

TEST(Sound, GoesOnBehindWhatItsHeaderTells) {
  const scratch_file file;
  const std::vector<int16_t> pcm = ramp(2500);
  sound_format format = *sound_format_named("wav");
  sound_writer writer = make_writer("wav", &format, file.fd);
  writer.seekable = false;
  ASSERT_TRUE(writer_open(&writer) && writer_write(&writer, pcm.data(), pcm.size()));
  sound_bytes bytes;
  SF_INFO info = {};
  bytes.fd = file.fd;
  bytes.held = 44 + 2 * 2500;
  SNDFILE *sound = sound_bytes_open(&bytes, 44 + 2 * 1000, &info);
  ASSERT_EQ(info.frames, 1000);
  std::vector<int16_t> got(2500);
  ASSERT_EQ(sf_readf_short(sound, got.data(), 1000), 1000);
  for (const int64_t at : {1000, 2000}) {
    const int64_t count = std::min(INT64_C(1000), 2500 - at);
    ASSERT_TRUE(sound_bytes_go_on(&bytes, sound)) << at;
    ASSERT_EQ(sf_readf_short(sound, got.data() + at, count), count) << at;
  }
  EXPECT_FALSE(sound_bytes_go_on(&bytes, sound));
  EXPECT_EQ(got, pcm);
  sf_close(sound);
}

TEST(Sound, WhatFollowsASizeNear2GiBIsSoundUnlessChunksFillTheRest) {
  const scratch_file file;
  const std::string list("LIST\x08\0\0\0INFOISFT", 16);
  const std::string whole = list + list;
  sound_bytes bytes;
  bytes.fd = file.fd;
  bytes.sound_at = 44;
  bytes.unit = 2;
  SF_INFO info = {};
  info.frames = 0x7ffff000 / 2;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  const int64_t end = 44 + 0x7ffff000LL;
  struct {
    std::string rest;
    bool goes_on;
  } cases[] = {{list, false},
               {whole, false},
               {"\x7f" + list, true},
               {list + "end", true},
               {list.substr(0, 12), true},
               {"few", false},
               {std::string(16, '\0'), true}};
  for (const auto &one : cases) {
    const ssize_t size = static_cast<ssize_t>(one.rest.size());
    ASSERT_EQ(pwrite(file.fd, one.rest.data(), one.rest.size(), end), size);
    bytes.held = end + size;
    EXPECT_EQ(promised_goes_on(&bytes, &info), one.goes_on) << one.rest;
  }
}

TEST(Sound, ChangesItsRateButNotItsTime) {
  constexpr double kHz = 3000.0;
  constexpr size_t kBorder = 1000;  // samples at both ends that the filters spread
  constexpr int kRates[][2] = {{44100, 48000}, {11025, 12000}, {96000, 48000},
                               {48000, 16000}, {44101, 16000}, {8001, 48000}};
  for (const auto &[in_hz, out_hz] : kRates) {
    const double in_step = 2.0 * M_PI * kHz / in_hz;
    std::vector<float> in(static_cast<size_t>(in_hz));
    for (size_t n = 0; n < in.size(); ++n) {
      in[n] = static_cast<float>(std::sin(in_step * static_cast<double>(n)));
    }
    rate_change change;
    std::vector<float> out;
    rate_change_open(&change, in_hz, out_hz);
    for (size_t at = 0, count = 1; at < in.size(); at += count, count = 2 * count + 1) {
      count = std::min(count, in.size() - at);
      rate_change_push(&change, in.data() + at, count, &out);
    }
    rate_change_finish(&change, &out);
    ASSERT_EQ(out.size(), static_cast<size_t>(out_hz)) << in_hz;
    double worst = 0.0;
    for (size_t m = kBorder; m < out.size() - kBorder; ++m) {
      const double wanted = std::sin(2.0 * M_PI * kHz / out_hz * static_cast<double>(m));
      worst = std::max(worst, std::fabs(static_cast<double>(out[m]) - wanted));
    }
    EXPECT_LT(worst, 1e-5) << in_hz << " to " << out_hz << " Hz";
  }
}
