// The subcommand `se_bf enhance` with --out-dir: worker processes, progress and table.
//
// The library runs one instance a process, so every file has a process of its own. Its figures lie
// in shared memory, its messages come through a pipe and are shown with the name of the file.
#include "batch.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <new>

#include "batch_plan.h"
#include "enhance.h"
#include "process.h"
#include "report.h"

static constexpr int POLL_MS = 100;  // between two looks at the progress
static constexpr size_t READ_BYTES = 4096;
static constexpr size_t NAME_WIDTH = 40;  // of the table; longer names push their row to the right
static constexpr size_t RESULT_WIDTH = 17;
static const char *const CUT_OFF = "enhanced, cut off";  // of an input that announces more
static constexpr char LINE_PREFIX[] = "se_bf: ";
static const char *const STATE_NAMES[] = {"not enhanced", "not enhanced", "enhanced", "skipped",
                                          "failed"};

struct batch {
  const enhance_options *scene;
  std::vector<batch_file> files;
  enhance_figures *figures;  // of each file, in memory shared with the workers
  size_t jobs;
  size_t running;
  size_t next;  // first file that has not been looked at
  double total_s;
};

// In the worker: messages go to the pipe, and nothing is drawn.
[[noreturn]] static void work(batch *b, size_t index, int text_fd) {
  enhance_options options = *b->scene;
  options.in = b->files[index].in;
  options.out = b->files[index].out;
  options.quiet = true;
  if (dup2(text_fd, STDERR_FILENO) == -1) {
    _exit(1);
  }
  close(text_fd);
  _exit(enhance_run(&options, &b->figures[index]));
}

static bool start(batch *b, size_t index) {
  batch_file *file = &b->files[index];
  int ends[2];
  file->state = BATCH_FAILED;
  if (pipe(ends) != 0) {
    report_line(std::string("cannot make a pipe: ") + strerror(errno));
    return false;
  }
  file->worker = fork();
  if (file->worker == 0) {
    close(ends[0]);
    work(b, index, ends[1]);
  }
  close(ends[1]);
  if (file->worker == -1) {
    report_line(std::string("cannot start a process: ") + strerror(errno));
    close(ends[0]);
    return false;
  }
  file->text_fd = ends[0];
  file->state = BATCH_RUNNING;
  ++b->running;
  return true;
}

static void show_lines(batch_file *file) {
  size_t end = file->text.find('\n');
  while (end != std::string::npos) {
    std::string line = file->text.substr(0, end);
    if (line.rfind(LINE_PREFIX, 0) == 0) {
      line.erase(0, strlen(LINE_PREFIX));
    }
    report_line(file->in + ": " + line);
    file->text.erase(0, end + 1);
    end = file->text.find('\n');
  }
}

static void finish(batch *b, batch_file *file) {
  int status = 0;
  while (waitpid(file->worker, &status, 0) == -1 && errno == EINTR) {
  }
  close(file->text_fd);
  file->text_fd = -1;
  file->state = WIFEXITED(status) && WEXITSTATUS(status) == 0 ? BATCH_DONE : BATCH_FAILED;
  if (WIFSIGNALED(status) && !process_stopped()) {
    report_line(file->in + ": the worker process was killed by signal " +
                std::to_string(WTERMSIG(status)));
  }
  --b->running;
}

// Takes what a worker has written; at the end of it the worker has ended.
static void listen(batch *b, batch_file *file) {
  char piece[READ_BYTES];
  const ssize_t count = read(file->text_fd, piece, sizeof piece);
  if (count > 0) {
    file->text.append(piece, static_cast<size_t>(count));
    show_lines(file);
  } else if (count == 0 || errno != EINTR) {
    finish(b, file);
  }
}

static void show_progress(const batch *b) {
  double done = 0.0;
  for (size_t i = 0; i < b->files.size(); ++i) {
    const batch_state state = b->files[i].state;
    const bool ended = state == BATCH_DONE || state == BATCH_FAILED;
    done += state == BATCH_RUNNING ? static_cast<double>(b->figures[i].progress_s.load())
            : ended                ? b->files[i].duration_s
                                   : 0.0;
  }
  report_progress(done, b->total_s);
}

