// Who may use a file: what a file that is replaced hands on to the one that takes its name.
#ifndef SE_BF_FILE_RIGHTS_H
#define SE_BF_FILE_RIGHTS_H

#include <string>

// Gives the open file `fd` of this process the mode, the access control list and the attributes of
// the user that the file at `path` has, and its owner and group where the process may. Nobody gets
// more rights than before. Where there is no such file it gets the mode of a new one.
void file_rights_take_over(int fd, const std::string &path);

#endif  // SE_BF_FILE_RIGHTS_H
