// The table at the end of a batch: what became of each file.
#ifndef SE_BF_BATCH_TABLE_H
#define SE_BF_BATCH_TABLE_H

#include <vector>

#include "batch_plan.h"
#include "enhance.h"

// How many of the files are in a state.
size_t table_count(const std::vector<batch_file> &files, batch_state state);

// Prints a row for each file, with its figures, and the sums on standard output. Returns false
// after one line on standard error.
bool table_print(const std::vector<batch_file> &files, const enhance_figures *figures);

#endif  // SE_BF_BATCH_TABLE_H
