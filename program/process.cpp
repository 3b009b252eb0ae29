// Standard descriptors, signals, and raw input and output.
#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kReadBytes = 4096;

volatile sig_atomic_t g_signal = 0;

void note_signal(int number) {
  g_signal = number;
}

}  // namespace

void process_fill_descriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    const bool closed = fcntl(fd, F_GETFD) == -1 && errno == EBADF;
    if (closed && open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) == -1) {
      return;
    }
  }
}

int process_claim_stdout() {
  std::fflush(stdout);
  const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (own == -1) {
    return -1;
  }
  const int notes = open("/dev/null", O_WRONLY);
  const bool moved = notes != -1 && dup2(notes, STDOUT_FILENO) != -1;
  if (notes != -1) {
    close(notes);
  }
  if (!moved) {
    close(own);
    return -1;
  }
  return own;
}

void process_catch_signals() {
  struct sigaction action = {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);
  // No restart: a read that waits for an idle pipe must return. A second signal ends the process.
  action.sa_handler = note_signal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGHUP, &action, nullptr);
}

bool process_stopped() {
  return g_signal != 0;
}

bool process_wait(int fd) {
  sigset_t caught;
  sigset_t before;
  sigemptyset(&caught);
  sigaddset(&caught, SIGINT);
  sigaddset(&caught, SIGTERM);
  sigaddset(&caught, SIGHUP);
  // A signal that arrives between the check and the wait would be missed.
  sigprocmask(SIG_BLOCK, &caught, &before);
  pollfd watched = {fd, POLLIN, 0};
  while (g_signal == 0 && ppoll(&watched, 1, nullptr, &before) == -1 && errno == EINTR) {
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return g_signal == 0;
}

void process_die_of_signal() {
  signal(g_signal, SIG_DFL);
  raise(g_signal);
}

bool process_write(int fd, const void *data, size_t bytes) {
  const char *next = static_cast<const char *>(data);
  while (bytes > 0) {
    const ssize_t count = write(fd, next, bytes);
    if (count < 0 && (errno != EINTR || process_stopped())) {
      return false;
    }
    const size_t done = count > 0 ? static_cast<size_t>(count) : 0;
    next += done;
    bytes -= done;
  }
  return true;
}

bool process_read_all(int fd, std::string *text) {
  char piece[kReadBytes];
  for (;;) {
    const ssize_t count = read(fd, piece, sizeof piece);
    if (count > 0) {
      text->append(piece, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return count == 0;
    }
  }
}
