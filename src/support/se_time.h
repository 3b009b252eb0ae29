// Wall-clock time for the self-test's timing statistics.
#ifndef TM_SE_BF_SUPPORT_SE_TIME_H
#define TM_SE_BF_SUPPORT_SE_TIME_H

#include <cstdint>

// Microseconds since the epoch.
uint64_t get_cur_time();

#endif  // TM_SE_BF_SUPPORT_SE_TIME_H
