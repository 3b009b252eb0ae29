// The subcommand `se_bf conform`: runs the library's self-test and judges the library.
#ifndef SE_BF_CONFORM_H
#define SE_BF_CONFORM_H

#include <string>
#include <vector>

#include "options.h"

// Names of the self-test types, one for each mode: "bf_mean" and so on.
std::vector<std::string> conform_types();

// Runs one type or all of them, prints the library's report on standard output, and returns 0 when
// "bf_mvdr" at hop 192 equals the stored reference in every sample; otherwise, with one line on
// standard error, 3 when it agrees closely (similarity at least 0.999, power within 1 %), else 1.
int conform_run(const conform_options *options);

#endif  // SE_BF_CONFORM_H
