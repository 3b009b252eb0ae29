// Runs the script that draws spectrograms, in a process of its own.
#ifndef SE_BF_DRAWING_H
#define SE_BF_DRAWING_H

#include <string>
#include <vector>

// Finds the directory of the plot scripts from the place of the program. On failure prints one line
// and returns false.
bool drawing_find(std::string *directory);

// One sound to draw: raw 16-bit little-endian PCM of one channel in an open file.
struct drawing_sound {
  int fd;
  std::string title;
};

// Draws the sounds, which have one rate, above each other into the file `picture` and shows the
// progress. On failure prints one line and returns false; when a signal asked for the end, the
// process has been ended and nothing is printed.
bool drawing_run(const std::string &directory, const std::vector<drawing_sound> &sounds,
                 int rate_hz, const std::string &picture);

#endif  // SE_BF_DRAWING_H
