// A worker process, which enhances one file of many.
#include "batch_worker.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plain_text.h"
#include "process.h"
#include "report.h"

namespace {

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

// In the worker: messages go to the pipe, and nothing is drawn.
[[noreturn]] void work(const worker_task *task, int text_fd) {
  if (dup2(text_fd, STDERR_FILENO) == -1) {
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

// True when a line begins with the name of the file, or says at once what became of it.
bool tells_name(const std::string &line, const std::string &name) {
  constexpr const char *kBeginnings[] = {
      "", "warning: ", "cannot enhance ", "cannot open ", "cannot read ", "reading "};
  for (const char *beginning : kBeginnings) {
    const size_t end = std::strlen(beginning) + name.size();
    const std::string start = beginning + name;
    if (line.rfind(start, 0) == 0 && end < line.size() &&
        std::strchr(" :;", line[end]) != nullptr) {
      return true;
    }
  }
  return false;
}

void show_lines(batch_worker *worker) {
  const std::string name = text_harmless(worker->in);
  std::string line;
  while (child_take_line(&worker->text, &line)) {
    const bool named = line.rfind(kLinePrefix, 0) == 0;
    const std::string text = named ? line.substr(std::strlen(kLinePrefix)) : line;
    report_line(tells_name(text, name) ? text : worker->in + ": " + text);
  }
}

}  // namespace

bool worker_start(std::vector<batch_worker> *workers, const worker_task *task) {
  child_process child;
  if ((workers->empty() && !has_descriptors()) || !child_start(&child)) {
    return false;
  }
  if (child.id == 0) {
    // With many workers descriptors are scarce: the ends of the others' pipes are closed.
    for (const batch_worker &other : *workers) {
      close(other.child.fd);
    }
    work(task, child.fd);
  }
  workers->push_back({task->index, task->place->in, child, ""});
  return true;
}

bool worker_listen(batch_worker *worker) {
  const bool more = child_listen(&worker->child, &worker->text);
  show_lines(worker);
  return more;
}

batch_state worker_end(const batch_worker *worker) {
  const int status = child_end(&worker->child);
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
