// The subcommand `se_bf plot`: spectrograms of a recording before and after enhancement.
#ifndef SE_BF_PLOT_H
#define SE_BF_PLOT_H

#include <string>

#include "options.h"

// Draws `options->in` and what enhancement makes of it into the PNG file `picture`, by default
// named after the input in the current directory, and prints its name. Memory does not grow with
// the length of the sound. Returns 0, or 1 after one line on standard error; when a signal ends the
// work, the process ends by it.
int plot_run(const enhance_options *options, const std::string &picture);

#endif  // SE_BF_PLOT_H
