// Permissions of files: what a new file takes over from the file that it replaces.
#include "file_rights.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace {

constexpr mode_t kRights = 0777;
constexpr mode_t kRightsAndIdentity = 07777;  // and whose rights a program runs with
constexpr mode_t kGroupRights = S_IRWXG;
constexpr mode_t kOthersRights = S_IRWXO;
constexpr int kGroupShift = 3;             // from the rights of others to the group's
constexpr size_t kAttributeBytes = 65536;  // Linux allows no longer value or list
constexpr char kUserAttribute[] = "user.";
constexpr char kAccessList[] = "system.posix_acl_access";

// Returns false when the old file has such an attribute and the new one did not get it.
bool copy_attribute(int fd, const char *path, const char *name) {
  std::vector<char> value(kAttributeBytes);
  const ssize_t length = getxattr(path, name, value.data(), value.size());
  return length < 0 || fsetxattr(fd, name, value.data(), static_cast<size_t>(length), 0) == 0;
}

void copy_user_attributes(int fd, const char *path) {
  std::vector<char> names(kAttributeBytes);
  const ssize_t length = listxattr(path, names.data(), names.size());
  const char *const end = names.data() + (length > 0 ? length : 0);
  for (const char *name = names.data(); name < end; name += std::strlen(name) + 1) {
    if (std::strncmp(name, kUserAttribute, std::strlen(kUserAttribute)) == 0) {
      copy_attribute(fd, path, name);
    }
  }
}

}  // namespace

void file_rights_take_over(int fd, const std::string &path) {
  struct stat old = {};
  if (stat(path.c_str(), &old) != 0) {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, kNewFileMode & ~mask);
    return;
  }
  copy_user_attributes(fd, path.c_str());
  const bool owner = fchown(fd, old.st_uid, old.st_gid) == 0;
  const bool group = owner || fchown(fd, static_cast<uid_t>(-1), old.st_gid) == 0;
  // The directory may have given the new file a list that the old one does not have.
  fremovexattr(fd, kAccessList);
  const bool list = copy_attribute(fd, path.c_str(), kAccessList);
  mode_t mode = old.st_mode & (owner ? kRightsAndIdentity : kRights);
  if (!group || !list) {
    // Another group gets no more rights than everybody.
    mode = (mode & ~kGroupRights) | ((mode & kOthersRights) << kGroupShift);
  }
  fchmod(fd, mode);
}
