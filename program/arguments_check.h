// Checks of the command line: values of options, and options that go together.
//
// Each check returns what is wrong, or nothing.
#ifndef SE_BF_ARGUMENTS_CHECK_H
#define SE_BF_ARGUMENTS_CHECK_H

#include <string>
#include <vector>

#include "options.h"

namespace CLI {
class App;
}

// Whether `text` is a finite number from `low` to `high`.
std::string check_range(const std::string &text, double low, double high);

// Reads "0" or "0,3" into one or two different channel numbers.
std::string check_channels(const std::string &text, std::vector<size_t> *channels);

// Takes IN and OUT from the places, of which there may be any number with --out-dir.
std::string check_places(const batch_options *batch, enhance_options *options);

// Options that need another one, after check_places. `command` has been parsed. A spacing without
// a direction has the talker searched.
std::string check_pairs(const CLI::App *command, enhance_options *options);

#endif  // SE_BF_ARGUMENTS_CHECK_H
