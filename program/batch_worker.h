// A worker process, which enhances one file of many. Its figures lie in shared memory, its messages
// come through a pipe.
#ifndef SE_BF_BATCH_WORKER_H
#define SE_BF_BATCH_WORKER_H

#include <string>
#include <vector>

#include "batch_plan.h"
#include "child_process.h"
#include "enhance.h"

struct worker_task {
  size_t index;  // of the file
  const enhance_options *scene;
  const result_place *place;
  const batch_record *record;
  enhance_figures *figures;  // in memory shared with the worker
};

struct batch_worker {
  size_t index;  // of the file
  std::string in;
  child_process child;
  std::string text;  // of its messages, what does not end a line yet
};

// Starts a process for a file and adds it to `workers`. Returns false with errno set when the
// system has too few descriptors or processes, also when one worker alone could not do its work.
bool worker_start(std::vector<batch_worker> *workers, const worker_task *task);

// Shows what the worker has written, with the name of its file. Returns false when it has ended.
bool worker_listen(batch_worker *worker);

// Waits for the end of a worker and returns what became of the file.
batch_state worker_end(const batch_worker *worker);

#endif  // SE_BF_BATCH_WORKER_H
