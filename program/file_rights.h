// Permissions of files: what a new file takes over from the file that it replaces.
#ifndef SE_BF_FILE_RIGHTS_H
#define SE_BF_FILE_RIGHTS_H

#include <sys/types.h>

#include <string>

constexpr mode_t kNewFileMode = 0666;  // before the mask of the user

// Gives the open file `fd` of this process the mode, the access control list and the attributes of
// the user that the file at `path` has, and its owner and group where the process may. Nobody gets
// more rights than before. Without such a file it gets the mode of a new one.
void file_rights_take_over(int fd, const std::string &path);

#endif  // SE_BF_FILE_RIGHTS_H
