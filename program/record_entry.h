// One line of a record of results: what a result was made from.
#ifndef SE_BF_RECORD_ENTRY_H
#define SE_BF_RECORD_ENTRY_H

#include <sys/stat.h>

#include <string>

// Size and modification time of a file, to the nanosecond: different for different contents.
std::string record_stamp(const struct stat *status);

// The size of a file in its stamp, in bytes.
long long record_stamp_bytes(const std::string &stamp);

struct record_entry {
  std::string result;        // name below the folder
  std::string result_stamp;  // of the whole result
  std::string input;         // absolute path, behind all links
  std::string input_stamp;   // before it was read
  bool cut_off = false;      // the input held less than it announced
  std::string version;       // of the stream library
  std::string options;       // that the sound depends on
};

// The entry as a line, with its end.
std::string record_line(const record_entry *entry);

// Reads the line of `text` that starts at `start` and ends. Returns false when it is no entry.
bool record_read(record_entry *entry, const std::string &text, size_t start);

#endif  // SE_BF_RECORD_ENTRY_H
