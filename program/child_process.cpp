// A copy of this process that does a part of the work, and a pipe from it to this process.
#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr size_t kReadBytes = 4096;

}  // namespace

bool child_start(child_process *child) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  const pid_t parent = getpid();
  child->id = fork();
  if (child->id == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
      _exit(1);
    }
    close(ends[0]);
    child->fd = ends[1];
    return true;
  }
  const int error = errno;
  close(ends[1]);
  if (child->id == -1) {
    close(ends[0]);
    errno = error;
    return false;
  }
  child->fd = ends[0];
  return true;
}

bool child_listen(const child_process *child, std::string *text) {
  char piece[kReadBytes];
  const ssize_t count = read(child->fd, piece, sizeof piece);
  if (count > 0) {
    text->append(piece, static_cast<size_t>(count));
  }
  return count > 0 || (count < 0 && errno == EINTR);
}

bool child_take_line(std::string *text, std::string *line) {
  const size_t end = text->find('\n');
  if (end == std::string::npos) {
    return false;
  }
  *line = text->substr(0, end);
  text->erase(0, end + 1);
  return true;
}

int child_end(const child_process *child) {
  int status = 0;
  close(child->fd);
  while (waitpid(child->id, &status, 0) == -1 && errno == EINTR) {
  }
  return status;
}
