// A copy of this process that does a part of the work, and a pipe from it to this process.
#ifndef SE_BF_CHILD_PROCESS_H
#define SE_BF_CHILD_PROCESS_H

#include <sys/types.h>

#include <string>

struct child_process {
  pid_t id = -1;  // 0: in the child itself
  int fd = -1;    // what the child writes to its descriptor is read from that of the parent
};

// Starts a child and returns in both. The child does not outlive its parent; it ends with _exit, or
// runs another program, which does not inherit the descriptor. Returns false in the parent alone,
// with errno set, when the system has too few descriptors or processes.
bool child_start(child_process *child);

// Reads what there is, up to a few kilobytes, and appends it to `text`. Returns false at the end;
// an interruption by a signal counts as nothing read.
bool child_listen(const child_process *child, std::string *text);

// Takes the first complete line out of `text`, without its end. Returns false when there is none.
bool child_take_line(std::string *text, std::string *line);

// Closes the pipe, waits for the end of the child and returns its status as waitpid does.
int child_end(const child_process *child);

#endif  // SE_BF_CHILD_PROCESS_H
