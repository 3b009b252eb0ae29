// A worker process, which enhances one file of many.
#include "batch_worker.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "process.h"
#include "report.h"

namespace {

constexpr size_t kReadBytes = 4096;
constexpr size_t kNeededDescriptors = 8;  // of a worker, beside the standard ones
constexpr char kLinePrefix[] = "se_bf: ";

// Whether one file can be enhanced within the limit of descriptors; false with errno set.
bool has_descriptors() {
  int held[kNeededDescriptors];
  size_t count = 0;
  while (count < kNeededDescriptors && (held[count] = dup(STDERR_FILENO)) != -1) {
    ++count;
  }
  const int error = errno;
  const bool enough = count == kNeededDescriptors;
  while (count > 0) {
    close(held[--count]);
  }
  errno = error;
  return enough;
}

// In the worker: messages go to the pipe, and nothing is drawn. It does not outlive the batch.
[[noreturn]] void work(const worker_task *task, int text_fd, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent || dup2(text_fd, STDERR_FILENO) == -1) {
    _exit(1);
  }
  close(text_fd);
  enhance_options options = *task->scene;
  options.in = task->place->in;
  options.out = task->place->out;
  options.quiet = true;
  result_claim claim = {task->place, task->record, &task->figures->cut_off, {}};
  result_expect(&claim.entry, task->place, options_of_sound(task->scene));
  const output_naming naming = {result_take_name, &claim};
  _exit(enhance_run(&options, task->figures, &naming));
}

void show_lines(batch_worker *worker) {
  size_t end = worker->text.find('\n');
  while (end != std::string::npos) {
    std::string line = worker->text.substr(0, end);
    if (line.rfind(kLinePrefix, 0) == 0) {
      line.erase(0, std::strlen(kLinePrefix));
    }
    report_line(worker->in + ": " + line);
    worker->text.erase(0, end + 1);
    end = worker->text.find('\n');
  }
}

}  // namespace

bool worker_start(std::vector<batch_worker> *workers, const worker_task *task) {
  int ends[2];
  if ((workers->empty() && !has_descriptors()) || pipe(ends) != 0) {
    return false;
  }
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process == 0) {
    // With many workers descriptors are scarce: the ends of the others' pipes are closed.
    for (const batch_worker &other : *workers) {
      close(other.text_fd);
    }
    close(ends[0]);
    work(task, ends[1], parent);
  }
  const int error = errno;
  close(ends[1]);
  if (process == -1) {
    close(ends[0]);
    errno = error;
    return false;
  }
  workers->push_back({task->index, task->place->in, process, ends[0], ""});
  return true;
}

bool worker_listen(batch_worker *worker) {
  char piece[kReadBytes];
  const ssize_t count = read(worker->text_fd, piece, sizeof piece);
  if (count > 0) {
    worker->text.append(piece, static_cast<size_t>(count));
    show_lines(worker);
  }
  return count > 0 || (count < 0 && errno == EINTR);
}

batch_state worker_end(const batch_worker *worker) {
  int status = 0;
  while (waitpid(worker->process, &status, 0) == -1 && errno == EINTR) {
  }
  close(worker->text_fd);
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status) == 0 ? BATCH_DONE : BATCH_FAILED;
  }
  const int number = WTERMSIG(status);
  if (process_stopped() && (number == SIGINT || number == SIGTERM || number == SIGHUP)) {
    return BATCH_INTERRUPTED;
  }
  report_line(worker->in + ": the worker process was killed by signal " + std::to_string(number));
  return BATCH_FAILED;
}
