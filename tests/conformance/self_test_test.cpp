// The self-test's report.
#include <gtest/gtest.h>

#include <regex>

#include "stream_run.h"

namespace {

TEST(SelfTest, PrintsItsReportLineForLine) {
  const std::regex report(
      "conformance test:-{46}\nusing static buffer for malloc\ncmsis fixpoint fft\n"
      "##-{53}##\ntime consume statistics:\n"
      "####\t\\[mean,max\\]=\\[\\d+\\.\\d{2},\\d+\\.\\d{2}\\]/160\\(ms\\)\t####\n"
      "####\trtf =\\d+\\.\\d{2}%  \tmax_rtf=\\d+\\.\\d{2}%\t####\n##-{53}##\n"
      "(se_type= (.*): similarity=(-?[01]\\.\\d{6}, pwr_sim=\\d\\.\\d{6})\n)");
  // Only the type and hop of the reference agree with it; the latency of hop 4096 is beyond its
  // end.
  const struct {
    const char *type;
    int32_t hop;
    bool in_step;
  } cases[] = {{"bf_mean", 192, false}, {"bf_omlsa", 192, false}, {"bf_mvdr", 192, true},
               {"bf_mvdr", 0, true},    {"bf_mvdr", 160, false},  {"bf_mono", 192, false},
               {"another", 192, false}, {nullptr, 4096, false}};
  for (const auto &[type, hop, in_step] : cases) {
    testing::internal::CaptureStdout();
    const int32_t returned = se_bf_conformance_test(type, hop);
    const std::string text = testing::internal::GetCapturedStdout();
    std::smatch found;
    EXPECT_EQ(std::regex_match(text, found, report), type != nullptr) << text;
    std::printf("hop %d: %s", hop, found.str(1).c_str());
    if (type != nullptr) {
      EXPECT_EQ(returned, found.length(1)) << text;
      EXPECT_EQ(found.str(2), type);
    }
    EXPECT_EQ(found.str(3) == "1.000000, pwr_sim=1.000000", in_step) << text;
  }
  EXPECT_STREQ(se_bf_get_version(), "1.3.5");
}

TEST(SelfTest, StartsFromTheMicrophoneLevelsOfTheProcess) {
  const pcm loud = to_words({white_noise(7, 4 * kSecond, 20000.0), wave(4 * kSecond)});
  run_stream({2, 2560, 192, SE_BF_MODE_MVDR}, loud);
  testing::internal::CaptureStdout();
  se_bf_conformance_test("bf_mvdr", 192);
  const std::string text = testing::internal::GetCapturedStdout();
  const double similarity = std::stod(text.substr(text.rfind("similarity=") + 11));
  EXPECT_GT(similarity, 0.5);
  EXPECT_LT(similarity, 0.8);
}

}  // namespace
