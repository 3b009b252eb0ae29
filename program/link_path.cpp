// Where a path leads: through symbolic links to a name, or to a standard descriptor.
#include "link_path.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

constexpr int kMaxLinks = 40;  // as many as Linux follows
constexpr const char *kDescriptorFolders[] = {"/proc/self/fd", "/proc/thread-self/fd"};

// Two paths to one directory.
bool is_same_folder(const std::string &a, const char *b) {
  char real_a[PATH_MAX];
  char real_b[PATH_MAX];
  return realpath(a.empty() ? "." : a.c_str(), real_a) != nullptr &&
         realpath(b, real_b) != nullptr && std::string(real_a) == real_b;
}

// The standard descriptor that a path names itself, or -1.
int named_descriptor(const std::string &path) {
  const std::string folder = link_folder(path);
  const char digit = path.size() == folder.size() + 1 ? path.back() : '\0';
  if (digit < '0' || digit > '0' + STDERR_FILENO) {
    return -1;
  }
  for (const char *descriptors : kDescriptorFolders) {
    if (is_same_folder(folder, descriptors)) {
      return digit - '0';
    }
  }
  return -1;
}

// Follows one link. Returns false if there is none (errno is 0) or it cannot be followed (errno is
// set).
bool step(std::string *path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(path->c_str(), target, sizeof target);
  if (length == -1) {
    // No link, or nothing there.
    errno = errno == EINVAL || errno == ENOENT ? 0 : errno;
    return false;
  }
  const std::string text(target, static_cast<size_t>(length));
  *path = text[0] == '/' ? text : link_folder(*path) + text;
  return true;
}

}  // namespace

std::string link_folder(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

bool link_follow(std::string *path) {
  for (int links = 0; links <= kMaxLinks; ++links) {
    if (!step(path)) {
      return errno == 0;
    }
  }
  errno = ELOOP;
  return false;
}

int link_descriptor(std::string path) {
  for (int links = 0; links <= kMaxLinks; ++links) {
    const int descriptor = named_descriptor(path);
    if (descriptor != -1 || !step(&path)) {
      return descriptor;
    }
  }
  return -1;
}
