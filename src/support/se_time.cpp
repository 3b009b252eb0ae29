// Wall-clock time from gettimeofday.
#include "support/se_time.h"

#include <sys/time.h>

namespace {

constexpr double kMicrosecondsPerSecond = 1000000.0;

}  // namespace

uint64_t get_cur_time() {
  struct timeval now = {};
  gettimeofday(&now, nullptr);

  // Exact in double precision: the count stays far below 2^53.
  const double microseconds =
      static_cast<double>(now.tv_sec) * kMicrosecondsPerSecond + static_cast<double>(now.tv_usec);
  return static_cast<uint64_t>(microseconds);
}