// Waits until a worker says something or ends, for a moment at most.
static void attend(batch *b) {
  std::vector<pollfd> watched;
  std::vector<size_t> indices;
  for (size_t i = 0; i < b->files.size(); ++i) {
    if (b->files[i].state == BATCH_RUNNING) {
      watched.push_back({b->files[i].text_fd, POLLIN, 0});
      indices.push_back(i);
    }
  }
  if (poll(watched.data(), watched.size(), POLL_MS) > 0) {
    for (size_t i = 0; i < watched.size(); ++i) {
      if (watched[i].revents != 0) {
        listen(b, &b->files[indices[i]]);
      }
    }
  }
  show_progress(b);
}

static void stop_workers(const batch *b) {
  for (const batch_file &file : b->files) {
    if (file.state == BATCH_RUNNING) {
      kill(file.worker, SIGTERM);
    }
  }
}

static void run_all(batch *b) {
  bool told = false;
  for (;;) {
    while (!process_stopped() && b->running < b->jobs && b->next < b->files.size()) {
      if (b->files[b->next].state == BATCH_WAITING) {
        start(b, b->next);
      }
      ++b->next;
    }
    if (b->running == 0) {
      return;
    }
    if (process_stopped() && !told) {
      stop_workers(b);
      told = true;
    }
    attend(b);
  }
}

static std::string table_row(const batch *b, size_t index) {
  const batch_file *file = &b->files[index];
  const enhance_figures *figures = &b->figures[index];
  char row[READ_BYTES];
  if (file->state != BATCH_DONE) {
    snprintf(row, sizeof row, "%-*s  %s\n", static_cast<int>(NAME_WIDTH), file->in.c_str(),
             STATE_NAMES[file->state]);
    return row;
  }
  const double duration = figures->duration_s;
  snprintf(row, sizeof row, "%-*s  %-*s %9.2f  %-5s %9.4f %8lld %8lld\n",
           static_cast<int>(NAME_WIDTH), file->in.c_str(), static_cast<int>(RESULT_WIDTH),
           figures->cut_off ? CUT_OFF : STATE_NAMES[file->state], duration, figures->mode,
           duration > 0.0 ? figures->computing_s / duration : 0.0,
           static_cast<long long>(figures->clipped_in),
           static_cast<long long>(figures->clipped_out));
  return row;
}

static size_t count_of(const batch *b, batch_state state) {
  size_t count = 0;
  for (const batch_file &file : b->files) {
    count += file.state == state ? 1 : 0;
  }
  return count;
}

static bool print_table(const batch *b) {
  char heading[READ_BYTES];
  snprintf(heading, sizeof heading, "%-*s  %-*s %9s  %-5s %9s %8s %8s\n",
           static_cast<int>(NAME_WIDTH), "file", static_cast<int>(RESULT_WIDTH), "result",
           "seconds", "mode", "real-time", "clip in", "clip out");
  std::string table = heading;
  for (size_t i = 0; i < b->files.size(); ++i) {
    table += table_row(b, i);
  }
  table += std::to_string(count_of(b, BATCH_DONE)) + " enhanced, " +
           std::to_string(count_of(b, BATCH_SKIPPED)) + " skipped, " +
           std::to_string(count_of(b, BATCH_FAILED)) + " failed\n";
  if (!process_write(STDOUT_FILENO, table.data(), table.size())) {
    report_line(std::string("writing the table failed: ") + strerror(errno));
    return false;
  }
  return true;
}

static size_t default_jobs() {
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  return processors > 0 ? static_cast<size_t>(processors) : 1;
}

// Figures in memory that the workers share with this process; null without memory.
static enhance_figures *share_figures(size_t count) {
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

int batch_run(const enhance_options *scene, const batch_options *options) {
  batch b = {};
  b.scene = scene;
  b.jobs = options->jobs > 0 ? static_cast<size_t>(options->jobs) : default_jobs();
  if (!batch_list(options, &b.files)) {
    return 1;
  }
  b.figures = share_figures(b.files.size());
  if (b.figures == nullptr) {
    return 1;
  }
  for (const batch_file &file : b.files) {
    b.total_s += file.state == BATCH_WAITING ? file.duration_s : 0.0;
  }
  process_catch_signals();
  if (!scene->quiet) {
    report_progress_on();
  }
  run_all(&b);
  report_progress_off();
  const bool printed = scene->quiet || print_table(&b);
  if (process_stopped()) {
    process_die_of_signal();
  }
  const bool good = count_of(&b, BATCH_DONE) + count_of(&b, BATCH_SKIPPED) == b.files.size();
  return good && printed ? 0 : 1;
}
