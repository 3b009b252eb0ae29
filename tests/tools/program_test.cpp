// The program se_bf as users run it: pipes, files, rates, mistakes and microphone faults.
#include <gtest/gtest.h>
#include <signal.h>
#include <sndfile.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "test_audio.h"

namespace fs = std::filesystem;

// Every test works in an empty directory of its own.
class Program : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/se_bf_test_XXXXXX";
    dir = mkdtemp(name);
    fs::current_path(dir);
  }
  void TearDown() override {
    fs::current_path("/");
    fs::remove_all(dir);
  }

  // Runs a shell command in which se_bf stands for the program; its messages go to `err`.
  int run(const std::string &command) {
    const std::string shell = "se_bf() { '" SE_BF_PROGRAM "' \"$@\"; }; { " + command + "; } 2>err";
    // NOLINTNEXTLINE(cert-env33-c): the shell makes the pipes that are under test
    const int status = system(shell.c_str());
    std::ifstream file("err");
    std::stringstream text;
    text << file.rdbuf();
    err = text.str();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  size_t lines() const {
    return static_cast<size_t>(std::count(err.begin(), err.end(), '\n'));
  }

  fs::path dir;
  std::string err;
};

static void write_raw(const std::string &path, const pcm &x) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(x.data()), static_cast<long>(x.size() * 2));
}

static pcm read_raw(const std::string &path) {
  pcm x(fs::file_size(path) / 2);
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char *>(x.data()), static_cast<long>(x.size() * 2));
  return x;
}

static void write_wav(const std::string &path, const pcm &x, int channels, int rate) {
  SF_INFO info = {};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE *file = sf_open(path.c_str(), SFM_WRITE, &info);
  sf_write_short(file, x.data(), static_cast<sf_count_t>(x.size()));
  sf_close(file);
}

static pcm read_sound(const std::string &path, int *rate) {
  SF_INFO info = {};
  SNDFILE *file = sf_open(path.c_str(), SFM_READ, &info);
  pcm x(static_cast<size_t>(info.frames * info.channels));
  sf_read_short(file, x.data(), static_cast<sf_count_t>(x.size()));
  sf_close(file);
  *rate = info.samplerate;
  return x;
}

TEST_F(Program, PipesAndFilesGiveTheSamplesOfTheLibraryAndNothingElse) {
  int rate = 0;
  for (const int channels : {1, 2}) {
    const pcm in = make_noise(8000 + 123, static_cast<size_t>(channels), 11);
    const pcm expected = run_library(in, channels, SE_BF_MODE_MVDR, 320);
    write_raw("in.raw", in);
    write_wav("in.wav", in, channels, 16000);
    const std::string scene =
        " --mic-distance 0.05 --doa 90 --raw-channels " + std::to_string(channels) + " ";
    ASSERT_EQ(run("cat in.raw | se_bf enhance - -" + scene + "| cat >out.raw"), 0) << err;
    EXPECT_EQ(read_raw("out.raw"), expected);
    EXPECT_EQ(lines(), 1u) << err;
    ASSERT_EQ(run("se_bf enhance in.wav out.flac --quiet" + scene), 0) << err;
    EXPECT_EQ(read_sound("out.flac", &rate), expected);
    EXPECT_EQ(err, "");
    ASSERT_EQ(run("se_bf enhance in.wav - --quiet" + scene + ">out.raw"), 0) << err;
    EXPECT_EQ(read_raw("out.raw"), expected);
  }
  ASSERT_EQ(run("head -c 321 in.raw | se_bf enhance - x.wav"), 0) << err;
  EXPECT_EQ(read_sound("x.wav", &rate).size(), 160u) << "the odd byte is left out";
  EXPECT_EQ(lines(), 2u) << err;
}

TEST_F(Program, OtherRatesStayAlignedAndAsLong) {
  for (const int rate : {8000, 16000, 44100, 48000}) {
    const size_t frames = static_cast<size_t>(rate) + 77;
    const size_t at = static_cast<size_t>(rate) / 3;
    pcm in = make_noise(frames, 3, 12, 20);
    in[3 * at] = in[3 * at + 2] = 30000;
    write_wav("in.wav", in, 3, rate);
    ASSERT_EQ(run("se_bf enhance in.wav out.wav --channels 2,0 --mode mean --hop 160"), 0) << err;
    int stored = 0;
    const pcm out = read_sound("out.wav", &stored);
    EXPECT_EQ(stored, rate);
    ASSERT_EQ(out.size(), frames);
    EXPECT_EQ(std::max_element(out.begin(), out.end()) - out.begin(), static_cast<long>(at));
  }
  write_wav("none.wav", {}, 1, 44100);
  ASSERT_EQ(run("se_bf enhance none.wav empty.wav"), 0) << err;
  int rate = 0;
  EXPECT_EQ(read_sound("empty.wav", &rate).size(), 0u);
}

