// se_bf: speech enhancement on the command line. Runs the subcommand that was asked for.
#include <cstdio>

#include "arguments.h"
#include "batch.h"
#include "conform.h"
#include "enhance.h"
#include "plot.h"
#include "process.h"

namespace {

int run(int argc, char **argv) {
  process_fill_descriptors();
  arguments args = {};
  enhance_figures figures = {};
  const int status = arguments_read(argc, argv, &args);
  switch (args.command) {
    case COMMAND_ENHANCE:
      return args.batch.out_dir.empty() ? enhance_run(&args.enhance, &figures)
                                        : batch_run(&args.enhance, &args.batch);
    case COMMAND_PLOT:
      return plot_run(&args.enhance, args.picture);
    case COMMAND_CONFORM:
      return conform_run(&args.conform);
    default:
      return status;
  }
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return run(argc, argv);
  } catch (...) {
    std::fputs("se_bf: out of memory; close other programs and try again\n", stderr);
    return 1;
  }
}
