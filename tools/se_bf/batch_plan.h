// Many files: which there are, where their results go, and which are done already.
#ifndef SE_BF_BATCH_PLAN_H
#define SE_BF_BATCH_PLAN_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "options.h"

enum batch_state { BATCH_WAITING, BATCH_RUNNING, BATCH_DONE, BATCH_SKIPPED, BATCH_FAILED };

struct batch_file {
  std::string in;
  std::string out;
  double duration_s;  // as the file announces; 0 when it cannot be read
  batch_state state;
  pid_t worker;      // process that enhances it, while it runs
  int text_fd;       // where the worker's messages come from, while it runs
  std::string text;  // of them, what does not end a line yet
};

// Lists the files in the order given, those of a directory by name, and makes the directory of the
// results. Returns false after one line on standard error.
bool batch_list(const batch_options *options, std::vector<batch_file> *files);

#endif  // SE_BF_BATCH_PLAN_H