TEST_F(Program, MistakesGiveOneLineAndLeaveNothingBehind) {
  struct mistake {
    const char *command;
    int status;
    const char *says;
  };
  const mistake mistakes[] = {
      {"se_bf enhance missing.wav out.wav", 1, "missing.wav"},
      {"se_bf enhance . out.wav", 1, "directory"},
      {"se_bf enhance text.wav out.wav", 1, "text.wav"},
      {"se_bf enhance in.wav out.doc", 1, ".flac"},
      {"se_bf enhance in.wav in.wav", 1, "same file"},
      {"se_bf enhance in.wav no/out.wav", 1, "no/out.wav"},
      {"se_bf enhance three.wav out.wav", 1, "--channels"},
      {"se_bf enhance three.wav out.wav --channels 3", 1, "no channel 3"},
      {"se_bf enhance in.wav /dev/full", 1, "No space"},
      {"se_bf enhance in.wav full.wav", 1, "No space"},
      {"se_bf enhance in.wav full.flac", 1, "No space"},
      {"{ se_bf enhance in.wav - 3>&-; echo $? >&3; } 3>c | true; (exit $(cat c; rm c))", 1,
       "closed the pipe"},
      {"se_bf enhance - - <in.wav", 1, "header"},
      {"se_bf enhance in.wav", 2, "OUT"},
      {"se_bf enhance in.wav three.wav out.wav", 2, "--out-dir"},
      {"se_bf enhance in.wav out.wav --jobs 2", 2, "--out-dir"},
      {"se_bf enhance --out-dir . in.wav", 1, "would replace it"},
      {"se_bf enhance --out-dir text.wav in.wav", 1, "text.wav"},
      {"se_bf enhance --out-dir /tmp in.wav ./in.wav", 1, "would both become"},
      {"se_bf enhance --out-dir /tmp -", 1, "standard input"},
      {"se_bf enhance in.wav out.wav --hop 159", 2, "159"},
      {"se_bf enhance in.wav out.wav --gain nan", 2, "nan"},
      {"se_bf conform bf_other", 2, "bf_other"},
      {"se_bf", 2, "subcommand"},
  };
  write_wav("in.wav", make_noise(20 * SECOND, 1, 13), 1, 16000);
  write_wav("three.wav", make_noise(SECOND, 3, 13), 3, 16000);
  std::ofstream("text.wav") << "no sound at all\n";
  fs::create_symlink("/dev/full", "full.wav");
  fs::create_symlink("/dev/full", "full.flac");
  const auto files = std::distance(fs::directory_iterator("."), fs::directory_iterator()) + 1;
  for (const mistake &m : mistakes) {
    EXPECT_EQ(run(m.command), m.status) << m.command;
    EXPECT_EQ(lines(), 1u) << m.command << "\n" << err;
    EXPECT_EQ(err.rfind("se_bf: ", 0), 0u) << err;
    EXPECT_NE(err.find(m.says), std::string::npos) << err;
    EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), files)
        << m.command;
  }
}

