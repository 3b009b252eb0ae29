// Standard descriptors, signals, and raw input and output.
#ifndef SE_BF_PROCESS_H
#define SE_BF_PROCESS_H

#include <cstddef>
#include <string>

// Opens /dev/null on standard descriptors that the caller closed, so that none of our files gets
// them; in the wrong direction, so that using them is still an error.
void process_fill_descriptors();

// Takes standard output away from libraries, which may print notes there: returns a new descriptor
// of what standard output was, and points descriptor 1 at /dev/null. Returns -1 with errno set on
// failure.
int process_claim_stdout();

// Makes interrupt, termination and hang-up end the work in an orderly way. Closed pipes and files
// beyond the user's limit become errors of writing.
void process_catch_signals();

// True once one of those signals has arrived.
bool process_stopped();

// Waits until a read from `fd` would not block. Returns false when a signal has asked for the end,
// whether it arrived before or during the wait.
bool process_wait(int fd);

// Ends the process with the signal that arrived, as its parent expects.
void process_die_of_signal();

// Writes all bytes. Returns false with errno set, EINTR when a signal asked for the end.
bool process_write(int fd, const void *data, size_t bytes);

// Reads to the end and appends it to `text`. Returns false with errno set.
bool process_read_all(int fd, std::string *text);

#endif  // SE_BF_PROCESS_H
