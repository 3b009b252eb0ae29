// The subcommand `se_bf enhance`: enhances a recording or a stream.
#ifndef SE_BF_ENHANCE_H
#define SE_BF_ENHANCE_H

#include "options.h"

// Runs the subcommand and returns the exit status: 0, or 1 after one line on standard error. When a
// signal ends the work the process dies of it, after cleaning up.
int enhance_run(const enhance_options *options);

#endif  // SE_BF_ENHANCE_H