TEST_F(Program, ManyFilesAreEnhancedOnceAndFailuresDoNotStopTheOthers) {
  fs::create_directory("rec");
  write_wav("rec/a.wav", make_noise(2 * SECOND, 2, 21), 2, 16000);
  write_wav("rec/b.wav", make_noise(SECOND, 1, 22), 1, 44100);
  std::ofstream("rec/bad.wav") << "no sound at all\n";
  std::ofstream("rec/notes.txt") << "no sound either\n";
  EXPECT_EQ(run("se_bf enhance --out-dir new/out rec --jobs 2 >table"), 1);
  EXPECT_EQ(lines(), 1u) << err;
  EXPECT_NE(err.find("rec/bad.wav"), std::string::npos) << err;
  EXPECT_EQ(run("grep -q '^2 enhanced, 0 skipped, 1 failed$' table"), 0);
  ASSERT_EQ(run("se_bf enhance rec/a.wav alone.wav --quiet && cmp alone.wav new/out/a.wav"), 0);
  EXPECT_EQ(std::distance(fs::directory_iterator("new/out"), fs::directory_iterator()), 2);

  fs::last_write_time("rec/b.wav", fs::last_write_time("new/out/b.wav") + std::chrono::seconds(1));
  EXPECT_EQ(run("se_bf enhance --out-dir new/out rec/b.wav rec/a.wav rec/a.flac >table"), 1);
  EXPECT_EQ(run("grep -q '^1 enhanced, 1 skipped, 1 failed$' table"), 0);
  EXPECT_EQ(run("se_bf enhance --out-dir new/out rec/a.wav --overwrite | grep -q '^1 enh'"), 0);

  // Interrupted, it leaves no worker and no piece of a file behind, and dies of the signal.
  const unsigned char header[] = {'.', 's', 'n', 'd', 0, 0, 0,    24,   255, 255, 255, 255,
                                  0,   0,   0,   3,   0, 0, 0x3e, 0x80, 0,   0,   0,   1};
  std::ofstream("rec/long.au", std::ios::binary)
      .write(reinterpret_cast<const char *>(header), sizeof header);
  fs::resize_file("rec/long.au", 60000 * SECOND);  // hours of digital silence
  const char *const interrupted =
      "{ '" SE_BF_PROGRAM
      "' enhance --out-dir cut rec/long.au & p=$!; "
      "while [ -z \"$(ls -A cut 2>/dev/null)\" ]; do sleep 0.01; done; kill -TERM $p; wait $p; } "
      ">table";
  EXPECT_EQ(run(interrupted), 128 + SIGTERM);
  EXPECT_TRUE(fs::is_empty("cut"));
}

TEST_F(Program, ThePictureIsDrawnOrTheMistakeIsNamed) {
  write_wav("in.wav", make_noise(SECOND, 3, 24), 3, 48000);
  ASSERT_EQ(run("SE_BF_PLOT_DIR='" PLOT_DIR "' '" SE_BF_PROGRAM "' plot in.wav --channels 0,2"), 0)
      << err;
  EXPECT_EQ(run("head -c 4 in.png | grep -q PNG"), 0);
  EXPECT_EQ(run("se_bf plot - x.png"), 1);
  EXPECT_NE(err.find("standard input"), std::string::npos);
  EXPECT_EQ(run("SE_BF_PLOT_DIR=nowhere '" SE_BF_PROGRAM "' plot in.wav"), 1);
  EXPECT_NE(err.find("nowhere"), std::string::npos);
}

TEST_F(Program, FaultsOfTheMicrophonesAreReported) {
  pcm in = make_noise(12 * SECOND, 2, 14);
  for (size_t t = 3 * SECOND; t < 6 * SECOND; ++t) {
    in[2 * t] = 0;
  }
  write_wav("dies.wav", in, 2, 16000);
  ASSERT_EQ(run("se_bf enhance dies.wav out.wav --quiet"), 0);
  EXPECT_NE(err.find("microphone 0 is silent or 40 dB weaker from 3.00 s on"), std::string::npos);
  EXPECT_NE(err.find("beamforming resumed at 7.98 s"), std::string::npos) << err;
  ASSERT_EQ(run("se_bf enhance dies.wav out.wav --quiet --plain"), 0);
  EXPECT_NE(err.find("no beamforming any more"), std::string::npos) << err;
  for (size_t t = 0; t < in.size(); t += 2) {
    in[t] = in[t + 1];
  }
  write_wav("equal.wav", in, 2, 16000);
  ASSERT_EQ(run("se_bf enhance equal.wav out.wav --quiet"), 0);
  EXPECT_NE(err.find("identical from 0.00 s on"), std::string::npos) << err;
}

TEST_F(Program, TheSelfTestIsJudged) {
  ASSERT_EQ(run("se_bf conform >report"), 0) << err;
  EXPECT_EQ(err, "");
  EXPECT_EQ(run("grep -c '^se_type= bf_m' report >count && test $(cat count) = 3"), 0);
  EXPECT_EQ(run("se_bf conform bf_omlsa >report"), 1);
  EXPECT_NE(err.find("no verdict"), std::string::npos);
}
