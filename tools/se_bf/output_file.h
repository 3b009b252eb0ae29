// A file that appears under its name only when whole, or a device that is written in place.
#ifndef SE_BF_OUTPUT_FILE_H
#define SE_BF_OUTPUT_FILE_H

#include <string>

struct output_file {
  std::string name;       // as the user gave it, for messages
  std::string path;       // what takes the place of the name, behind all links
  std::string temp;       // path written to until it is whole; empty: none
  bool in_place = false;  // a device or a pipe
  int fd = -1;            // -1: none
};

// Finds out where `name` leads and whether it may be written. `in` is the path that is being read,
// or "-"; `name` must not lead to it. On failure prints one line and returns false.
bool output_file_find(output_file *file, const std::string &name, const std::string &in);

// Opens what was found: a new file beside the final path whose name ends with `extension`, or a
// device. On failure prints one line and returns false.
bool output_file_open(output_file *file, const std::string &extension);

// Stores what was written safely, closes it and gives it its name. On failure prints one line and
// returns false; output_file_abort must follow.
bool output_file_commit(output_file *file);

// Gives up: closes the file and removes what was written. Does nothing after a commit.
void output_file_abort(output_file *file);

#endif  // SE_BF_OUTPUT_FILE_H
