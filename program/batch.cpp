// The subcommand `se_bf enhance` with --out-dir: worker processes and their progress.
//
// The library runs one instance per process, so every file has a process of its own.
#include "batch.h"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "batch_plan.h"
#include "batch_table.h"
#include "batch_worker.h"
#include "enhance.h"
#include "plain_text.h"
#include "process.h"
#include "report.h"

namespace {

constexpr int kPollMs = 100;     // between two looks at the progress
constexpr size_t kMaxNamed = 4;  // results in a line; of more there is a count

struct batch {
  const enhance_options *scene;
  const batch_options *options;
  batch_plan plan;
  enhance_figures *figures;  // of each file, in memory shared with the workers
  std::vector<batch_worker> workers;
  size_t jobs;
  size_t next;   // first file that has not been looked at
  int shortage;  // why no worker more could be started until one ends (errno), 0: nothing
  double ended_s;
  double total_s;
};

// There is an older result of this name.
bool is_older(const batch_file *file) {
  return file->verdict == RESULT_INPUT_CHANGED || file->verdict == RESULT_OPTIONS_CHANGED ||
         file->verdict == RESULT_VERSION_CHANGED;
}

bool start(batch *b, size_t index) {
  batch_file *file = &b->plan.files[index];
  const worker_task task = {index, b->scene, &file->place, &b->plan.record, &b->figures[index]};
  if (!worker_start(&b->workers, &task)) {
    b->shortage = errno;
    return false;
  }
  file->state = BATCH_RUNNING;
  return true;
}

// As many workers as allowed, or fewer if the system cannot run as many.
void start_some(batch *b) {
  const std::vector<batch_file> &files = b->plan.files;
  while (b->shortage == 0 && b->workers.size() < b->jobs && b->next < files.size()) {
    if (files[b->next].state == BATCH_WAITING && !start(b, b->next)) {
      return;
    }
    ++b->next;
  }
}

void show_progress(const batch *b) {
  double done = b->ended_s;
  for (const batch_worker &worker : b->workers) {
    done += static_cast<double>(b->figures[worker.index].progress_s.load());
  }
  report_progress(done, b->total_s);
}

// Waits a short time for a worker to write something or to end.
void attend(batch *b) {
  std::vector<pollfd> watched;
  std::vector<batch_worker> running;
  for (const batch_worker &worker : b->workers) {
    watched.push_back({worker.child.fd, POLLIN, 0});
  }
  const bool news = poll(watched.data(), watched.size(), kPollMs) > 0;
  for (size_t i = 0; i < watched.size(); ++i) {
    batch_worker *worker = &b->workers[i];
    if (news && watched[i].revents != 0 && !worker_listen(worker)) {
      batch_file *file = &b->plan.files[worker->index];
      file->state = worker_end(worker);
      file->state = file->state == BATCH_DONE && is_older(file) ? BATCH_ANEW : file->state;
      b->ended_s += file->duration_s;
      b->shortage = 0;
    } else {
      running.push_back(std::move(*worker));
    }
  }
  b->workers = std::move(running);
  show_progress(b);
}

// If no worker runs whose end could be waited for, none can be started at all.
void give_up(batch *b) {
  report_line("cannot start a process for " + b->plan.files[b->next].place.in + ": " +
              std::strerror(b->shortage) +
              "; raise the limits (ulimit -n, ulimit -u) or close other programs");
  b->plan.files[b->next].state = BATCH_FAILED;
  b->next = b->plan.files.size();
}

void run_all(batch *b) {
  bool told = false;
  for (;;) {
    if (!process_stopped()) {
      start_some(b);
    }
    if (b->workers.empty()) {
      if (b->shortage != 0) {
        give_up(b);
      }
      return;
    }
    if (process_stopped() && !told) {
      for (const batch_worker &worker : b->workers) {
        kill(worker.child.id, SIGTERM);
      }
      told = true;
    }
    attend(b);
  }
}

void warn_of_skipped(const batch *b) {
  for (const batch_file &file : b->plan.files) {
    if (file.state == BATCH_SKIPPED && file.cut_off) {
      report_line("warning: " + file.place.in + " is cut off or damaged; " + file.place.out +
                  ", made in an earlier run, holds what there is of it");
    }
  }
}

// A line says that an older result is replaced.
void tell_of_older(const batch *b, result_verdict verdict, const std::string &change) {
  std::vector<std::string> results;
  for (const batch_file &file : b->plan.files) {
    if (file.verdict == verdict) {
      results.push_back(file.place.out);
    }
  }
  if (!results.empty()) {
    report_line("making anew: " + text_list(results, kMaxNamed) + " (" + change + ")");
  }
}

size_t default_jobs() {
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  return processors > 0 ? static_cast<size_t>(processors) : 1;
}

// Figures in memory that the workers share with this process; null if memory is short.
enhance_figures *share_figures(size_t count) {
  void *memory = mmap(nullptr, count * sizeof(enhance_figures), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    report_line("out of memory; close other programs and try again");
    return nullptr;
  }
  enhance_figures *figures = static_cast<enhance_figures *>(memory);
  for (size_t i = 0; i < count; ++i) {
    new (&figures[i]) enhance_figures();
  }
  return figures;
}

bool all_good(const batch *b) {
  const std::vector<batch_file> &files = b->plan.files;
  const size_t good = table_count(files, BATCH_DONE) + table_count(files, BATCH_ANEW) +
                      table_count(files, BATCH_SKIPPED);
  return good == files.size() && b->plan.walk.complete;
}

}  // namespace

int batch_run(const enhance_options *scene, const batch_options *options) {
  batch b = {};
  b.scene = scene;
  b.options = options;
  b.jobs = options->jobs > 0 ? static_cast<size_t>(options->jobs) : default_jobs();
  if (!batch_list(&b.plan, scene, options)) {
    return 1;
  }
  b.figures = share_figures(b.plan.files.size());
  if (b.figures == nullptr) {
    return 1;
  }
  for (const batch_file &file : b.plan.files) {
    b.total_s += file.duration_s;
  }
  warn_of_skipped(&b);
  tell_of_older(&b, RESULT_INPUT_CHANGED, "the input has changed");
  tell_of_older(&b, RESULT_OPTIONS_CHANGED, "made with other options before");
  tell_of_older(&b, RESULT_VERSION_CHANGED, "made by another version before");
  process_catch_signals();
  if (!scene->quiet) {
    report_progress_on();
  }
  run_all(&b);
  report_progress_off();
  const bool printed = scene->quiet || table_print(b.plan.files, b.figures);
  walk_report(&b.plan.walk);
  if (process_stopped()) {
    process_die_of_signal();
  }
  return all_good(&b) && printed ? 0 : 1;
}
