// The command line: the options of the subcommands and their help.
#ifndef SE_BF_ARGUMENTS_H
#define SE_BF_ARGUMENTS_H

#include <string>

#include "options.h"

enum command_kind { COMMAND_NONE, COMMAND_ENHANCE, COMMAND_PLOT, COMMAND_CONFORM };

struct arguments {
  command_kind command;     // NONE: help or version was asked for and given
  enhance_options enhance;  // of enhance and plot
  batch_options batch;
  conform_options conform;
  std::string picture;  // of plot; empty: named after IN
};

// Reads the command line into `args`, which holds the defaults. Returns 0, or after one line on
// standard error 2 for a mistake and 1 when help or version could not be written.
int arguments_read(int argc, char **argv, arguments *args);

#endif  // SE_BF_ARGUMENTS_H
