// Many files: which files there are, where their results go, and which are done already.
#ifndef SE_BF_BATCH_PLAN_H
#define SE_BF_BATCH_PLAN_H

#include <string>
#include <vector>

#include "batch_result.h"
#include "batch_walk.h"
#include "options.h"

enum batch_state {
  BATCH_WAITING,
  BATCH_RUNNING,
  BATCH_DONE,
  BATCH_ANEW,  // done, in place of an older result
  BATCH_SKIPPED,
  BATCH_FAILED,
  BATCH_INTERRUPTED
};

struct batch_file {
  result_place place;
  double duration_s;  // as the file announces; 0 when it cannot be read, or need not be
  batch_state state;
  result_verdict verdict;  // before it is enhanced
  bool cut_off;            // skipped, and the result is of a file that was cut off
};

struct batch_plan {
  std::vector<batch_file> files;
  batch_walk walk;
  batch_record record;
};

// Lists the files in the order given, those of folders by name. Finds out which are done (SKIPPED)
// and which must not be enhanced (FAILED, after a line). Makes the folders that are needed, and
// removes files that dead processes left in folders of results. A file named twice counts once.
// Returns false after one line when nothing can be done.
bool batch_list(batch_plan *plan, const enhance_options *scene, const batch_options *options);

#endif  // SE_BF_BATCH_PLAN_H
