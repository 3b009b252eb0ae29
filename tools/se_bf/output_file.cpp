// A file that appears under its name only when whole, or a device that is written in place.
#include "output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "report.h"

static constexpr mode_t ALL_READ_WRITE = 0666;

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

static bool check_target(const output_file *file, const struct stat *status,
                         const std::string &in) {
  struct stat source = {};
  if (S_ISDIR(status->st_mode)) {
    return fail(file->name + " is a directory; name a file in it");
  }
  const bool known = in != "-" && stat(in.c_str(), &source) == 0;
  if (known && source.st_dev == status->st_dev && source.st_ino == status->st_ino) {
    return fail("IN and OUT are the same file, " + file->name + "; give OUT another name");
  }
  if (access(file->path.c_str(), W_OK) != 0) {
    return fail("cannot write to " + file->name + ": " + strerror(errno));
  }
  return true;
}

// Follows links, so that the file behind a link is replaced and not the link.
static std::string resolve(const std::string &path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) == nullptr ? path : std::string(resolved);
}

bool output_file_find(output_file *file, const std::string &name, const std::string &in) {
  struct stat status = {};
  const bool exists = stat(name.c_str(), &status) == 0;
  *file = {};
  file->name = name;
  file->path = exists ? resolve(name) : name;
  file->in_place = exists && !S_ISREG(status.st_mode);
  return !exists || check_target(file, &status, in);
}

bool output_file_open(output_file *file, const std::string &extension) {
  if (file->in_place) {
    file->fd = open(file->path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  } else {
    const size_t slash = file->path.rfind('/');
    const size_t name = slash == std::string::npos ? 0 : slash + 1;
    file->temp = file->path.substr(0, name) + ".se_bf-XXXXXX" + extension;
    file->fd = mkostemps(&file->temp[0], static_cast<int>(extension.size()), O_CLOEXEC);
  }
  if (file->fd == -1) {
    const int error = errno;
    file->temp.clear();
    return fail("cannot write to " + file->name + ": " + strerror(error));
  }
  if (!file->in_place) {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(file->fd, ALL_READ_WRITE & ~mask);
  }
  return true;
}

bool output_file_commit(output_file *file) {
  // A device cannot be synchronised; a regular file must be whole before it takes its name.
  const bool synced = file->temp.empty() || fsync(file->fd) == 0;
  const bool closed = close(file->fd) == 0;
  file->fd = -1;
  if (!synced || !closed ||
      (!file->temp.empty() && rename(file->temp.c_str(), file->path.c_str()) != 0)) {
    return fail("writing " + file->name + " failed: " + strerror(errno));
  }
  file->temp.clear();
  return true;
}

void output_file_abort(output_file *file) {
  if (file->fd != -1) {
    close(file->fd);
    file->fd = -1;
  }
  if (!file->temp.empty()) {
    unlink(file->temp.c_str());
    file->temp.clear();
  }
}
