// The name of a result: whether the result exists or may be made, and how it gets its name.
#ifndef SE_BF_BATCH_RESULT_H
#define SE_BF_BATCH_RESULT_H

#include <string>

#include "batch_record.h"

struct result_place {
  std::string in;    // as the user named it
  std::string name;  // of the result, below its folder
  std::string out;   // its path
  std::string seen;  // result_seen() when it was judged
};

enum result_verdict {
  RESULT_WANTED,
  RESULT_INPUT_CHANGED,  // there is an older one, made from an earlier state of the same file
  RESULT_OPTIONS_CHANGED,
  RESULT_VERSION_CHANGED,
  RESULT_DONE,
  RESULT_REFUSED
};

// A result that is being made, for result_take_name.
struct result_claim {
  const result_place *place;
  const batch_record *record;  // says where it is
  const bool *cut_off;         // known when the result is whole
  record_entry entry;          // result_expect() before the input was read
};

// The state of the file at a path, so that a change shows; empty: there is none.
std::string result_seen(const std::string &path);

// The entry of a result yet to be made, with its input as it is now. False when that is not there.
bool result_expect(record_entry *entry, const result_place *place, const std::string &options);

// Judges what stands in the place of the result that `wanted` describes; `overwrite` allows to
// replace any file. REFUSED comes after a line: the result is of something else, or of a file that
// was longer then, so that sound could be lost. `made` is what DONE rests on.
result_verdict result_judge(batch_record *record, const result_place *place,
                            const record_entry *wanted, bool overwrite, record_entry *made);

// Enters the result `temp` into the record and renames it to `path`; `user` is its claim. Refused
// when another run has made the result meanwhile from another input. The record is stored first, so
// that a power cut leaves no result without its line. As output_naming says.
bool result_take_name(void *user, const std::string &temp, const std::string &path);

#endif  // SE_BF_BATCH_RESULT_H
