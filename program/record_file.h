// The file of a record of results: locked, and lines added to it.
#ifndef SE_BF_RECORD_FILE_H
#define SE_BF_RECORD_FILE_H

#include <string>

#include "record_entry.h"

constexpr char kRecordMark[] = "# se_bf results";  // every record begins with it
constexpr char kRecordHeading[] =
    "# se_bf results: what each file in this folder was made from, for se_bf enhance --out-dir\n"
    "# result\tits size and time\tinput\tits size and time\tinput is\tversion\toptions\n";

// Locks the record at `path`, which is made if need be, against other processes. Where the file
// system knows no locks `locked` is false: lines can be added, which are written at once, but not
// taken away. Returns a descriptor whose closing unlocks it, or -1 after one line (or when a signal
// asked for the end).
int record_lock(const std::string &path, bool *locked);

// Adds an entry to a record from record_lock and stores it safely. Returns false after one line; a
// locked record is as before then.
bool record_add(int fd, bool locked, const std::string &path, const record_entry *entry);

// Why a record cannot be used, from an errno, and what to do.
std::string record_advice(int error);

#endif  // SE_BF_RECORD_FILE_H
