// Messages for the user on standard error: one line each, and a progress bar on terminals.
#ifndef SE_BF_REPORT_H
#define SE_BF_REPORT_H

#include <string>

// Prints "se_bf: <text>" as one line; what may steer a terminal (in file names) is shown as '?'.
void report_line(const std::string &text);

// Prints the line and returns false.
bool report_failure(const std::string &text);

// Draws the progress bar from now on, if standard error is a terminal.
void report_progress_on();

// Names the work beside the bar, such as "enhancing", until the bar is removed. Without a name
// there is no bar.
void report_progress_task(const std::string &task);

// Shows how far processing has come: `seconds` of audio done, of `total` (not above 0: unknown).
// Redraws a few times a second at most. The bar fits the width of the terminal; a very narrow
// terminal shows the percentage alone.
void report_progress(double seconds, double total);

// Removes the bar.
void report_progress_off();

// A number with a fixed count of decimals, as "3.24".
std::string report_number(double value, int decimals);

// Seconds of processor time that the program has used.
double report_processor_time();

#endif  // SE_BF_REPORT_H
