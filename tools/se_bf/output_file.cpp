// A file that appears under its name only when whole, or a device that is written in place.
#include "output_file.h"

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "report.h"

static constexpr mode_t ALL_READ_WRITE = 0666;
static constexpr int MAX_TRIES = 100;  // at a name that no clean-up takes away
static constexpr char TEMP_START[] = ".se_bf-";
static constexpr char TEMP_RANDOM[] = "XXXXXX";  // as the C library replaces it

static bool fail(const std::string &text) {
  report_line(text);
  return false;
}

// The directory of a path, with its slash; empty for the current one.
static std::string folder_of(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
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

static bool is_named(int fd, int directory, const char *name) {
  struct stat held = {};
  struct stat named = {};
  return fstat(fd, &held) == 0 && fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

// Locks a new file. A clean-up may have got hold of it before; then it is as good as gone. Without
// locks in the file system there is no clean-up.
static bool lock_temp(const output_file *file) {
  const bool locked = flock(file->fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
  return locked && is_named(file->fd, AT_FDCWD, file->temp.c_str());
}

// Makes the file that is written until it is whole. Returns false with errno set.
static bool make_temp(output_file *file, const std::string &extension) {
  const std::string pattern = folder_of(file->path) + TEMP_START + TEMP_RANDOM + extension;
  for (int tries = 0; tries < MAX_TRIES; ++tries) {
    file->temp = pattern;
    file->fd = mkostemps(&file->temp[0], static_cast<int>(extension.size()), O_CLOEXEC);
    if (file->fd == -1) {
      file->temp.clear();
      return false;
    }
    if (lock_temp(file)) {
      file->lock = fcntl(file->fd, F_DUPFD_CLOEXEC, 0);
      return file->lock != -1;
    }
    close(file->fd);
  }
  file->fd = -1;
  file->temp.clear();
  errno = EAGAIN;
  return false;
}

static bool open_beside(output_file *file, const std::string &extension) {
  output_file_remove_stale(folder_of(file->path));
  if (!make_temp(file, extension)) {
    return false;
  }
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(file->fd, ALL_READ_WRITE & ~mask);
  return true;
}

bool output_file_open(output_file *file, const std::string &extension) {
  if (file->in_place) {
    file->fd = open(file->path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  }
  if (file->in_place ? file->fd != -1 : open_beside(file, extension)) {
    return true;
  }
  return fail("cannot write to " + file->name + ": " + strerror(errno));
}

static bool close_at(int *fd) {
  const bool closed = *fd == -1 || close(*fd) == 0;
  *fd = -1;
  return closed;
}

bool output_file_commit(output_file *file) {
  // A device cannot be synchronised; a regular file must be whole before it takes its name.
  const bool synced = file->temp.empty() || fsync(file->fd) == 0;
  const bool closed = close_at(&file->fd);
  if (!synced || !closed ||
      (!file->temp.empty() && rename(file->temp.c_str(), file->path.c_str()) != 0)) {
    return fail("writing " + file->name + " failed: " + strerror(errno));
  }
  file->temp.clear();
  close_at(&file->lock);
  return true;
}

void output_file_abort(output_file *file) {
  close_at(&file->fd);
  if (!file->temp.empty()) {
    unlink(file->temp.c_str());
    file->temp.clear();
  }
  close_at(&file->lock);
}

static bool is_temp_name(const char *name) {
  const size_t start = sizeof TEMP_START - 1;
  const size_t length = start + sizeof TEMP_RANDOM - 1;
  if (strncmp(name, TEMP_START, start) != 0 || strlen(name) < length) {
    return false;
  }
  for (size_t n = start; n < length; ++n) {
    if (isalnum(static_cast<unsigned char>(name[n])) == 0) {
      return false;
    }
  }
  return name[length] == '\0' || name[length] == '.';
}

// Removes one file if nobody holds its lock. The name may have gone on to another file meanwhile.
static void remove_if_stale(int directory, const char *name) {
  struct stat status = {};
  const bool ours = fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                    S_ISREG(status.st_mode) && status.st_uid == geteuid();
  // For writing, which locks across a network may require.
  int fd = ours ? openat(directory, name, O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK) : -1;
  if (fd != -1 && flock(fd, LOCK_EX | LOCK_NB) == 0 && is_named(fd, directory, name)) {
    unlinkat(directory, name, 0);
  }
  close_at(&fd);
}

void output_file_remove_stale(const std::string &directory) {
  DIR *listing = opendir(directory.empty() ? "." : directory.c_str());
  if (listing == nullptr) {
    return;
  }
  for (const dirent *entry = readdir(listing); entry != nullptr; entry = readdir(listing)) {
    if (is_temp_name(entry->d_name)) {
      remove_if_stale(dirfd(listing), entry->d_name);
    }
  }
  closedir(listing);
}
