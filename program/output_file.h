// A file that gets its name only when it is complete, or a device that is written directly.
//
// Until then it is called .se_bf-XXXXXX.EXTENSION in the same directory, and its process holds a
// lock (flock) on it. A file without a lock was left behind by a dead process.
#ifndef SE_BF_OUTPUT_FILE_H
#define SE_BF_OUTPUT_FILE_H

#include <string>

// How a whole file gets its name when renaming alone will not do. `rename` returns false with errno
// set, to 0 after a line of its own.
struct output_naming {
  bool (*rename)(void *user, const std::string &temp, const std::string &path);
  void *user;
};

struct output_file {
  std::string name;       // as the user gave it, for messages
  std::string path;       // what takes the place of the name, behind all links
  std::string temp;       // path written to until it is whole; empty: none
  bool in_place = false;  // a device or a pipe
  int fd = -1;            // -1: none
  int lock = -1;          // another descriptor of `temp`, which keeps its lock; -1: none
  const output_naming *naming = nullptr;  // null: it is renamed
};

// Finds out where `name` leads and whether it may be written. `in` is the path that is being read,
// or "-"; `name` must not lead to it. Links are followed: what the last one names is written, even
// where nothing is yet. On failure prints one line and returns false.
bool output_file_find(output_file *file, const std::string &name, const std::string &in);

// Takes `fd`, a descriptor of standard output, instead of a name. When it leads to the file `in`,
// prints one line and returns false.
bool output_file_adopt(output_file *file, int fd, const std::string &in);

// Opens what was found: a new file beside the final path whose name ends with `extension`, or a
// device. On failure prints one line and returns false.
bool output_file_open(output_file *file, const std::string &extension);

// Stores what was written safely, closes it and gives it its name. A file that had the name hands
// on its permissions; where it has other names (hard links) they keep the old file. On failure
// prints one line and returns false; output_file_abort must follow.
bool output_file_commit(output_file *file);

// Gives up: closes the file and removes what was written. Does nothing after a commit.
void output_file_abort(output_file *file);

// True when the open file `fd` has the name `path`, which is no link.
bool output_file_is_named(int fd, const std::string &path);

// Stores what was written to `fd` safely, where the file system can be told to. Returns false with
// errno set.
bool output_file_store(int fd);

// The same for the directory of `path`, without which a new name is not safe.
bool output_file_store_folder(const std::string &path);

// Removes what dead processes of this user left behind in a directory; an empty path is the current
// one. Files of running processes stay, and all of them where the file system knows no locks.
void output_file_remove_stale(const std::string &directory);

#endif  // SE_BF_OUTPUT_FILE_H
