// A library without rates refuses them with a reason.
#include <gtest/gtest.h>
#include <string.h>

#include "rate_path.h"

TEST(Rates, AreRefusedWhereTheyWereLeftOut) {
  const rate_path_config config = {48000, 1, 0, 1, nullptr, nullptr};
  const char *error = nullptr;
  EXPECT_EQ(rate_path_open(&config, &error), nullptr);
  ASSERT_NE(error, nullptr);
  EXPECT_NE(strstr(error, "streams run at 16000 Hz only; convert the sound"), nullptr) << error;
  EXPECT_EQ(rate_path_open(&config, nullptr), nullptr);
  rate_path_close(nullptr);
}
