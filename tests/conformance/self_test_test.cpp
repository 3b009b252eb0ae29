// The self-test's report, and its reference made anew through the public header.
#include <gtest/gtest.h>
#include <regex.h>

#include <fstream>
#include <iterator>

#include "stream_run.h"

namespace {

// Samples of a raw 16-bit little-endian file of the stored recording.
pcm load(const char *name) {
  std::ifstream file(std::string(RECORDING_DIR) + name, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  pcm words(bytes.size() / 2);
  for (size_t i = 0; i < words.size(); ++i) {
    const int low = static_cast<uint8_t>(bytes[2 * i]);
    words[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[2 * i + 1]) << 8 | low);
  }
  return words;
}

TEST(SelfTest, StoredReferenceIsTheOutputOfTheBeamformer) {
  pcm recording = load("pcm_in_multi.s16");
  const pcm reference = load("pcm_bf_mvdr.s16");
  ASSERT_EQ(recording.size(), 64000u);
  ASSERT_EQ(reference.size(), 32000u);
  recording.resize(13 * 2560 * 2);
  const pcm out = run_stream({2, 2560, 192, SE_BF_MODE_MVDR}, recording);
  EXPECT_EQ(pcm(out.begin() + 256, out.begin() + 256 + 32000), reference);
}

TEST(SelfTest, PrintsItsReportLineForLine) {
  regex_t report;
  ASSERT_EQ(
      regcomp(&report,
              "^conformance test:-{46}\nusing static buffer for malloc\ncmsis fixpoint fft\n"
              "##-{53}##\ntime consume statistics:\n"
              "####\t\\[mean,max\\]=\\[[0-9]+\\.[0-9]{2},[0-9]+\\.[0-9]{2}\\]/160\\(ms\\)\t####\n"
              "####\trtf =[0-9]+\\.[0-9]{2}%  \tmax_rtf=[0-9]+\\.[0-9]{2}%\t####\n##-{53}##\n"
              "(se_type= (.*): similarity=(-?[01]\\.[0-9]{6}), pwr_sim=([0-9]\\.[0-9]{6})\n)$",
              REG_EXTENDED),
      0);
  struct type_case {
    const char *type;
    int32_t hop;
    bool in_step;  // with the reference, which only its own type and hop are
  };
  const type_case cases[] = {{"bf_mean", 192, false}, {"bf_omlsa", 192, false},
                             {"bf_mvdr", 192, true},  {"bf_mvdr", 0, true},
                             {"bf_mvdr", 160, false}, {"bf_mono", 192, false},
                             {"another", 192, false}};
  for (const type_case &c : cases) {
    testing::internal::CaptureStdout();
    const int32_t returned = se_bf_conformance_test(c.type, c.hop);
    const std::string text = testing::internal::GetCapturedStdout();
    regmatch_t found[5];
    ASSERT_EQ(regexec(&report, text.c_str(), 5, found, 0), 0) << text;
    const auto part = [&](size_t i) {
      return text.substr(static_cast<size_t>(found[i].rm_so),
                         static_cast<size_t>(found[i].rm_eo - found[i].rm_so));
    };
    std::printf("hop %d: %s", c.hop, part(1).c_str());
    EXPECT_EQ(returned, part(1).size());
    EXPECT_EQ(part(2), c.type);
    EXPECT_EQ(part(3) == "1.000000" && part(4) == "1.000000", c.in_step);
  }
  regfree(&report);
  testing::internal::CaptureStdout();
  se_bf_conformance_test(nullptr, 4096);  // a latency beyond the output
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_NE(text.find("se_type= (null): "), std::string::npos) << text;
}

}  // namespace
