// The subcommand `se_bf enhance` with --out-dir: many files, each in a process of its own.
#ifndef SE_BF_BATCH_H
#define SE_BF_BATCH_H

#include "options.h"

// Enhances every file with the scene of `scene`, shows one progress bar for all of them and a table
// on standard output. Returns 0, or 1 when a file failed. When a signal ends the work, the process
// ends by it after its workers have cleaned up.
int batch_run(const enhance_options *scene, const batch_options *options);

#endif  // SE_BF_BATCH_H
