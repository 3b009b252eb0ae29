// The file of a record of results: locked, and lines added to it.
#include "record_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "file_rights.h"
#include "output_file.h"
#include "process.h"
#include "report.h"

namespace {

// Waits for the lock; false with errno set.
bool wait_for_lock(int fd) {
  while (flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR || process_stopped()) {
      return false;
    }
  }
  return true;
}

// Whether the file system knows no locks.
bool is_lockless(int error) {
  return error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP || error == EINVAL;
}

// Finds the size of the record, and what must precede a new line: the heading of a new record, or
// the end of a line whose writer was killed. False with errno set.
bool find_end(int fd, off_t *size, std::string *start) {
  struct stat status = {};
  char last = '\n';
  if (fstat(fd, &status) != 0 ||
      (status.st_size > 0 && pread(fd, &last, 1, status.st_size - 1) < 0)) {
    return false;
  }
  *size = status.st_size;
  *start = status.st_size == 0 ? kRecordHeading : last == '\n' ? "" : "\n";
  return true;
}

}  // namespace

std::string record_advice(int error) {
  const bool denied = error == EACCES || error == EPERM || error == EROFS;
  return std::string(std::strerror(error)) +
         (denied ? "; the results here are recorded by another user: get the right to write the "
                   "record, or give another --out-dir"
                 : "");
}

int record_lock(const std::string &path, bool *locked) {
  for (;;) {
    const int fd =
        open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
             kNewFileMode);
    *locked = fd != -1 && wait_for_lock(fd);
    if (fd == -1 || (!*locked && !is_lockless(errno))) {
      if (!process_stopped()) {
        report_line("cannot lock " + path + ": " + record_advice(errno));
      }
      if (fd != -1) {
        close(fd);
      }
      return -1;
    }
    // A record is shortened by replacing it with a new file, which makes a lock on the old one
    // void.
    if (output_file_is_named(fd, path)) {
      return fd;
    }
    close(fd);
  }
}

bool record_add(int fd, bool locked, const std::string &path, const record_entry *entry) {
  off_t size = -1;
  std::string lines;
  if (find_end(fd, &size, &lines)) {
    lines += record_line(entry);
    if (process_write(fd, lines.data(), lines.size()) && output_file_store(fd) &&
        (size > 0 || output_file_store_folder(path))) {
      return true;
    }
  }
  const int error = errno;
  const bool restored = !locked || size < 0 || ftruncate(fd, size) == 0;
  return report_failure("writing " + path + " failed: " + std::strerror(error) +
                        (restored ? "" : "; its last line is incomplete"));
}
