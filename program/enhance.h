// The subcommand `se_bf enhance`: enhances a recording or a stream.
#ifndef SE_BF_ENHANCE_H
#define SE_BF_ENHANCE_H

#include <atomic>
#include <cstdint>

#include "options.h"
#include "output_file.h"

// Figures of an enhancement. They may be in memory that another process reads.
struct enhance_figures {
  std::atomic<float> progress_s;  // seconds of audio read so far
  double duration_s;              // seconds of audio enhanced, once done
  double computing_s;             // processor time taken
  int64_t clipped_in;             // samples at full scale, after the gain
  int64_t clipped_out;
  int32_t mode;  // that ran, SE_BF_STREAM_REFINED or SE_BF_MODE_*
  bool cut_off;  // the input holds less than it announces
};

// Runs the subcommand on one file or stream and returns the exit status: 0, or 1 after one line on
// standard error. `naming` gives the output its name; null: it is renamed, and files that dead
// processes left in its directory are removed. When a signal ends the work, the process cleans up
// and ends by that signal.
int enhance_run(const enhance_options *options, enhance_figures *figures,
                const output_naming *naming = nullptr);

#endif  // SE_BF_ENHANCE_H
