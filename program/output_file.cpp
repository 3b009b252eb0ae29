// A file that gets its name only when it is complete, or a device that is written directly.
#include "output_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "file_rights.h"
#include "link_path.h"
#include "report.h"

namespace {

constexpr int kMaxTries = 100;  // at a name that no clean-up takes away
constexpr char kTempStart[] = ".se_bf-";
constexpr char kTempRandom[] = "XXXXXX";  // as the C library replaces it

// A rename cannot replace a file that is a mount point, nor another user's file in a directory such
// as /tmp.
bool is_replaceable(const output_file *file, const struct stat *status) {
  struct statx attributes = {};
  struct stat folder = {};
  const std::string where = link_folder(file->path);
  const bool mounted =
      statx(AT_FDCWD, file->path.c_str(), 0, STATX_BASIC_STATS, &attributes) == 0 &&
      (attributes.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  const uid_t user = geteuid();
  const bool kept = stat(where.empty() ? "." : where.c_str(), &folder) == 0 &&
                    (folder.st_mode & S_ISVTX) != 0 && user != 0 && user != status->st_uid &&
                    user != folder.st_uid;
  return !mounted && !kept;
}

bool is_source(const struct stat *status, const std::string &in) {
  struct stat source = {};
  const int found = in == "-" ? fstat(STDIN_FILENO, &source) : stat(in.c_str(), &source);
  return found == 0 && source.st_dev == status->st_dev && source.st_ino == status->st_ino;
}

bool check_target(const output_file *file, const struct stat *status, const std::string &in) {
  if (S_ISDIR(status->st_mode)) {
    return report_failure(file->name + " is a directory; name a file in it");
  }
  if (!S_ISCHR(status->st_mode) && is_source(status, in)) {
    return report_failure("IN and OUT are the same file, " + file->name +
                          "; give OUT another name");
  }
  if (access(file->path.c_str(), W_OK) != 0) {
    return report_failure("cannot write to " + file->name + ": " + std::strerror(errno));
  }
  return file->in_place || is_replaceable(file, status) ||
         report_failure(file->name + " is there and cannot be replaced; give OUT another name");
}

bool is_named(int fd, int directory, const char *name) {
  struct stat held = {};
  struct stat named = {};
  return fstat(fd, &held) == 0 && fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

// Locks a new file. If a clean-up has locked it before, that clean-up removes it. Without locks in
// the file system there is no clean-up.
bool lock_temp(const output_file *file) {
  const bool locked = flock(file->fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
  return locked && output_file_is_named(file->fd, file->temp);
}

// Makes the file that is written until it is complete. Returns false with errno set.
bool make_temp(output_file *file, const std::string &extension) {
  const std::string pattern = link_folder(file->path) + kTempStart + kTempRandom + extension;
  for (int tries = 0; tries < kMaxTries; ++tries) {
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

// Why no file can be made beside the final path, and what to do.
std::string advice(const output_file *file, int error) {
  const std::string folder = link_folder(file->path);
  std::string reason = std::strerror(error);
  switch (error) {
    case ENOENT:
      return folder.empty() ? reason : "there is no directory " + folder + "; make it first";
    case EACCES:
    case EPERM:
    case EROFS:
      return "its directory takes no new file (" + reason + "); name an OUT in another directory";
    default:
      return reason;
  }
}

bool close_at(int *fd) {
  const bool closed = *fd == -1 || close(*fd) == 0;
  *fd = -1;
  return closed;
}

// False with errno set; 0 when the reason has been printed.
bool give_name(const output_file *file) {
  return file->naming != nullptr ? file->naming->rename(file->naming->user, file->temp, file->path)
                                 : std::rename(file->temp.c_str(), file->path.c_str()) == 0;
}

// Gives the complete file its name; its lock lasts until then. Fails as give_name does.
bool take_name(output_file *file) {
  file_rights_take_over(file->fd, file->path);
  if (fsync(file->fd) != 0 || !close_at(&file->fd) || !give_name(file)) {
    return false;
  }
  file->temp.clear();
  close_at(&file->lock);
  return output_file_store_folder(file->path);
}

bool is_temp_name(const char *name) {
  const size_t start = sizeof kTempStart - 1;
  const size_t length = start + sizeof kTempRandom - 1;
  if (std::strncmp(name, kTempStart, start) != 0 || std::strlen(name) < length) {
    return false;
  }
  for (size_t n = start; n < length; ++n) {
    if (std::isalnum(static_cast<unsigned char>(name[n])) == 0) {
      return false;
    }
  }
  return name[length] == '\0' || name[length] == '.';
}

// Removes one file if nobody holds its lock. Another file may have got the name in the meantime.
void remove_if_stale(int directory, const char *name) {
  struct stat status = {};
  const bool ours = fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                    S_ISREG(status.st_mode) && status.st_uid == geteuid();
  // Opened for writing, which locks on network file systems may require.
  int fd = ours ? openat(directory, name, O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK) : -1;
  if (fd != -1 && flock(fd, LOCK_EX | LOCK_NB) == 0 && is_named(fd, directory, name)) {
    unlinkat(directory, name, 0);
  }
  close_at(&fd);
}

}  // namespace

bool output_file_find(output_file *file, const std::string &name, const std::string &in) {
  struct stat status = {};
  *file = {};
  file->name = name;
  file->path = name;
  if (link_descriptor(name) == STDERR_FILENO) {
    return report_failure(name +
                          " is standard error, which carries the messages; name a file, or - for "
                          "standard output");
  }
  const bool exists = stat(name.c_str(), &status) == 0;
  file->in_place = exists && !S_ISREG(status.st_mode);
  if (!file->in_place && !link_follow(&file->path)) {
    return report_failure("cannot write to " + name + ": " + std::strerror(errno));
  }
  return !exists || check_target(file, &status, in);
}

bool output_file_adopt(output_file *file, int fd, const std::string &in) {
  struct stat status = {};
  *file = {};
  file->name = "standard output";
  file->in_place = true;
  file->fd = fd;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && is_source(&status, in)) {
    return report_failure("IN and standard output are the same file; write to another one");
  }
  return true;
}

bool output_file_open(output_file *file, const std::string &extension) {
  if (file->in_place) {
    file->fd = open(file->path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    return file->fd != -1 ||
           report_failure("cannot write to " + file->name + ": " + std::strerror(errno));
  }
  return make_temp(file, extension) ||
         report_failure("cannot write to " + file->name + ": " + advice(file, errno));
}

bool output_file_is_named(int fd, const std::string &path) {
  return is_named(fd, AT_FDCWD, path.c_str());
}

// Not every file system can do this.
bool output_file_store(int fd) {
  return fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP;
}

bool output_file_store_folder(const std::string &path) {
  const std::string folder = link_folder(path);
  int fd = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool stored = fd == -1 || output_file_store(fd);
  const int error = errno;
  close_at(&fd);
  errno = error;
  return stored;
}

bool output_file_commit(output_file *file) {
  const bool good = file->temp.empty() ? close_at(&file->fd) : take_name(file);
  return good || (errno != 0 &&
                  report_failure("writing " + file->name + " failed: " + std::strerror(errno)));
}

void output_file_abort(output_file *file) {
  close_at(&file->fd);
  if (!file->temp.empty()) {
    unlink(file->temp.c_str());
    file->temp.clear();
  }
  close_at(&file->lock);
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
