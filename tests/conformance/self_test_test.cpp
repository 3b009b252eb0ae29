// The self-test's report, and its reference made anew through the public header.
#include <gtest/gtest.h>
#include <regex.h>

#include "stream_run.h"

namespace {

TEST(SelfTest, StoredReferenceIsTheOutputOfTheBeamformer) {
  pcm recording = read_words(RECORDING_DIR "pcm_in_multi.s16");
  const pcm reference = read_words(RECORDING_DIR "pcm_bf_mvdr.s16");
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
              "(se_type= (.*): similarity=(-?[01]\\.[0-9]{6}, pwr_sim=[0-9]\\.[0-9]{6})\n)$",
              REG_EXTENDED),
      0);
  // In step with the reference is only its own type and hop; the latency of 4096 lies beyond it.
  const std::pair<const char *, int32_t> cases[] = {
      {"bf_mean", 192}, {"bf_omlsa", 192}, {"bf_mvdr", 192}, {"bf_mvdr", 0},
      {"bf_mvdr", 160}, {"bf_mono", 192},  {"another", 192}, {nullptr, 4096}};
  for (const auto &[type, hop] : cases) {
    testing::internal::CaptureStdout();
    const int32_t returned = se_bf_conformance_test(type, hop);
    const std::string text = testing::internal::GetCapturedStdout();
    regmatch_t found[4] = {};
    EXPECT_EQ(regexec(&report, text.c_str(), 4, found, 0) == 0, type != nullptr) << text;
    const auto matched = [&](size_t i) {
      return std::string(text.c_str() + found[i].rm_so, text.c_str() + found[i].rm_eo);
    };
    std::printf("hop %d: %s", hop, matched(1).c_str());
    EXPECT_TRUE(type == nullptr ||
                (returned == found[1].rm_eo - found[1].rm_so && matched(2) == type));
    EXPECT_EQ(matched(3) == "1.000000, pwr_sim=1.000000",
              matched(2) == "bf_mvdr" && (hop == 192 || hop == 0));
  }
  regfree(&report);
}

}  // namespace
