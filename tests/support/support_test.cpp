// Memory pool, exponential integral and complex arithmetic.
#include <gtest/gtest.h>

#include "support/se_maths.h"
#include "support/tamrin_memory.h"
#include "test_signals.h"

namespace {

uint8_t *take(int32_t size) {
  return static_cast<uint8_t *>(tamrin_malloc(size));
}

TEST(Pool, HandsOutGranulesUntilItIsFull) {
  const std::string note = "using static buffer for malloc\n";
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  uint8_t *start = take(5);
  EXPECT_EQ(kStaticMemoryPosition, 8);
  EXPECT_EQ(take(2), start + 8);
  EXPECT_EQ(take(102400 - 12), start + 12);
  EXPECT_EQ(kStaticMemoryPosition, 102400);
  std::fill(start, start + 102400, uint8_t{0xA5});
  EXPECT_EQ(take(4), nullptr);
  EXPECT_EQ(kStaticMemoryPosition, 102400);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), note);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[ ERROR! ]:Capacity: 102400, Added:102404 (102400 + 4).\n");

  const uint32_t generation = tamrin_generation();
  tamrin_free(nullptr);
  EXPECT_NE(tamrin_generation(), generation);
  testing::internal::CaptureStdout();
  for (const int32_t refused : {-4, INT32_MIN, 102401, INT32_MAX}) {
    EXPECT_EQ(take(refused), nullptr);
    EXPECT_EQ(kStaticMemoryPosition, 0);
  }
  EXPECT_EQ(take(102400), start);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), note + note + note + note + note);
  EXPECT_EQ(std::count(start, start + 102400, 0), 102400) << "recycled memory is cleared";

  tamrin_free(start);
  take(8)[0] = 7;
  EXPECT_EQ(tamrin_realloc(start, 16, 8), start);
  EXPECT_EQ(tamrin_realloc(start, 8, 16), start + 8);
  EXPECT_EQ(std::count(start + 8, start + 24, 0), 16) << "nothing is copied";
  EXPECT_EXIT(tamrin_fatal("stop"), testing::ExitedWithCode(1), "");
}

TEST(ExponentialIntegral, MatchesTheStandardLibrary) {
  constexpr double kSingle = 3e-6;
  constexpr double kDouble = 1e-13;
  constexpr double kShortEuler = 0.57721566490153286 - 0.5772;  // cut off on purpose
  double worst_single = 0.0;
  double worst_double = 0.0;
  for (int32_t step = 1; step <= 500; ++step) {
    const float x = 0.01f * static_cast<float>(step);
    const double exact = -std::expint(-wide(x));
    worst_single = std::max(worst_single, std::abs(wide(se_expint(x)) - exact - kShortEuler));
    worst_double = std::max(worst_double, std::abs(expint_d(wide(x)) - exact));
    EXPECT_EQ(expint_f(x), se_expint(x));
  }
  std::printf("largest deviation: single %.1e, double %.1e\n", worst_single, worst_double);
  EXPECT_LE(worst_single, kSingle);
  EXPECT_LE(worst_double, kDouble);
  EXPECT_EQ(se_expint(0.0f), HUGE_VALF);
  EXPECT_FLOAT_EQ(se_log10(1000.0f), 3.0f);
}

}  // namespace
