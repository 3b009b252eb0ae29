// Where a path leads: through symbolic links to a name, or to a standard descriptor.
#ifndef SE_BF_LINK_PATH_H
#define SE_BF_LINK_PATH_H

#include <string>

// The directory of a path, with its slash; empty for the current one.
std::string link_folder(const std::string &path);

// Replaces `path` by the name at the end of its links; a file of that name need not exist. Links in
// its directories stay. Returns false with errno set, for example for a loop of links.
bool link_follow(std::string *path);

// The standard descriptor of this process, 0 to 2, that `path` leads to, as /dev/stdout does;
// -1: none.
int link_descriptor(std::string path);

#endif  // SE_BF_LINK_PATH_H
