// The subcommand `se_bf conform`: runs the library's self-test and judges its report.
#ifndef SE_BF_CONFORM_H
#define SE_BF_CONFORM_H

#include "options.h"

// Names of the self-test types, ended by a null pointer.
extern const char *const CONFORM_TYPES[];

// Runs one type or all of them, prints the library's report on standard output, and returns 0 when
// "bf_mvdr" at hop 192 agrees with the stored reference; otherwise 1, with one line on standard
// error.
int conform_run(const conform_options *options);

#endif  // SE_BF_CONFORM_H
