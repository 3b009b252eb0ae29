// Files without a name: their content vanishes when the program ends, however it ends.
#ifndef SE_BF_TEMPORARY_FILE_H
#define SE_BF_TEMPORARY_FILE_H

#include <string>

// The directory that they lie in: TMPDIR, or /tmp.
std::string temporary_file_directory();

// Opens one for reading and writing. Returns its descriptor, or -1 after one line.
int temporary_file_open();

// Prints that writing such a file failed because of `error`, an errno, and what to do. Returns
// false.
bool temporary_file_failed(int error);

#endif  // SE_BF_TEMPORARY_FILE_H
