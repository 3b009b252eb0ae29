// Permissions of files: what a new file takes over from the file that it replaces.
#include "file_rights.h"

#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <vector>

static constexpr mode_t ALL_READ_WRITE = 0666;
static constexpr mode_t RIGHTS = 0777;
static constexpr mode_t RIGHTS_AND_IDENTITY = 07777;  // and whose rights a program runs with
static constexpr mode_t GROUP_RIGHTS = S_IRWXG;
static constexpr mode_t OTHERS_RIGHTS = S_IRWXO;
static constexpr int GROUP_SHIFT = 3;             // from the rights of others to the group's
static constexpr size_t ATTRIBUTE_BYTES = 65536;  // Linux allows no longer value or list
static constexpr char USER_ATTRIBUTE[] = "user.";
static constexpr char ACCESS_LIST[] = "system.posix_acl_access";

// Returns false when the old file has such an attribute and the new one did not get it.
static bool copy_attribute(int fd, const char *path, const char *name) {
  std::vector<char> value(ATTRIBUTE_BYTES);
  const ssize_t length = getxattr(path, name, value.data(), value.size());
  return length < 0 || fsetxattr(fd, name, value.data(), static_cast<size_t>(length), 0) == 0;
}

static void copy_user_attributes(int fd, const char *path) {
  std::vector<char> names(ATTRIBUTE_BYTES);
  const ssize_t length = listxattr(path, names.data(), names.size());
  const char *const end = names.data() + (length > 0 ? length : 0);
  for (const char *name = names.data(); name < end; name += strlen(name) + 1) {
    if (strncmp(name, USER_ATTRIBUTE, strlen(USER_ATTRIBUTE)) == 0) {
      copy_attribute(fd, path, name);
    }
  }
}

void file_rights_take_over(int fd, const std::string &path) {
  struct stat old = {};
  if (stat(path.c_str(), &old) != 0) {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, ALL_READ_WRITE & ~mask);
    return;
  }
  copy_user_attributes(fd, path.c_str());
  const bool owner = fchown(fd, old.st_uid, old.st_gid) == 0;
  const bool group = owner || fchown(fd, static_cast<uid_t>(-1), old.st_gid) == 0;
  // The directory may have given the new file a list that the old one does not have.
  fremovexattr(fd, ACCESS_LIST);
  const bool list = copy_attribute(fd, path.c_str(), ACCESS_LIST);
  mode_t mode = old.st_mode & (owner ? RIGHTS_AND_IDENTITY : RIGHTS);
  if (!group || !list) {
    // Another group gets no more rights than everybody.
    mode = (mode & ~GROUP_RIGHTS) | ((mode & OTHERS_RIGHTS) << GROUP_SHIFT);
  }
  fchmod(fd, mode);
}
