// The record of a folder of results: a text file that says what each of them was made from.
//
// A line for each result; a later line on the same result counts. Lines are added only while the
// file is locked, if it can be. What does not look like a line, as the end of one whose writer was
// killed, does not count.
#ifndef SE_BF_BATCH_RECORD_H
#define SE_BF_BATCH_RECORD_H

#include <string>
#include <unordered_map>
#include <vector>

#include "record_entry.h"

struct batch_record {
  std::string directory;  // of the results
  std::string path;
  std::string stamp;                                           // of the file when it was read
  std::string text;                                            // of the file
  std::unordered_map<std::string, std::vector<size_t>> lines;  // starts, by escaped result name
  size_t line_count;
};

enum record_answer {
  RECORD_UNKNOWN,  // nothing is known of such a result
  RECORD_CHANGED,  // the entry is of a result that looked otherwise
  RECORD_MADE      // the entry is of this one
};

// True when `directory` has a record, so that it is a folder of results.
bool record_is_in(const std::string &directory);

// True for the name that a record has in its folder.
bool record_is_name(const std::string &name);

// Reads the record of `directory`; there need not be one. Returns false after one line.
bool record_load(batch_record *record, std::string directory);

// Reads the record anew if another process has changed it. Returns true if so.
bool record_refresh(batch_record *record);

// What is known of the result that has the name and looks like `stamp` now.
record_answer record_find(const batch_record *record, const std::string &result,
                          const std::string &stamp, record_entry *entry);

// False after one line when a record that is there cannot be locked or written.
bool record_is_usable(const batch_record *record);

// Drops the lines that do not count any more, if they are many. A failure changes nothing.
void record_shorten(batch_record *record);

#endif  // SE_BF_BATCH_RECORD_H
